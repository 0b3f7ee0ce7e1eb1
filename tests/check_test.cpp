#include <rapidjson/document.h>
#include <unistd.h>

#include <regex>

#include "support/service_test.h"

using testing::HasSubstr;

namespace {

constexpr const char* IDENTIFIER = "f00d-zebra";
const std::string DEAD_LINK = "is a link that leads nowhere";
constexpr const char* NOBODY = "nobody";
// All that lies in a product folder that cannot be used.
const std::string UNSEEN =
    "environment.unseen machine-identifier.unseen certificate-folder.unseen update-flag.unseen "
    "log.unseen ";

using Check = ModuleTest;

// A home and a server that are in order but for what a command of the shell changes.
struct Case {
  std::string codes;      // of all findings that are not ok, each with a blank behind it
  std::string command{};  // in the product folder
  std::string says{};     // parted by "#"
  std::string server{};   // the file of its certificate, or NOBODY
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
  write("../../../curve.der", certificate("-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"));
  write("../../../expired.der", certificate("", byCa + "-clrext -days 0"));
  std::filesystem::rename(home / "made.pem", home / "expired.pem");
  EXPECT_NE(certificate(byCa), "");
  std::filesystem::rename(home / "made.pem", home / "nameless.pem");
  write("certificados/7.cer", certificate(issuedBy("Unknown")));
  write("orvix.log", std::string("not UTF-8: \xFF, ") + IDENTIFIER + "\n");
  write("maquinaId", IDENTIFIER);
  write("maquinaIdDes", "f00d");
  output("cd; cp -R L*/*/Orvix good; mkdir late; cp -R L* late; cd late/L*/*/*; echo 3 >ambiente");
  // Its limit passes while the cases are tried.
  auto silent = localservice::listenerOptions(LOCAL_PKI, localservice::PRODUCTION_PORT + 1);
  silent.stall = std::chrono::hours(1);
  const localservice::BackgroundListener silence(silent, [](const std::string&) { return FILED; });
  const std::string waiting = LOCAL_CHECK " --timeout 2";
  const std::string onTerminal = "'stty cols 40; " + waiting + "'";
  const std::string script =
      "script -qc " + onTerminal + " /dev/null || script -q /dev/null sh -c " + onTerminal;
  std::FILE* const late = popen(("export HOME=~/late; " + script).c_str(), "r");
  // Nothing is denied to root.
  const std::string asUser =
      geteuid() != 0 ? "" : "setpriv --bounding-set=-dac_override,-dac_read_search ";
  const std::string everything = "tar cf - -C " + home.string() + " .";
  std::string reports;
  for (const auto& [codes, command, says, server, tool, version, stall] : std::vector<Case>{
           {""},
           {"home.missing product-folder.unseen " + UNSEEN, "", "no folder /no\n", "",
            "env HOME=/no " LOCAL_CHECK},
           {"home.not-a-folder product-folder.unseen " + UNSEEN, "", "/etc/passwd is no folder", "",
            "env HOME=/etc/passwd/home " LOCAL_CHECK},
           {"product-folder.missing " + UNSEEN, "rm -r ../Orvix"},
           {"product-folder.missing " + UNSEEN, "cd ..; rm -r Orvix; ln -s Orvix Orvix", DEAD_LINK},
           {"product-folder.denied " + UNSEEN, "chmod 0 ."},
           {"product-folder.denied " + UNSEEN,
            "cd ..; mkdir sec; mv Orvix sec; ln -s sec/Orvix .; chmod 0 sec",
            "sec/Orvix; #may not enter it\n#in the link's place"},
           {"product-folder.read-only ", "chmod 555 ."},
           {"environment.unknown machine-identifier.missing certificate-folder.missing "
            "log.missing ",
            "echo 9 >ambiente; rm -r maquinaId c* orvix.log", "says \"9\""},
           {"environment.no-number machine-identifier.empty certificate-folder.empty "
            "connection.failed secure-channel.unseen ",
            "printf '\357\273\2772' >ambiente; echo >maquinaIdDes; rm c*/*",
            "\"???2\" begins with a byte order mark#start local-signing-service"},
           {"environment.no-number machine-identifier.blank connection.failed "
            "secure-channel.unseen ",
            ": >ambiente; echo '  ' >maquinaIdDes",
            "ambiente: is empty#nothing but blanks#mend ambiente"},
           {"environment.not-a-file connection.failed secure-channel.unseen log.denied ",
            "mkdir ambiente; chmod 400 orvix.log",
            "counts as 0: development#(mode 400), and even so#may not write it#  | not"},
           {"environment.missing machine-identifier.missing certificate.missing "
            "update-flag.missing log.missing ",
            "for name in ambiente maquinaId certificados/8.cer atualizar orvix.log; do ln -sf no "
            "$name; done",
            "ambiente: " + DEAD_LINK + "#maquinaId: " + DEAD_LINK + "#orvix.log: " + DEAD_LINK},
           {"environment.too-large machine-identifier.blank ",
            "head -c 2000000 /dev/zero >ambiente; sed -i.old 's/^/ /' maquinaId; rm *.old",
            "may select any environment#begins or ends with a blank"},
           {"environment.not-a-file machine-identifier.unused-not-a-file "
            "machine-identifier.not-a-file certificate.not-a-file update-flag.pipe log.pipe ",
            "rm m* o*; mkfifo ambiente maquinaId maquinaIdDes certificados/8.cer atualizar "
            "orvix.log"},
           {"environment.denied machine-identifier.denied certificate-folder.denied "
            "update-flag.denied log.denied ",
            "ln -s maquinaId ambiente; touch atualizar; chmod 0 maquinaId at* c*; chmod 400 "
            "orvix.log",
            "ambiente: is a link to#/maquinaId, which belongs to"},
           {"machine-identifier.unprintable certificate.misnamed certificate.listed-twice "
            "certificate.expired certificate.damaged certificate.other-key-size "
            "certificate.unusable-key certificate.too-large log.large ",
            "printf 'f00d\r\n' >maquinaId; head -c 11534336 /dev/zero >orvix.log; cd c*; cp 7.cer "
            "0042.cer; cp 7.cer 07.cer; cp ~/expired.der 1.cer; echo -----BEGIN >2.cer; "
            "cp ~/big.der 3.cer; cp ~/curve.der 4.cer; head -c 2000000 /dev/zero >8.cer",
            "holds a carriage return#2.cer: is in PEM#has 3072 bits: only#"
            "for which \"42.cer\" is looked for"},
           {"name-resolution.placeholder connection.unseen secure-channel.unseen ", "", "", "",
            PRODUCT_CHECK},
           {"connection.failed secure-channel.unseen ", "", "127.0.0.1: Connection refused",
            NOBODY},
           {"secure-channel.plain-http ", PLAIN_HTTP, "", NOBODY},
           {"secure-channel.certificate-untrusted ", "", "local issuer", home / "made.pem"},
           {"secure-channel.certificate-expired ", "", "another host", home / "expired.pem"},
           {"secure-channel.other-name ", "", "the name localhost", home / "nameless.pem"},
           {.codes = "secure-channel.refused ", .says = "needs TLS 1.2", .version = TLS1_3_VERSION},
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
    EXPECT_THAT(text + json, testing::Not(HasSubstr("zebra")));
    std::istringstream all(says);
    for (std::string words; std::getline(all, words, '#');) EXPECT_THAT(text, HasSubstr(words));
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
  EXPECT_THAT(shown,
              HasSubstr("waiting up to 2 s for the handshake ...\r" + std::string(39, ' ') + "\r"));
  EXPECT_THAT(shown, HasSubstr("the handshake gets no answer within 2 s"));
  EXPECT_THAT(
      output(
          "for a in --colour --timeout --timeout=x2 '--json --version'; do " LOCAL_CHECK
          " $a; echo $?; done 2>&1; { [ -c /dev/full ] && exec >/dev/full || exec >&-; " LOCAL_CHECK
          "; } 2>&1"),
      testing::Pair(
          testing::MatchesRegex("brivasign-check-local: [^\n]* --colour;[^\n]*\n2\n"
                                "brivasign-check-local: --timeout: [^\n]* missing;[^\n]*\n2\n"
                                "brivasign-check-local: --timeout: \"x2\" is no [^\n]*\n2\n"
                                "brivasign-check-local: --json excludes --version;[^\n]*\n2\n"
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
