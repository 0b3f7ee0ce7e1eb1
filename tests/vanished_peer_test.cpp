// It would make read a function of the header, which no other can stand before.
#undef _FORTIFY_SOURCE

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "support/service_test.h"

// Two computers and the cable between them: this process in a network of its own, and the service
// in another one.

namespace {

// Takes a hosts file and the process at the far end.
const std::string LAY_CABLE = R"(sh -ec '
  mount --make-rprivate /; mount --bind "$1" /etc/hosts; ip link set lo up
  ip link add near type veth peer name far netns "$2"
  ip addr add 10.0.0.1/24 dev near; ip link set near up
  nsenter -n -t "$2" sh -ec "ip addr add 10.0.0.2/24 dev far; ip link set far up"' sh )";

// What this thread has asked for of sockets, and under 0 how often it read from one before that.
thread_local std::map<int, int> asked;

}  // namespace

// Stands before the system's, to run the times of the module thirty times as fast.
extern "C" __attribute__((visibility("default"))) int setsockopt(int socket, int level, int option,
                                                                 const void* value,
                                                                 socklen_t length) noexcept {
  int number = asked[option] = *static_cast<const int*>(value);
  if (level == IPPROTO_TCP && option != TCP_NODELAY) {
    if (option != TCP_KEEPCNT) number = std::max(1, number / 30);
    value = &number;
  }
  return static_cast<int>(syscall(SYS_setsockopt, socket, level, option, value, length));
}

extern "C" __attribute__((visibility("default"))) ssize_t read(int file, void* to, size_t length) {
  int silence = 1;  // what the module asks for, and what no socket begins with
  socklen_t size = sizeof silence;
  getsockopt(file, IPPROTO_TCP, TCP_KEEPIDLE, &silence, &size);
  if (silence != 1) ++asked[0];
  return syscall(SYS_read, file, to, length);
}

TEST_F(ServiceTest, APeerThatVanishesIsNoticedAndASlowOneIsWaitedFor) {
  // Nobody listens at the first two, which the module must get over.
  std::ofstream(home / "hosts") << "127.0.0.1 localhost\n10.0.0.1 localhost\n10.0.0.2 localhost\n";
  if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0) {
    GTEST_SKIP() << "networks of its own are for root, where the system has them";
  }
  const pid_t service = fork();
  if (service == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    unshare(CLONE_NEWNET);
    options.address = "0.0.0.0";
    const localservice::BackgroundListener listener(options, [](const std::string& request) {
      const bool isQuery = request.starts_with("GET");
      EXPECT_EQ(std::system(isQuery ? "ip link set far down" : "true"), 0);
      std::this_thread::sleep_for(std::chrono::seconds(3));  // longer than a dead peer lasts
      return isQuery ? accepted() : FILED;
    });
    raise(SIGSTOP);  // until there is a cable
    pause();
  }
  EXPECT_EQ(waitpid(service, nullptr, WUNTRACED), service);
  const std::string arguments = (home / "hosts").string() + ' ' + std::to_string(service);
  const int built = std::system((LAY_CABLE + arguments + " 2>/dev/null").c_str());
  kill(service, SIGCONT);
  const CK_RV result = built == 0 ? sign() : CKR_FUNCTION_FAILED;
  kill(service, SIGKILL);
  waitpid(service, nullptr, 0);
  if (built != 0) GTEST_SKIP() << "there is no way to lay a cable between two networks here";

  EXPECT_EQ(result, CKR_FUNCTION_FAILED);
  EXPECT_THAT(logOfService(), testing::ElementsAre(BAD_STATE, ""))
      << "the first, slow reply has been waited for";
  EXPECT_THAT(asked, testing::ElementsAre(std::pair(TCP_KEEPIDLE, 30), std::pair(TCP_KEEPINTVL, 10),
                                          std::pair(TCP_KEEPCNT, 3), std::pair(SO_KEEPALIVE, 1),
                                          std::pair(TCP_USER_TIMEOUT, 60'000)));
}
