#include <rapidjson/document.h>
#include <unistd.h>

#include <regex>

#include "support/service_test.h"

using testing::HasSubstr;

namespace {

constexpr const char* IDENTIFIER = "f00d-identifier";
constexpr const char* NOBODY = "nobody";

using Check = ModuleTest;

// A home and a server that are in order but for what a command of the shell changes.
struct Case {
  std::string codes;      // of all findings that are not ok, each with a blank behind it
  std::string command{};  // in the product folder
  std::string says{};
  std::string server{};  // the file of its certificate, or NOBODY
  std::string tool = LOCAL_CHECK;
  int version = TLS1_2_VERSION;
  std::optional<std::chrono::milliseconds> stall{};
};

// Answers two connections as the sign-in page of a public network does.
const std::string PLAIN_HTTP =
    "perl -MIO::Socket -e '$listener = IO::Socket::INET->new(Listen => 2, ReuseAddr => 1,"
    " LocalAddr => \"127.0.0.1:" +
    std::to_string(SERVICE.port) +
    "\"); exit if fork; for (1, 2) { $client = $listener->accept; sysread $client, $hello, 999;"
    " print $client \"HTTP/1.1 400 Bad Request\\r\\n\"; close $client }' >/dev/null 2>&1";

}  // namespace

TEST_F(Check, NamesTheCauseAndChangesNothing) {
  const std::string byCa = " -CA " LOCAL_PKI "/ca.pem -CAkey " LOCAL_PKI "/ca.key ";
  write("../../../big.der", certificate("-newkey rsa:3072 -nodes"));
  write("../../../expired.der", certificate("", byCa + "-clrext -days 0"));
  std::filesystem::rename(home / "made.pem", home / "expired.pem");
  EXPECT_NE(certificate(byCa), "");
  std::filesystem::rename(home / "made.pem", home / "nameless.pem");
  write("certificados/7.cer", certificate(issuedBy("Unknown")));
  write("orvix.log", std::string("not UTF-8: \xFF, ") + IDENTIFIER + "\n");
  for (const char* name : {"maquinaId", "maquinaIdDes"}) write(name, IDENTIFIER);
  output("cd; cp -R L*/*/Orvix good; mkdir late; cp -R L* late; cd late/L*/*/*; echo 3 >ambiente");
  // Its limit passes while the cases are tried.
  auto silent = localservice::listenerOptions(LOCAL_PKI, localservice::PRODUCTION_PORT + 1);
  silent.stall = std::chrono::hours(1);
  const localservice::BackgroundListener silence(silent, [](const std::string&) { return FILED; });
  const std::string waiting = LOCAL_CHECK " --timeout 2";
  const std::string onTerminal =
      "script -qc '" + waiting + "' /dev/null || script -q /dev/null " + waiting;
  std::FILE* const late = popen(("export HOME=~/late; " + onTerminal).c_str(), "r");
  // Nothing is denied to root.
  const std::string asUser =
      geteuid() != 0 ? "" : "setpriv --bounding-set=-dac_override,-dac_read_search ";
  const std::string everything = "tar cf - -C " + home.string() + " .";
  std::string reports;
  for (const auto& [codes, command, says, server, tool, version, stall] : std::vector<Case>{
           {""},
           {"home.missing ", "", "no folder /no\n", "", "env HOME=/no " LOCAL_CHECK},
           {"product-folder.missing ", "rm -r ../Orvix"},
           {"product-folder.denied ", "chmod 0 ."},
           {"product-folder.read-only ", "chmod 555 ."},
           {"environment.unknown machine-identifier.missing certificate-folder.missing "
            "log.missing ",
            "echo 9 >ambiente; rm -r maquinaId c* orvix.log", "says \"9\""},
           {"environment.no-number machine-identifier.empty certificate-folder.empty "
            "connection.failed ",
            "printf '\357\273\2772' >ambiente; echo >maquinaIdDes; rm c*/*", "\"???2\""},
           {"environment.not-a-file machine-identifier.unused-not-a-file "
            "machine-identifier.not-a-file certificate.not-a-file update-flag.pipe log.pipe ",
            "rm m* o*; mkfifo ambiente maquinaId maquinaIdDes certificados/8.cer atualizar "
            "orvix.log"},
           {"environment.denied machine-identifier.denied certificate-folder.denied "
            "update-flag.denied log.denied ",
            "touch ambiente atualizar; chmod 0 maquinaId a* c*; chmod 400 orvix.log"},
           {"machine-identifier.unprintable certificate.misnamed certificate.listed-twice "
            "certificate.expired certificate.damaged certificate.unusable-key "
            "certificate.too-large log.large ",
            "printf 'f00d\r\n' >maquinaId; head -c 11534336 /dev/zero >orvix.log; cd c*; cp 7.cer "
            "0042.cer; "
            "cp 7.cer 07.cer; cp ~/expired.der 1.cer; echo >2.cer; cp ~/big.der 3.cer; "
            "head -c 2000000 /dev/zero >8.cer",
            "counts as number 42,"},
           {"name-resolution.placeholder ", "", "", "", PRODUCT_CHECK},
           {"connection.failed ", "", "127.0.0.1: Connection refused", NOBODY},
           {"secure-channel.plain-http ", PLAIN_HTTP, "", NOBODY},
           {"secure-channel.certificate-untrusted ", "", "local issuer", home / "made.pem"},
           {"secure-channel.certificate-expired ", "", "", home / "expired.pem"},
           {"secure-channel.other-name ", "", "the name localhost", home / "nameless.pem"},
           {.codes = "secure-channel.refused ", .version = TLS1_3_VERSION},
           {.codes = "secure-channel.closed ", .stall = std::chrono::milliseconds(0)}}) {
    output("cd ~/Library/*; chmod -R u+rwX .; rm -rf Orvix; cp -R ~/good Orvix; cd Orvix; " +
           command);
    localservice::ListenerOptions options = SERVICE;
    options.minimumVersion = options.maximumVersion = version;
    options.stall = stall;
    if (!server.empty()) options.certificateFile = server, options.keyFile = USER_KEY;
    std::optional<ScriptedService> service;
    if (server != NOBODY) service.emplace(std::vector{FILED}, options);

    const auto before = output(everything);
    const auto [text, status] = output(asUser + tool);
    const auto [json, jsonStatus] = output(asUser + tool + " --json");
    reports += json;
    EXPECT_EQ(output(everything), before);
    EXPECT_TRUE(!service || service->requests.empty()) << "it sends nothing";
    EXPECT_THAT(text + json, testing::Not(HasSubstr(IDENTIFIER)));
    EXPECT_THAT(text, HasSubstr(says));
    EXPECT_FALSE(rapidjson::Document().Parse(json.c_str()).HasParseError()) << json;
    // Two notes depend on who runs the test, and where.
    static const std::regex NOT_OK(
        R"re("status": "(?:note|wrong)",\s+"code": "(?!user.root|notification)([^"]+)")re");
    EXPECT_EQ(std::regex_replace(json, NOT_OK, "$1 ", std::regex_constants::format_no_copy), codes);
    EXPECT_EQ(status, json.find("\"status\": \"wrong\"") == std::string::npos ? 0 : 1) << text;
    EXPECT_EQ(jsonStatus, status);
  }
  // Codes with their status, and fields with their type, are what the document promises.
  write("../../../reports", reports);
  EXPECT_EQ(output("cd " SOURCE_DIR R"sh(; {
    cat tools/brivasign_check/*.cpp | tr -s '\n ' ' ' | grep -oE 'Status::[A-Z]+, "[^"]+' |
      tr A-Z a-z | sed -E 's/.*::(.*), "(.*)/\2 \1/'
    sed -nE -e 's/^ *"([A-Za-z]+)": ".*/\1 string/p' -e 's/^ *"([A-Za-z]+)": -?[0-9].*/\1 number/p' \
      -e 's/^ *"([A-Za-z]+)": (true|false).*/\1 boolean/p' -e 's/^ *"([A-Za-z]+)": \[.*/\1 array/p' \
      -e 's/^ *"([A-Za-z]+)": \{.*/\1 object/p' ~/reports; } | sort -u)sh"),
            output("sed -nE 's/^\\| `(\\S+)` \\| ([a-z]+) \\|.*/\\1 \\2/p' " SOURCE_DIR
                   "/docs/diagnosis.md | sort -u"));
  std::string shown(1 << 16, ' ');
  shown.resize(std::fread(shown.data(), 1, shown.size(), late));
  EXPECT_EQ(pclose(late), 0);
  EXPECT_THAT(shown, HasSubstr("waiting up to 2 s for the handshake with localhost"));
  EXPECT_THAT(shown, HasSubstr("the handshake gets no answer within 2 s"));
  EXPECT_THAT(output("{ " LOCAL_CHECK " --colour; echo $?; [ -c /dev/full ] && exec >/dev/full ||"
                     " exec >&-; " LOCAL_CHECK "; } 2>&1"),
              testing::Pair(testing::MatchesRegex("brivasign-check-local: unknown .*--colour.*\n2\n"
                                                  "brivasign-check-local: cannot write to .*"),
                            2));
}

TEST(Identity, IsToldByTheCheckAndReadInTheModule) {
  const auto told = output(PRODUCT_CHECK " --version");
  EXPECT_EQ(told, output("LC_ALL=C grep -ao 'pkcs11-brivasign [0-9][ -~]*' " PRODUCT_MODULE));
  EXPECT_THAT(told.first, testing::MatchesRegex(
                              "pkcs11-brivasign 2\\.1\\.2, commit ([0-9a-f]{40}(-dirty)?|unknown), "
                              "[a-z]+-[a-z0-9_]+, OpenSSL 3\\.[^,]+, hosts development.*:443 .* "
                              "test\\.quorvent\\.invalid:443, 12 trust anchors\n"));
}
