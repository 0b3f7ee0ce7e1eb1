#include "support/service_test.h"

#include <sys/time.h>
#include <unistd.h>

using localservice::ListenerOptions;
using localservice::Reply;

ScriptedService::ScriptedService(std::vector<Reply> script, const ListenerOptions& options)
    : replies(std::move(script)),
      listener(options, [this](const std::string& request) { return answer(request); }) {}

Reply ScriptedService::answer(const std::string& request) {
  requests.push_back(request);
  testclock::advance(replyTime);
  return replies[std::min(requests.size(), replies.size()) - 1];
}

Reply reply(const std::string& body, const std::string& headers) {
  return {.bytes = "HTTP/1.1 200 OK\r\n" + headers + "Connection: close\r\n\r\n" + body};
}

Reply accepted(const std::string& base64) {
  return reply(R"({"status":"ACEITO","desafioAssinado":")" + base64 + "\"}");
}

ServiceTest::ServiceTest(const char* modulePath) : ModuleTest(modulePath) { openSession(); }

CK_RV ServiceTest::sign(const std::string& data) {
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  EXPECT_EQ(p11->C_SignInit(1, &mechanism, 0x80000007), CKR_OK);
  return signOnly(data);
}

CK_RV ServiceTest::signOnly(const std::string& data) {
  std::string copy = data;
  return p11->C_Sign(1, reinterpret_cast<CK_BYTE_PTR>(copy.data()), copy.size(),
                     reinterpret_cast<CK_BYTE_PTR>(signature.data()), &signatureLen);
}

Log ServiceTest::logOfService() const {
  Log messages = log();
  std::erase(messages, executable);
  std::erase(messages, "<tls>");
  return messages;
}

void ServiceTest::expectOutcome(const std::string& name, std::vector<Reply> script,
                                std::size_t requests, const Log& lines, CK_RV result) {
  const auto opened = [] {
    return std::ranges::distance(std::filesystem::directory_iterator("/proc/self/fd"));
  };
  const auto before = opened();
  std::filesystem::remove(folder / "orvix.log");
  signature[0] = '\xEE';
  signatureLen = 10;
  {
    ScriptedService service(std::move(script), options);
    EXPECT_EQ(sign(), result) << name;
    EXPECT_EQ(service.requests.size(), requests) << name;
  }
  EXPECT_EQ(opened(), before) << name;
  EXPECT_EQ(logOfService(), lines) << name;
  EXPECT_EQ(signature[0], result == CKR_OK ? '\0' : '\xEE') << name;
  EXPECT_EQ(signatureLen, 256U) << name;
  EXPECT_EQ(signOnly(), CKR_OPERATION_NOT_INITIALIZED) << name;
}

namespace testclock {

std::vector<unsigned> sleeps;
// Near the end of a second, so that a difference taken without its carry shows.
static timeval now = {1'900'000'000, 900'000};

void advance(long microseconds) {
  const long sum = now.tv_usec + microseconds;
  now.tv_sec += sum / 1'000'000;
  now.tv_usec = sum % 1'000'000;
}

}  // namespace testclock

extern "C" __attribute__((visibility("default"))) int gettimeofday(
    struct timeval* __restrict time, void* __restrict /*zone*/) noexcept {
  *time = testclock::now;
  return 0;
}

extern "C" __attribute__((visibility("default"))) int usleep(useconds_t microseconds) {
  testclock::sleeps.push_back(microseconds);
  testclock::advance(microseconds);
  return 0;
}
