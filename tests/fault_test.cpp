#include <optional>
#include <tuple>

#include "support/service_test.h"

// What can go wrong between the module and the service, row by row as in docs/reliability.md.

using localservice::Ending;
using localservice::Reply;

namespace {

constexpr std::size_t MIB = 1 << 20;
const Log NO_CHANNEL = {"SSL_get_peer_certificate veio NULL - sem certificado, ou sem conexao.",
                        FILING_FAILED};
const std::string BY_CA = " -CA " LOCAL_PKI "/ca.pem -CAkey " LOCAL_PKI "/ca.key";
const std::string HEAD = reply("").bytes;

// A name, a reply that is not as it should be and the body as logged; none: it serves all the same.
using ReplyFault = std::tuple<std::string, Reply, Log>;

// The faults of the reply whose body should be the object `json`.
std::vector<ReplyFault> replyFaults(const std::string& json) {
  const std::string good = HEAD + json;
  const std::string open(999'999, '[');
  const std::string deep = open + std::string(open.size(), ']');
  std::string lines;
  while (lines.size() < MIB) lines += "x-header: of many\r\n";
  std::vector<ReplyFault> rows = {
      {"one byte per record", {.bytes = good, .byteDelay = std::chrono::milliseconds(0)}, {}},
      {"64 MiB of body", reply(std::string(64 * MIB - json.size(), ' ') + json), {}},
      {"line of 1 MiB", reply(json, std::string(MIB - 2, 'x') + "\r\n"), {}},
      // Looked at as 350 pieces of 2,999 bytes and one of two, which ends the header.
      {"line of 1 MiB and two bytes", {.bytes = std::string(1'049'650, 'x') + "\r\n" + json}, {}},
      {"header block that never ends", {.bytes = lines + json}, {""}},
      {"nested brackets", reply("{\"x\":" + deep + "," + json.substr(1)), {}},
      {"nested brackets, never closed", reply(open), {open}},
      {"byte order mark", reply("\xEF\xBB\xBF" + json), {"\xEF\xBB\xBF" + json}},
      {"NUL in the header", reply(json, std::string("x:\0\r\n", 5)), {}},
      {"NUL behind the body", reply(json + '\0' + "x"), {}},
      {"NUL in the body", reply("{" + std::string(1, '\0') + json.substr(1)), {"{"}},
      {"chunked", reply("23\r\n" + json + "\r\n0\r\n\r\n", "Transfer-Encoding: chunked\r\n"),
       Log{"23\r", "unstamped: " + json + "\r", "unstamped: 0\r", "unstamped: \r", "unstamped: "}}};
  for (const auto& [how, ending] : std::map<std::string, Ending>{{"closed", Ending::CLOSE_NOTIFY},
                                                                 {"dropped", Ending::CLOSE},
                                                                 {"reset", Ending::RESET}}) {
    for (std::size_t length = 0; length <= good.size(); ++length) {
      rows.push_back({how + " after byte " + std::to_string(length),
                      {.bytes = good, .closeAfter = length, .ending = ending},
                      {json.substr(0, length - std::min(length, HEAD.size()))}});
    }
    std::get<Log>(rows.back()).clear();  // All of it has come.
  }
  return rows;
}

// A server whose certificate or handshake is not as it should be.
struct ServerFault {
  std::string name;
  std::string reason;             // that the log gives; "": the server is accepted
  std::string arguments = BY_CA;  // of certificate()
  std::string resigning{};
  int intermediates = 0;
  int version = TLS1_2_VERSION;
  std::string ciphers{};
  std::optional<Ending> stall{};
};

using Fault = ServiceTest;

}  // namespace

TEST_F(Fault, OfTheReplyToTheRequest) {
  for (auto [name, spoilt, lines] : replyFaults(FILED.bytes.substr(HEAD.size()))) {
    if (!lines.empty()) {
      lines.insert(lines.begin(), BAD_FILING);
      lines.push_back(FILING_FAILED);
    }
    expectOutcome(name, {spoilt, accepted()}, lines.empty() ? 2 : 1, lines,
                  lines.empty() ? CKR_OK : CKR_FUNCTION_FAILED);
  }
}

TEST_F(Fault, OfTheReplyToTheQuery) {
  for (auto [name, spoilt, lines] : replyFaults(accepted().bytes.substr(HEAD.size()))) {
    if (!lines.empty()) lines.insert(lines.begin(), BAD_STATE);
    expectOutcome(name, {FILED, spoilt}, 2, lines, lines.empty() ? CKR_OK : CKR_FUNCTION_FAILED);
  }
}

TEST_F(Fault, OfTheServer) {
  options.certificateFile = home / "chain.pem";
  options.securityLevel = 0;
  const std::string unverified = "certificate verify failed";
  // Only this command of openssl can let a validity begin later.
  const std::string later =
      "-out self.pem && printf '[a]\\ndatabase=d\\nserial=s\\n[p]\\ncommonName=supplied' >a.cnf && "
      ": >d && openssl ca -batch -notext -config a.cnf -name a -policy p -md sha256 -rand_serial "
      "-outdir . -startdate 480101000000Z -days 9999 -ss_cert self.pem -cert " LOCAL_PKI
      "/ca.pem -keyfile " LOCAL_PKI "/ca.key";
  for (const ServerFault& server : std::vector<ServerFault>{
           {"another name", ""},
           {"unknown CA", unverified, issuedBy("Unknown")},
           {"self-signed", unverified, ""},
           {"expired", unverified, "", BY_CA + " -clrext -days 0"},
           {"not yet valid", unverified, "", later},
           {"SHA-1", unverified, "", BY_CA + " -clrext -sha1"},
           {"1024-bit key", unverified, "-newkey rsa:1024 -nodes -keyout weak.key",
            BY_CA + " -clrext"},
           {.name = "four intermediates", .reason = "", .intermediates = 4},
           {.name = "five intermediates", .reason = unverified, .intermediates = 5},
           {.name = "TLS 1.1 only", .reason = "wrong ssl version", .version = TLS1_1_VERSION},
           {.name = "TLS 1.3 only", .reason = "protocol version", .version = TLS1_3_VERSION},
           {.name = "RSA key exchange only", .reason = "handshake failure", .ciphers = "kRSA"},
           {.name = "stalls and closes", .reason = "unexpected eof", .stall = Ending::CLOSE},
           {.name = "stalls and resets", .reason = "unexpected eof", .stall = Ending::RESET}}) {
    std::string chain;
    std::string arguments = server.arguments;
    for (int i = 0; i <= server.intermediates; ++i) {
      EXPECT_NE(certificate(arguments + " -subj /CN=" + std::to_string(i), server.resigning), "");
      chain = read("../../../made.pem") + chain;
      write("../../../chain.pem", chain);
      arguments = " -CA " + options.certificateFile + " -CAkey " USER_KEY;
    }
    options.minimumVersion = options.maximumVersion = server.version;
    options.cipherList = server.ciphers;
    options.keyFile = server.arguments.starts_with("-newkey") ? home / "weak.key" : USER_KEY;
    if (server.stall) options.stall.emplace(0), options.stallEnding = *server.stall;
    const bool isAccepted = server.reason.empty();
    expectOutcome(server.name, {FILED, accepted()}, isAccepted ? 2 : 0,
                  isAccepted ? Log() : NO_CHANNEL, isAccepted ? CKR_OK : CKR_FUNCTION_FAILED);
    EXPECT_THAT(read("orvix.log"), testing::HasSubstr(server.reason)) << server.name;
  }
}

#ifdef MODULE_OF_FAILING_CALLS
TEST_F(Fault, OfTheTlsLibrary) {
  for (const std::string call :
       {"SSL_CTX_new", "BIO_new_ssl_connect", "BIO_get_ssl", "SSL_set_cipher_list",
        "SSL_set_tlsext_host_name", "BIO_do_connect", "BIO_do_handshake", "SSL_get_verify_result",
        "BIO_puts", "BIO_puts lendo desafio"}) {
    setenv("FAILING_CALL", call.c_str(), 1);
    load(MODULE_OF_FAILING_CALLS);
    openSession();
    const bool isFiled = call.ends_with("desafio");
    const Log lines =
        isFiled ? Log{"Erro " + call, BAD_STATE, ""} : Log{"Erro " + call, FILING_FAILED};
    expectOutcome(call, {FILED}, isFiled ? 1 : 0, lines, CKR_FUNCTION_FAILED);
  }
}
#endif

TEST_F(Fault, NobodyListens) {
  EXPECT_EQ(sign(), CKR_FUNCTION_FAILED);
  EXPECT_EQ(logOfService(), NO_CHANNEL);
  EXPECT_THAT(log(), testing::Contains("<tls>")) << "the library's reason";
  EXPECT_THAT(log(), testing::Not(testing::Contains(executable))) << "nothing is sent";
}
