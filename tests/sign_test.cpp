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
      .bytes = "HTTP/1.1 200 OK\n\na\n{\"id\":\r\n5,\"notificacaoEnviada\":false}\r\n"};
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
  using Row = std::pair<std::string, std::string>;
  for (const auto& [text, decoded] :
       {Row{base64 + "/w==", bytes + "\xFF"}, Row{base64 + base64, bytes + bytes}, Row{"", ""},
        Row{"QUJD\\u0000QUJD", "ABC"}, Row{"*", ""}}) {
    signature.assign(600, '\xEE');
    ScriptedService service({FILED, accepted(text)});
    EXPECT_EQ(sign(), CKR_OK);
    EXPECT_EQ(signature, decoded + std::string(600 - decoded.size(), '\xEE'));
  }
}

TEST_F(Sign, WaitsTwoSecondsFromQueryToQueryAndTwentyTimes) {
  // Time of each reply, replies of other states, sleep after the first reply of a waiting service
  // and after the others.
  using Row = std::tuple<long, std::size_t, unsigned, unsigned>;
  for (const auto& [replyTime, others, first, sleep] :
       {Row{0, 0, 2'000'000, 2'000'000}, Row{500'000, 0, 1'500'000, 1'500'000},
        Row{1'999'999, 0, 1, 1}, Row{2'000'000, 0, 0, 0}, Row{3'000'000, 0, 0, 0},
        Row{0, 30, 2'000'000, 2'000'000}, Row{500'000, 2, 500'000, 1'500'000},
        Row{3'000'000'000, 0, 1'296'967'296, 1'296'967'296}}) {
    std::filesystem::remove(folder / "orvix.log");
    testclock::sleeps.clear();
    std::vector<Reply> script(others, reply(R"({"status":"","desafioAssinado":""})"));
    script.insert(script.begin(), FILED);
    script.push_back(WAITING);
    ScriptedService service(script);
    service.replyTime = replyTime;
    EXPECT_EQ(sign(), CANCELED);
    EXPECT_EQ(service.requests.size(), 21 + others) << "other states are neither counted";
    std::vector<unsigned> sleeps(first == 0 ? 0 : 19, sleep);
    if (first != 0) sleeps.front() = first;
    EXPECT_EQ(testclock::sleeps, sleeps) << "nor paced";
    EXPECT_EQ(logOfService(),
              Log{"Retornando CKR_FUNCTION_CANCELED depois de receber 20 vezes AGUARDANDO."});
  }
}

TEST_F(Sign, MembersOfTheWrongTypeEndTheProcess) {
  using Row = std::pair<Reply, Reply>;
  for (const auto& [filed, state] :
       {Row(reply(R"({"id":"7"})"), WAITING), Row(reply(R"({"id":3000000000})"), WAITING),
        Row(reply(R"({"id":1.0})"), WAITING),
        Row(reply(R"({"id":7,"notificacaoEnviada":0})"), WAITING),
        Row(FILED, reply(R"({"status":1,"desafioAssinado":null})")),
        Row(FILED, reply(R"({"status":"ACEITO","desafioAssinado":null})"))}) {
    // The dying process starts the service: a child forked beside its thread inherits shut locks.
    EXPECT_EXIT((ScriptedService({filed, state}), sign()), testing::KilledBySignal(SIGABRT),
                "pkcs11-brivasign: [a-z]+\\.[a-z]+:[0-9]+: assertion failed: [^ ]+")
        << filed.bytes << state.bytes;
  }
}

TEST_F(Sign, PartsAreAcceptedAndFinishedWithoutTheService) {
  std::string data(10, '-');
  pointers = {{"D", data.data()}};
  run("C_SignInit 1 [1] 80000007 = 0; C_Sign 1 0 1 D &n = 7; C_Sign 1 D 0 D &n = 7;"
      "C_Sign 1 D 1 D 0 = 7; C_SignUpdate 1 D 0 = 7; C_SignUpdate 1 0 1 = 7;"
      "C_SignFinal 1 D 0 = 7; C_SignFinal 1 0 &n = 0; n ? A; n : 9;"
      "C_SignFinal 1 D &n = 150; n ? 9; n : 99; C_SignFinal 1 D &n = 0; n ? A");
  EXPECT_EQ(data, std::string("\0\1\2\3\4\5\6\7\10\11", 10));
}

TEST_F(Sign, LogTellsTheLocalTime) {
  for (const auto& [zone, seconds] : {std::pair("XXX5:30", -19'800), std::pair("XXX-3", 10'800)}) {
    setenv("TZ", zone, 1);
    std::filesystem::remove(folder / "orvix.log");
    const std::time_t before = std::time(nullptr);
    run("C_SignInit 1 [40] 80000000 = 70");
    std::tm told = {};
    std::istringstream(read("orvix.log")) >> std::get_time(&told, "%Y-%m-%d %T");
    EXPECT_THAT(timegm(&told) - seconds,
                testing::AllOf(testing::Ge(before), testing::Le(std::time(nullptr))));
  }
}

TEST_F(Sign, QueuedErrorsFollowTheNextLineOnce) {
  run("C_GetAttributeValue 1 63 [0] 1 = 30; C_SignInit 1 [40] 80000000 = 70;"
      "C_SignInit 1 [40] 80000000 = 70");
  EXPECT_THAT(
      log(), ElementsAre("Mecanismo invalido: 0x40", "<tls>", "<tls>", "Mecanismo invalido: 0x40"));
}
