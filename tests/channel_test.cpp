#include <csignal>
#include <tuple>

#include "support/service_test.h"

using localservice::ListenerOptions;

namespace {

const std::vector<std::string> NO_CHANNEL = {
    "SSL_get_peer_certificate veio NULL - sem certificado, ou sem conexao.",
    "Erro ao enviar pedido de assinatura."};

using Channel = ServiceTest;

}  // namespace

TEST_F(Channel, ServersThatAreAcceptedAndRefused) {
  const std::string byCa = " -CA " LOCAL_PKI "/ca.pem -CAkey " LOCAL_PKI "/ca.key ";
  const std::string byUnknown = issuedBy("Unknown");
  using Row = std::tuple<const char*, bool, std::string, int, const char*>;
  for (const auto& [what, accepts, arguments, version, ciphers] : std::vector<Row>{
           {"another name", true, byCa + "-subj /CN=other.invalid", TLS1_2_VERSION, ""},
           {"unknown CA", false, byUnknown, TLS1_2_VERSION, ""},
           {"self-signed", false, "", TLS1_2_VERSION, ""},
           {"expired", false, "expired", TLS1_2_VERSION, ""},
           {"TLS 1.1", false, byCa, TLS1_1_VERSION, ""},
           {"TLS 1.3", false, byCa, TLS1_3_VERSION, ""},
           {"RSA key exchange", false, byCa, TLS1_2_VERSION, "kRSA"}}) {
    EXPECT_NE(arguments == "expired" ? certificate("", byCa + "-clrext -days -1")
                                     : certificate(arguments),
              "");
    ListenerOptions options = localservice::listenerOptions(LOCAL_PKI, 24432);
    options.certificateFile = home / "made.pem";
    options.keyFile = USER_KEY;
    options.minimumVersion = options.maximumVersion = version;
    options.cipherList = ciphers;
    options.securityLevel = version < TLS1_2_VERSION ? 0 : 2;
    ScriptedService service({FILED, accepted()}, options);
    std::filesystem::remove(folder / "orvix.log");
    EXPECT_EQ(sign(), accepts ? CKR_OK : CKR_FUNCTION_FAILED) << what;
    EXPECT_EQ(service.requests.size(), accepts ? 2U : 0U) << what;
    EXPECT_EQ(logOfService(), accepts ? std::vector<std::string>() : NO_CHANNEL) << what;
  }
}

TEST_F(Channel, ChainsOfFourIntermediatesAreTheLongest) {
  for (const int intermediates : {4, 5}) {
    std::string by = " -CA " LOCAL_PKI "/ca.pem -CAkey " LOCAL_PKI "/ca.key ";
    std::string chain;
    for (int i = 0; i <= intermediates; ++i) {
      EXPECT_NE(certificate(by + "-subj /CN=level" + std::to_string(i)), "");
      std::filesystem::rename(home / "made.pem", home / "ca.pem");
      by = " -CA " + (home / "ca.pem").string() + " -CAkey " USER_KEY " ";
      chain = read("../../../ca.pem") + chain;
    }
    write("../../../chain.pem", chain);
    ListenerOptions options = localservice::listenerOptions(LOCAL_PKI, 24432);
    options.certificateFile = home / "chain.pem";
    options.keyFile = USER_KEY;
    ScriptedService service({FILED, accepted()}, options);
    EXPECT_EQ(sign(), intermediates == 4 ? CKR_OK : CKR_FUNCTION_FAILED);
  }
}

TEST_F(Channel, NobodyListens) {
  EXPECT_EQ(sign(), CKR_FUNCTION_FAILED);
  EXPECT_EQ(logOfService(), NO_CHANNEL);
  EXPECT_THAT(log(), testing::Contains("<tls>")) << "the library's reason";
  EXPECT_THAT(log(), testing::Not(testing::Contains(executable))) << "nothing is sent";
  EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_IGN);
}
