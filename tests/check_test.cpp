#include <rapidjson/document.h>

#include "support/service_test.h"

using testing::HasSubstr;

namespace {

constexpr const char* IDENTIFIER = "f00d-identifier";
constexpr const char* NOBODY = "nobody";

using Check = ModuleTest;

// A home and a server that are in order but for one thing.
struct Case {
  std::string says;                    // what is wrong, as told first; "" when nothing is
  std::string file = "other";          // of the product folder, or the folder itself
  std::optional<std::string> holds{};  // nothing: it is missing
  std::string server{};                // the file of its certificate, or NOBODY
  std::string tool = LOCAL_CHECK;
};

}  // namespace

TEST_F(Check, NamesTheCauseAndChangesNothing) {
  const std::string byCa = " -CA " LOCAL_PKI "/ca.pem -CAkey " LOCAL_PKI "/ca.key ";
  const std::string user = certificate();
  const std::string bigKey = certificate("-newkey rsa:3072 -nodes");
  const std::string expired = certificate("", byCa + "-clrext -days 0");
  std::filesystem::rename(home / "made.pem", home / "expired.pem");
  EXPECT_NE(certificate(issuedBy("Unknown")), "");
  const std::string everything = "tar cf - -C " + home.string() + " .";
  for (const auto& [says, file, holds, server, tool] :
       std::vector<Case>{{""},
                         {"Orvix/ does not exist", ""},
                         {"certificados cannot be opened", "certificados"},
                         {"holds no certificate", "certificados/7.cer"},
                         {"7.cer is damaged", "certificados/7.cer", user.substr(0, 99)},
                         {"the certificate expired on", "certificados/7.cer", expired},
                         {"the key is not a 2048-bit RSA key", "certificados/7.cer", bigKey},
                         {"there is no file 42.cer", "certificados/0042.cer", user},
                         {"says \"9\", which is no environment", "ambiente", "9"},
                         {"\"x\", begins with no number", "ambiente", "x", NOBODY},
                         {"maquinaId is missing", "maquinaId"},
                         {"maquinaId holds a control character", "maquinaId", "f00d\r\n"},
                         {"invalid does not resolve", "other", "", NOBODY, PRODUCT_CHECK},
                         {"127.0.0.1: Connection refused", "other", "", NOBODY},
                         {"refused: unable to get local issuer", "other", "", home / "made.pem"},
                         {"refused: certificate has expired", "other", "", home / "expired.pem"}}) {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder / "certificados");
    write("certificados/7.cer", user);
    write("certificados/7.pem", "ignored");
    for (const char* name : {"maquinaId", "maquinaIdDes"}) write(name, IDENTIFIER);
    write("orvix.log", std::string("not UTF-8: \xFF, ") + IDENTIFIER + "\n");
    holds ? write(file, *holds) : void(std::filesystem::remove_all(folder / file));
    localservice::ListenerOptions options = SERVICE;
    if (!server.empty()) options.certificateFile = server, options.keyFile = USER_KEY;
    std::optional<ScriptedService> service;
    if (server != NOBODY) service.emplace(std::vector{FILED}, options);

    const auto before = output(everything);
    setenv("RES_OPTIONS", "timeout:1 attempts:1", 1);
    const auto [text, status] = output(tool);
    const auto [json, jsonStatus] = output(tool + " --json");
    EXPECT_EQ(output(everything), before);
    EXPECT_TRUE(!service || service->requests.empty()) << "it sends nothing";
    EXPECT_THAT(text + json, testing::Not(HasSubstr(IDENTIFIER)));
    EXPECT_EQ(status, says.empty() ? 0 : 1) << text;
    EXPECT_EQ(jsonStatus, status);
    rapidjson::Document document;
    ASSERT_FALSE(document.Parse(json.c_str()).HasParseError()) << json;
    std::string message;
    for (const auto& finding : document["findings"].GetArray()) {
      if (message.empty() && finding["status"] == "wrong") message = finding["message"].GetString();
    }
    EXPECT_THAT(message, HasSubstr(says));
    EXPECT_THAT(text, HasSubstr(message));
  }
  EXPECT_EQ(output(LOCAL_CHECK " --colour 2>&1").second, 2);
}

TEST(Identity, IsToldByTheCheckAndReadInTheModule) {
  const auto told = output(PRODUCT_CHECK " --version");
  EXPECT_EQ(told, output("LC_ALL=C grep -ao 'pkcs11-brivasign [0-9][ -~]*' " PRODUCT_MODULE));
  EXPECT_THAT(told.first, testing::MatchesRegex(
                              "pkcs11-brivasign 2\\.1\\.2, commit ([0-9a-f]{40}(-dirty)?|unknown), "
                              "[a-z]+-[a-z0-9_]+, OpenSSL 3\\.[^,]+, hosts development.*:443 .* "
                              "test\\.quorvent\\.invalid:443, 12 trust anchors\n"));
}
