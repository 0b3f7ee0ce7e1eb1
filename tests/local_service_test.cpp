#include "local_signing_service/signing_service.h"

#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <sstream>
#include <tuple>

#include "support/standard_test.h"

using localservice::Approval;
using localservice::EventLog;
using localservice::SigningService;

namespace {

SigningService::Clock::time_point now;

SigningService makeService(const Approval& approval, EventLog& log) {
  return {localservice::Signer(LOCAL_PKI "/users"), {approval}, log, [] { return now; }};
}

const std::string FILING = "POST /brivasign-api/api/drivers/assinatura HTTP/1.1\r\n";
const std::string BODY =
    R"({"certificadoId":1001,"desafio":"ZGF0YQ==","pid":"7","executavel":"\u001b\u202eapp"})";

}  // namespace

TEST(LocalService, DecidesInTimeOrNotAtAll) {
  const Approval ask = {Approval::Mode::ASK};
  // Steps: seconds that pass; a query and its answer; y and n, a decision and whether it counts.
  // Then the events on the log, behind the filing.
  using Row = std::tuple<Approval, std::string, std::string>;
  for (const auto& [approval, steps, events] :
       {Row{{}, "q=ACEITO", "approved,signature fetched"},
        Row{{.waitingQueries = 1}, "q=AGUARDANDO q=ACEITO", "waiting,approved,signature fetched"},
        Row{{.delay = std::chrono::seconds(42)},
            "+41 q=AGUARDANDO +1 q=ACEITO",
            "waiting,approved,signature fetched"},
        Row{{.delay = std::chrono::seconds(42)},
            "+60 q=RECUSADO",
            "approved,given up,refusal fetched"},
        Row{ask, "+59 y=1 q=ACEITO y=0 n=0", "approved,signature fetched"},
        Row{ask, "+59 q=AGUARDANDO +59 n=1 q=RECUSADO", "waiting,refused,refusal fetched"},
        Row{ask, "+60 y=0 q=RECUSADO", "given up,refusal fetched"},
        Row{ask, "y=1 +60 q=RECUSADO", "approved,given up,refusal fetched"},
        Row{{Approval::Mode::WAIT}, "+59 q=AGUARDANDO +60", "waiting,given up"}}) {
    std::ostringstream lines, terminal;
    EventLog log(lines, terminal, true);
    SigningService service = makeService(approval, log);
    service.handle(FILING + "Content-Length: " + std::to_string(BODY.size()) + "\r\n\r\n" + BODY);
    std::istringstream words(steps);
    for (std::string step; words >> step;) {
      if (step[0] == '+') {
        now += std::chrono::seconds(std::stoi(step));
        service.lookAtClock();
      } else if (step[0] == 'q') {
        EXPECT_THAT(
            service.handle("GET /brivasign-api/api/drivers/assinatura/1 HTTP/1.1\r\n\r\n").bytes,
            testing::HasSubstr("\"status\":\"" + step.substr(2)))
            << steps;
      } else {
        EXPECT_EQ(service.decide(1, step[0] == 'y'), step[2] == '1') << steps;
      }
    }
    static const std::regex EVENT(
        R"re(\{"time":"[-0-9T:.]+Z","request":1,"event":"([^"]+)".*\n)re");
    EXPECT_EQ(std::regex_replace(lines.str(), EVENT, "$1,"), "filed," + events + ',');
  }
}

TEST(LocalService, AsksOnOneLineAboutOneRequestAtATime) {
  std::ostringstream lines, terminal;
  EventLog log(lines, terminal, false);
  SigningService service = makeService({Approval::Mode::ASK}, log);
  for (int i = 0; i < 2; ++i) {
    service.handle(FILING + "Content-Length: " + std::to_string(BODY.size()) + "\r\n\r\n" + BODY);
  }
  service.decide(0, true);
  service.refuseAll();
  const std::string question =
      ", application: \\?\\?app, process: 7, certificate: 1001, holder: Maria Exemplo, hash: -, "
      "padding: PKCS#1 v1.5, bytes: 4: approve\\? \\[y/n\\] ";
  const std::string first = "request 1" + question, second = "request 2" + question;
  EXPECT_THAT(terminal.str(), testing::MatchesRegex(first + "\n" + first + "\n" + second + "\n"));
}

TEST_F(StandardTest, TwoHundredSignAtOnceThoughOneIsNotApprovedAndTwentySayNothing) {
  std::filesystem::copy_file(LOCAL_PKI "/users/1001.cer", folder / "certificados/1001.cer");
  int gate[2] = {};
  ASSERT_EQ(pipe(gate), 0);
  for (int i = 0; i < 200; ++i) {
    if (fork() != 0) continue;
    close(gate[1]);
    close(STDERR_FILENO);
    EXPECT_EQ(::read(gate[0], gate, 1), 0) << "it opens for all at once";
    run("C_Initialize = 0; C_OpenSession 1 4 0 0 &n = 0");
    std::string made(256, '\0');
    // The library verifies what it hands over.
    const CK_RV result = signParts({CKM_RSA_PKCS, nullptr, 0}, 1001 + KEY, {"data"}, made);
    _exit(result == CKR_OK ? 0 : result == CKR_FUNCTION_CANCELED ? 1 : 2);
  }
  std::ostringstream lines;
  EventLog log(lines, lines, false);
  SigningService service = makeService({Approval::Mode::PHONE}, log);
  std::size_t filed = 0;
  const localservice::BackgroundListener listener(SERVICE, [&](const std::string& request) {
    localservice::Reply answer = service.handle(request);
    if (request.starts_with("POST") && ++filed > 1) service.decide(filed, true);
    return answer;
  });
  asio::io_context context;
  const asio::ip::tcp::endpoint endpoint(asio::ip::address_v4::loopback(), SERVICE.port);
  std::vector<asio::ip::tcp::socket> silent;
  for (int i = 0; i < 20; ++i) silent.emplace_back(context).connect(endpoint);
  close(gate[0]);
  close(gate[1]);
  std::map<int, int> ends;
  for (int status = 0; wait(&status) > 0;) ++ends[WEXITSTATUS(status)];
  EXPECT_THAT(ends, testing::ElementsAre(std::pair(0, 199), std::pair(1, 1))) << lines.str();
}
