#include <unistd.h>

#include <csignal>
#include <fstream>
#include <tuple>

#include "support/service_test.h"

// The exact bytes that the service receives, and what its replies do beside the signature.

namespace {

class Wire : public ServiceTest {
 protected:
  Wire() {
    write("maquinaId", "MACHINE-1\nsecond line");
    setenv("PATH", (home.string() + ":" + getenv("PATH")).c_str(), 1);
    std::ofstream(home / "osascript") << "#!/bin/sh\nprintf '%s|' \"$@\" >>\"$HOME/shown\"\n";
    std::filesystem::permissions(home / "osascript", std::filesystem::perms::owner_all);
  }

  // The request that files `base64`, with the members `names` behind the usual four.
  [[nodiscard]] std::string filing(const std::string& path, const std::string& machineId,
                                   const std::string& id, const std::string& base64,
                                   const std::string& names = "") const {
    const std::string body = R"({"certificadoId":)" + id + R"(,"desafio":")" + base64 +
                             R"(","pid":")" + std::to_string(getpid()) + R"(","executavel":")" +
                             executable.substr(executable.rfind('/') + 1) + '"' + names + '}';
    return "POST /brivasign-api/api/" + path +
           "drivers/assinatura HTTP/1.1\r\nHost: localhost\r\n" +
           "Content-Type: application/json\r\nX-BRIVASIGN-UUID: " + machineId +
           "\r\nx-app-version: 2.1.2\r\nx-app-so: MACOS_64\r\nConnection: close\r\n" +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body + "\r\n";
  }
};

}  // namespace

TEST_F(Wire, RequestsWithAndWithoutPssParameters) {
  std::string digest;
  for (char i = 1; i <= 32; ++i) digest.push_back(i);
  const std::string base64 = "AQIDBAUGBwgJCgsMDQ4PEBESExQVFhcYGRobHB0eHyA=";
  const std::string saltAsLong = R"(,"tipoPadding":"PSS_SALT_LEN_MD")";
  const std::string other = R"(,"tipoPadding":"PSS")";
  using Row = std::tuple<CK_ULONG, CK_ULONG, std::string, std::string, std::string>;
  std::size_t count = 0;
  for (const auto& [hash, saltLen, data, encoded, names] : std::vector<Row>{
           {0x250, 32, digest, base64, R"(,"algoritmoHash":"SHA2_256")" + saltAsLong},
           {0x255, 20, digest, base64, R"(,"algoritmoHash":"SHA2_224")" + other},
           {0x260, 0x100000020, digest, base64, R"(,"algoritmoHash":"SHA2_384")" + other},
           {0x270, 0, digest, base64, R"(,"algoritmoHash":"SHA2_512")" + other},
           {0x210, 1, "a", "YQ==", R"(,"algoritmoHash":"MD5")" + saltAsLong},
           {0x220, 2, "ab", "YWI=", R"(,"algoritmoHash":"SHA1")" + saltAsLong},
           {0x100000250, 2, "abc", "YWJj", R"(,"algoritmoHash":"SHA1")" + other},
           {0, 0, "abc", "YWJj", ""}}) {
    CK_RSA_PKCS_PSS_PARAMS parameters = {hash, CKG_MGF1_SHA1, 99};
    CK_MECHANISM mechanism = {CKM_RSA_PKCS_PSS, hash == 0 ? nullptr : &parameters, 1};
    ASSERT_EQ(p11->C_SignInit(1, &mechanism, 0x200000005), CKR_OK);
    parameters.sLen = saltLen;  // kept by reference
    const std::string machineId = "MACHINE-" + std::to_string(count);
    write("maquinaId", machineId + "\nsecond line");
    ScriptedService service({reply(R"({"id":-77,"notificacaoEnviada":false})"), REFUSED});
    ASSERT_EQ(signOnly(data), CKR_FUNCTION_CANCELED);
    ASSERT_EQ(service.requests.size(), 2U);
    EXPECT_EQ(service.requests[0],
              filing(hash == 0 ? "" : "v2/", machineId, "-2147483643", encoded, names));
    EXPECT_EQ(service.requests[1],
              "GET /brivasign-api/api/drivers/assinatura/-77 HTTP/1.1\r\nHost: localhost\r\n"
              "Content-Type: application/json\r\nCache-Control: no-cache\r\nConnection: close\r\n"
              "X-BRIVASIGN-UUID: " +
                  machineId + "\r\n\r\n");
    EXPECT_EQ(log(), std::vector<std::string>(++count, executable));
  }
}

TEST_F(Wire, ALengthQueryAndASignFinalDropTheParameters) {
  run("pss : [250,2,4]");
  for (const std::string drops : {"C_Sign 1 &byte 1 0 &n = 0; n ? 100", "C_SignFinal 9 = B3",
                                  "C_Finalize = 0; C_SignFinal = 190; C_Initialize = 0"}) {
    run("C_SignInit 1 [D,pss,18] 80000007 = 0; " + drops);
    ScriptedService service({FILED, REFUSED});
    EXPECT_EQ(signOnly("data"), CKR_FUNCTION_CANCELED);
    EXPECT_EQ(service.requests.at(0), filing("", "MACHINE-1", "7", "ZGF0YQ=="));
  }
}

TEST_F(Wire, NoLengthIsCut) {
  const std::string machineId(10'000, 'm');
  write("maquinaId", machineId + "\r\n");
  ScriptedService service({FILED, REFUSED});
  EXPECT_EQ(sign(std::string(99'999, 'x')), CKR_FUNCTION_CANCELED);
  std::string base64;
  for (int i = 0; i < 33'333; ++i) base64 += "eHh4";
  EXPECT_EQ(service.requests.at(0), filing("", machineId + "\r", "7", base64));
}

TEST_F(Wire, EnvironmentAndMachineIdentifierAreReadForEachSignature) {
  write("maquinaIdDes", "D");
  write("maquinaIdHom", "\tH ");
  // Environment, machine identifier and a content that leads there; "-": no file, "/": a directory.
  using Row = std::tuple<std::uint16_t, std::string, std::vector<std::string>>;
  for (const auto& [index, machineId, contents] :
       {Row{2, "MACHINE-1", {"-", "2\r\n", "4", "-1"}},
        Row{0, "D", {"/", "", "x1", "\357\273\2772"}}, Row{1, "\tH ", {"1", " +1.9\n2\n"}},
        Row{3, "", {"3 test"}}}) {
    for (const std::string& content : contents) {
      std::filesystem::remove_all(folder / "ambiente");
      if (content == "/") std::filesystem::create_directory(folder / "ambiente");
      if (content != "/" && content != "-") write("ambiente", content);
      const auto port = static_cast<std::uint16_t>(localservice::FIRST_PORT + index);
      ScriptedService service({FILED, REFUSED}, localservice::listenerOptions(LOCAL_PKI, port));
      EXPECT_EQ(sign(), CKR_FUNCTION_CANCELED) << content;
      EXPECT_THAT(service.requests.at(0),
                  testing::HasSubstr("X-BRIVASIGN-UUID: " + machineId + "\r\n"));
    }
  }
  EXPECT_EQ(logOfService(), Log(2, "valor invalido para ambiente, usando valor 2 (producao)"));
}

TEST_F(Wire, UpdateFlagAndNotification) {
  const std::string update = "x-app-update-available: true";
  const std::string quiet = R"({"id":77,"notificacaoEnviada":false})";
  using Row = std::tuple<localservice::Reply, bool, bool>;  // updates, notifies
  for (const auto& [filed, updates, notifies] :
       {Row{FILED, false, false}, Row{reply(quiet, update + "\r\n"), true, false},
        Row{reply(quiet, update + "ish\r\n"), true, false},
        Row{reply(quiet, "X-App-Update-Available: true\r\n"), false, false},
        Row{reply(quiet, " " + update + "\r\n"), false, false},
        // Not JSON, but announced: at the head of a line or of what follows 2,999 bytes of it.
        Row{reply("\n" + update), true, false},
        Row{reply(std::string(2'999, ' ') + update), true, false},
        Row{reply(std::string(2'998, ' ') + update), false, false},
        Row{reply(R"({"id":77})"), false, true}, Row{reply(R"({"id":0})"), false, true},
        Row{reply(R"({"notificacaoEnviada":true,"id":-5})"), false, true},
        Row{{.bytes = "HTTP/1.1 500 Internal Server Error\r\n\r\n{\"id\":12}"}, false, true}}) {
    std::filesystem::remove(home / "shown");
    write("atualizar", "an older and longer text");
    ScriptedService service({filed, reply(quiet, update + "\r\n")});
    sign();
    EXPECT_EQ(read("atualizar"), updates ? "1" : "an older and longer text") << filed.bytes;
    EXPECT_EQ(read("../../../shown"),
              notifies ? "-e|display notification \"Foi enviado um pedido de PIN para o seu "
                         "dispositivo.\" with title \"Quorvent\"|"
                       : "");
  }
}

TEST_F(Wire, NotificationThatCannotRunIsLogged) {
  signal(SIGCHLD, SIG_IGN);  // then the command's end cannot be waited for
  ScriptedService service({reply(R"({"id":77})"), REFUSED});
  EXPECT_EQ(sign(), CKR_FUNCTION_CANCELED);
  EXPECT_EQ(logOfService(), (Log{"Problema ao exibir mensagem: -1", "unstamped: "}));
}
