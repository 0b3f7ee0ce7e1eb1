#include <ctime>
#include <iomanip>
#include <sstream>
#include <tuple>

#include "support/service_test.h"

using localservice::Reply;
using testing::ElementsAre;

namespace {

class Sign : public ServiceTest {};

constexpr CK_RV CANCELED = CKR_FUNCTION_CANCELED;
const std::string INCOMPLETE = "JSON nao veio com status ou desafioAssinado:";

}  // namespace

TEST_F(Sign, RepliesAndTheirOutcomes) {
  using Row = std::tuple<std::vector<Reply>, CK_RV, Log>;
  // The body begins behind the first line of two bytes, whatever they are.
  const Reply brokenLines = {
      .bytes = "HTTP/1.1 200 OK\na\n{\"id\":\r\n5,\"notificacaoEnviada\":false}\r\n"};
  const std::string noStatus = R"({"desafioAssinado":""})";
  const auto fails = [](std::vector<Reply> script, Log lines) {
    return Row{std::move(script), CKR_FUNCTION_FAILED, std::move(lines)};
  };
  const std::vector<Row> rows = {
      {{FILED, WAITING, WAITING, accepted()}, CKR_OK, {}},
      {{FILED, REFUSED}, CANCELED, {}},
      {{FILED, reply(R"({"status":"aceito","desafioAssinado":1})"), accepted()}, CKR_OK, {}},
      {{FILED, reply(R"({"status":"ACEITO\u0000","desafioAssinado":1})"), REFUSED}, CANCELED, {}},
      fails({FILED, reply("[1,2]")}, {BAD_STATE, "[1,2]"}),
      fails({FILED, reply(R"({"status":7})")}, {INCOMPLETE, R"({"status":7})"}),
      fails({FILED, reply(noStatus)}, {INCOMPLETE, noStatus}),
      fails({reply("{\"id\":7} x")}, {BAD_FILING, "{\"id\":7} x", FILING_FAILED}),
      fails({reply(" [1]")}, {"JSON recebido nao veio como objeto:", " [1]", FILING_FAILED}),
      fails({reply(R"({"numero":12})")},
            {"JSON recebido nao veio com id:", R"({"numero":12})", FILING_FAILED}),
      fails({reply(R"({"id":0,"notificacaoEnviada":false})")}, {FILING_FAILED}),
      {{brokenLines, REFUSED}, CANCELED, {}}};
  for (const auto& [script, result, lines] : rows) {
    expectOutcome(script.back().bytes, script, script.size(), lines, result);
  }
}

TEST_F(Sign, SignaturesAreDecodedAsFarAsTheyGo) {
  std::string base64;
  std::string bytes;
  for (int i = 0; i < 85; ++i) base64 += "/+8A", bytes += std::string("\xFF\xEF\0", 3);
  for (const auto& [text, decoded] : std::vector<std::pair<std::string, std::string>>{
           {base64 + "/w==", bytes + "\xFF"}, {"", ""}, {"QUJD\\u0000QUJD", "ABC"}, {"*", ""}}) {
    signature.assign(256, '\xEE');
    ScriptedService service({FILED, accepted(text)});
    EXPECT_EQ(sign(), CKR_OK);
    EXPECT_EQ(signature, decoded + std::string(256 - decoded.size(), '\xEE'));
  }
}

TEST_F(Sign, WaitsTwoSecondsFromQueryToQueryAndTwentyTimes) {
  std::istringstream rows(  // time of each reply, sleep after it, replies of other states
      "0 2000000 0  500000 1500000 0  1999999 1 0  2000000 0 0  3000000 0 0  0 2000000 30");
  std::size_t others = 0;
  for (long replyTime = 0, sleep = 0; rows >> replyTime >> sleep >> others;) {
    std::filesystem::remove(folder / "orvix.log");
    testclock::sleeps.clear();
    std::vector<Reply> script(others, reply(R"({"status":"","desafioAssinado":""})"));
    script.insert(script.begin(), FILED);
    script.push_back(WAITING);
    ScriptedService service(script);
    service.replyTime = replyTime;
    EXPECT_EQ(sign(), CANCELED);
    EXPECT_EQ(service.requests.size(), 21 + others) << "other states are neither counted";
    EXPECT_EQ(testclock::sleeps, std::vector<unsigned>(sleep == 0 ? 0 : 19, unsigned(sleep)))
        << "nor paced";
    EXPECT_THAT(
        logOfService(),
        ElementsAre("Retornando CKR_FUNCTION_CANCELED depois de receber 20 vezes AGUARDANDO."));
  }
  EXPECT_EQ(others, 30U) << "that was the last row";
}

TEST_F(Sign, MembersOfTheWrongTypeEndTheProcess) {
  for (const auto& [filed, state] : std::vector<std::pair<Reply, Reply>>{
           {reply(R"({"id":"7"})"), WAITING},
           {reply(R"({"id":3000000000})"), WAITING},
           {reply(R"({"id":1.0})"), WAITING},
           {reply(R"({"id":7,"notificacaoEnviada":0})"), WAITING},
           {FILED, reply(R"({"status":1,"desafioAssinado":null})")},
           {FILED, reply(R"({"status":"ACEITO","desafioAssinado":null})")}}) {
    // The dying process starts the service: a child forked beside its thread inherits shut locks.
    EXPECT_EXIT((ScriptedService({filed, state}), sign()), testing::KilledBySignal(SIGABRT),
                "pkcs11-brivasign: document\\.h:[0-9]+: assertion failed: [^ ]+")
        << filed.bytes << state.bytes;
  }
}

TEST_F(Sign, PartsAreAcceptedAndFinishedWithoutTheService) {
  std::string data(10, '-');
  CK_MECHANISM rsa = {CKM_RSA_PKCS, nullptr, 0};
  pointers = {{"D", data.data()}, {"rsa", &rsa}};
  run("C_SignInit 1 rsa 80000007 = 0; C_Sign 1 0 1 D &n = 7; C_Sign 1 D 0 D &n = 7;"
      "C_Sign 1 D 1 D 0 = 7; C_SignUpdate 1 D 0 = 7; C_SignUpdate 1 0 1 = 7;"
      "C_SignFinal 1 D 0 = 7; C_SignFinal 1 0 &n = 0; n ? A; n : 9;"
      "C_SignFinal 1 D &n = 150; n ? 9; n : 99; C_SignFinal 1 D &n = 0; n ? A");
  EXPECT_EQ(data, std::string("\0\1\2\3\4\5\6\7\10\11", 10));
}

TEST_F(Sign, LogTellsTheLocalTime) {
  setenv("TZ", "XXX5:30", 1);
  const auto now = [] {
    const std::time_t time = std::time(nullptr);
    std::ostringstream text;
    text << std::put_time(std::localtime(&time), "%F %T");
    return text.str();
  };
  const std::string before = now();
  CK_MECHANISM mechanism = {0x40, nullptr, 0};
  p11->C_SignInit(1, &mechanism, KEY);
  const std::string stamp = read("orvix.log").substr(0, 19);
  EXPECT_THAT(stamp, testing::AllOf(testing::Ge(before), testing::Le(now())));
}

TEST_F(Sign, QueuedErrorsFollowTheNextLineOnce) {
  CK_ATTRIBUTE attribute = {CKA_CLASS, nullptr, 0};
  EXPECT_EQ(p11->C_GetAttributeValue(1, 99, &attribute, 1), CKR_DEVICE_ERROR);
  CK_MECHANISM mechanism = {0x40, nullptr, 0};
  for (int i = 0; i < 2; ++i) p11->C_SignInit(1, &mechanism, KEY);
  EXPECT_THAT(
      log(), ElementsAre("Mecanismo invalido: 0x40", "<tls>", "<tls>", "Mecanismo invalido: 0x40"));
}
