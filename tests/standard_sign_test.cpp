#include <atomic>
#include <cerrno>
#include <fstream>
#include <future>
#include <thread>

#include "local_signing_service/base64.h"
#include "support/standard_test.h"

// Signatures: what is asked of the service, what is made of its answers, and what never is.

using localservice::encodeBase64;
using localservice::Reply;

namespace {

constexpr CK_ULONG MARIA = 1001;

// What the log says where the application gets no signature.
const std::string CANCELED =
    "Retornando CKR_FUNCTION_CANCELED depois de receber 20 vezes AGUARDANDO.";
const std::string NO_MATCH = "A assinatura recebida nao confere com a chave do certificado.";

class StandardSign : public StandardTest {
 protected:
  StandardSign() {
    for (const std::string name : {"1001.cer", "1002.cer"}) {
      std::filesystem::copy_file(LOCAL_PKI "/users/" + name, folder / "certificados" / name);
    }
  }

  // Whether openssl finds `made` to be Maria's signature of "what is signed" with `hash`.
  bool verifies(const std::string& made, const std::string& hash, bool isPss) const {
    std::ofstream(home / "made") << made;
    return output("cd; printf '" + DATA + "' | openssl dgst -" + hash +
                  " -prverify " LOCAL_PKI "/users/1001.key -signature made " +
                  (isPss ? "-sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:-1" : ""))
               .second == 0;
  }

  // What the key of `user` makes of `data` with `hash`, by default under PKCS#1 v1.5.
  static std::string signatureOf(const std::string& data, const std::string& hash,
                                 const std::string& user = "1001", const std::string& sigopt = "") {
    return output("printf '" + data + "' | openssl dgst -" + hash + " -sign " LOCAL_PKI "/users/" +
                  user + ".key " + sigopt)
        .first;
  }

  inline static const std::string DATA = "what is signed";
  const CK_MECHANISM pkcs1 = {CKM_RSA_PKCS, nullptr, 0};
};

}  // namespace

TEST_F(StandardSign, EveryMechanismInOnePartAndInSeveral) {
  RealService service;
  using Row = std::tuple<std::string, CK_ULONG, CK_ULONG, CK_ULONG, CK_ULONG, CK_ULONG>;
  for (const auto& [hash, hashType, mask, length, plain, pss] :
       {Row{"sha1", CKM_SHA_1, 1, 20, 0x6, 0xE}, Row{"sha224", CKM_SHA224, 5, 28, 0x46, 0x47},
        Row{"sha256", CKM_SHA256, 2, 32, 0x40, 0x43}, Row{"sha384", CKM_SHA384, 3, 48, 0x41, 0x44},
        Row{"sha512", CKM_SHA512, 4, 64, 0x42, 0x45}}) {
    const std::string digest =
        output("printf '" + DATA + "' | openssl dgst -binary -" + hash).first;
    for (const CK_ULONG type : {plain, pss, CK_ULONG{CKM_RSA_PKCS_PSS}}) {
      const bool isPss = type != plain;
      const std::string& data = type == CKM_RSA_PKCS_PSS ? digest : DATA;
      for (const auto& parts :
           std::vector<std::vector<std::string>>{{data}, {data.substr(0, 3), "", data.substr(3)}}) {
        CK_RSA_PKCS_PSS_PARAMS parameters = {hashType, mask, length};
        std::string made(300, '\xEE');
        EXPECT_EQ(signParts({type, isPss ? &parameters : nullptr, isPss ? sizeof parameters : 0},
                            KEY + MARIA, parts, made),
                  CKR_OK);
        EXPECT_TRUE(verifies(made, hash, isPss)) << hash << ' ' << type;
      }
    }
  }
  std::string made(256, '\xEE');
  EXPECT_EQ(signParts(pkcs1, KEY + MARIA, {std::string(245, 'x')}, made), CKR_OK);
  std::ofstream(home / "made") << made;
  const std::string recover = "openssl pkeyutl -verifyrecover -inkey " LOCAL_PKI "/users/1001.key";
  EXPECT_EQ(output(recover + " -in ~/made").first, std::string(245, 'x'));
  EXPECT_EQ(logOfService(), Log());
}

TEST_F(StandardSign, NobodyIsAskedForWhatCannotBe) {
  ScriptedService service({FILED, REFUSED});
  run("good : [250,2,20]; mask : [250,1,20]; salt : [250,2,14]; large : [250,2,100000020];"
      "md5 : [210,1,10]");
  // Before the next one the failure has started nothing, and a call ends what is started then.
  run("% [D,mask,18] 800003E9 = 71; % [D,salt,18] 800003E9 = 71; % [D,large,18] 800003E9 = 71;"
      "% [D,md5,18] 800003E9 = 71; % [D] 800003E9 = 71; % [D,good,17] 800003E9 = 71;"
      "% [1,good,1] 800003E9 = 71; % [47,good,18] 800003E9 = 71; % [250] 800003E9 = 70;"
      "% [3] 800003E9 = 70; % [1] 3E9 = 60; % [1] 80000007 = 60; % [1] 1000003E9 = 68; % 0 1 = 7",
      "C_SignInit 1 [1] 800003E9 = 0; C_SignInit 1 [1] 800003E9 = 90; C_SignUpdate 1 0 1 = 7;"
      "C_SignInit 1");
  write("certificados/7.cer", certificate("-newkey rsa:512 -nodes -keyout /dev/null"));
  run("C_SignInit 1 [42] 80000007 = 62");
  using Row = std::pair<bool, std::vector<std::string>>;
  for (const auto& [isPss, parts] :
       {Row{false, {std::string(246, 'x')}}, Row{false, {std::string(245, 'x'), "y"}},
        Row{false, {""}}, Row{true, {std::string(31, 'x')}},
        Row{true, {std::string(32, 'x'), "y"}}}) {
    CK_RSA_PKCS_PSS_PARAMS good = {CKM_SHA256, CKG_MGF1_SHA256, 32};
    const CK_MECHANISM pss = {CKM_RSA_PKCS_PSS, &good, sizeof good};
    std::string made(256, '\xEE');
    EXPECT_EQ(signParts(isPss ? pss : pkcs1, KEY + MARIA, parts, made), CKR_DATA_LEN_RANGE);
    EXPECT_EQ(made, std::string(256, '\xEE'));
    EXPECT_EQ(p11->C_SignFinal(1, nullptr, nullptr), CKR_OPERATION_NOT_INITIALIZED);
  }
  EXPECT_EQ(service.requests.size(), 0U);
}

TEST_F(StandardSign, AQueryOfTheLengthAndTooSmallABufferChangeNothing) {
  std::string made(256, '\xEE');
  std::string data = DATA;
  pointers = {{"D", data.data()}, {"O", made.data()}};
  ScriptedService service({FILED, accepted(encodeBase64(signatureOf(DATA, "sha256")))});
  const std::string refused = "n : FF; % O &n = 150; n ? 100; % 0 &n = 0; n ? 100;";
  run("C_SignInit 1 [40] 800003E9 = 0;" + refused +
          "% O &n = 0; n ? 100; % O &n = 91;"
          "C_SignInit 1 [40] 800003E9 = 0; C_SignUpdate 1 D 4 = 0; % O &n = 91;"
          "C_SignInit 1 [40] 800003E9 = 0; C_SignUpdate 1 D 4 = 0",
      "C_Sign 1 D E");
  run(refused, "C_SignFinal 1");
  EXPECT_EQ(made, signatureOf(DATA, "sha256"));
  EXPECT_EQ(service.requests.size(), 2U);
  run("C_SignFinal 1 O 0 = 7; C_SignFinal 1 O &n = 91; C_SignInit 9 [40] 800003E9 = B3;"
      "C_SignInit 1 0 800003E9 = 7");
}

TEST_F(StandardSign, OnlyTheRightSignatureReachesTheCaller) {
  const std::string right = signatureOf(DATA, "sha256");
  const std::string mistyped = "Resposta do servico com um membro de tipo errado.";
  const std::string noId = R"({"numero":12})";
  std::string damaged = right;
  damaged[255] ^= 1;
  using Row = std::tuple<std::vector<Reply>, CK_RV, Log>;
  const auto fails = [](std::vector<Reply> script, Log lines) {
    return Row{std::move(script), CKR_DEVICE_ERROR, std::move(lines)};
  };
  std::vector<Row> rows = {
      {{FILED, accepted(encodeBase64(right))}, CKR_OK, {}},
      {{FILED, WAITING, accepted(encodeBase64(right))}, CKR_OK, {}},
      fails({FILED, accepted("*")}, {NO_MATCH}),
      {{FILED, REFUSED}, CKR_FUNCTION_REJECTED, {}},
      {{FILED, WAITING}, CKR_FUNCTION_CANCELED, {CANCELED}},
      fails({reply(R"({"id":"7"})")}, {mistyped}),
      fails({reply(R"({"id":7,"notificacaoEnviada":0})")}, {mistyped}),
      fails({FILED, reply(R"({"status":1,"desafioAssinado":""})")}, {mistyped}),
      fails({FILED, reply(R"({"status":"ACEITO","desafioAssinado":1})")}, {mistyped}),
      fails({reply(noId)}, {"JSON recebido nao veio com id:", noId, FILING_FAILED}),
      fails({FILED, reply("")}, {BAD_STATE, ""})};
  for (const std::string& bytes :
       {signatureOf(DATA, "sha256", "1002"), signatureOf(DATA, "sha1"),
        signatureOf(DATA + "!", "sha256"),
        signatureOf(DATA, "sha256", "1001", "-sigopt rsa_padding_mode:pss"), damaged,
        right.substr(0, 255), right + '\0', std::string(5'000, 'x'), std::string()}) {
    rows.push_back(fails({FILED, accepted(encodeBase64(bytes))}, {NO_MATCH}));
  }
  for (const auto& [script, result, lines] : rows) {
    std::filesystem::remove(folder / "orvix.log");
    ScriptedService service(script);
    std::string made(6'000, '\xEE');
    EXPECT_EQ(signParts({0x40, nullptr, 0}, KEY + MARIA, {DATA}, made), result);
    EXPECT_EQ(made, result == CKR_OK ? right : std::string(6'000, '\xEE'));
    EXPECT_EQ(logOfService(), lines);
    EXPECT_EQ(p11->C_SignFinal(1, nullptr, nullptr), CKR_OPERATION_NOT_INITIALIZED) << "it is over";
  }
}

// The sanitizer has the memory itself.
#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
// How many allocations of this thread still succeed before one fails; below 0 all do.
static thread_local long allocationsLeft = -1;

static bool isOut() {
  if (allocationsLeft < 0 || allocationsLeft-- != 0) return false;
  errno = ENOMEM;
  return true;
}
extern "C" void* __libc_malloc(std::size_t);          // NOLINT(bugprone-reserved*)
extern "C" void* __libc_realloc(void*, std::size_t);  // NOLINT(bugprone-reserved*)
void* malloc(std::size_t size) noexcept { return isOut() ? nullptr : __libc_malloc(size); }
void* realloc(void* memory, std::size_t size) noexcept {
  return isOut() ? nullptr : __libc_realloc(memory, size);
}

TEST_F(StandardSign, LackOfMemoryIsAResult) {
  const std::string right = signatureOf(DATA, "sha256");
  ScriptedService service({FILED, accepted(encodeBase64(right))});
  const std::string sha256 = output("printf '" + DATA + "' | openssl dgst -binary -sha256").first;
  std::string data = DATA;
  std::string made(256, '\xEE');
  pointers = {{"D", data.data()}, {"O", made.data()}};
  // What comes before the call, the call, what holds behind it, what the call has written, and the
  // most of failing allocations, behind which the TLS library itself does not look.
  using Row = std::tuple<std::string, std::string, std::string, std::string, long>;
  for (const auto& [before, text, after, written, most] : std::vector<Row>{
           {"", "C_OpenSession 1 4 0 0 &n", "n ? 2", "", 9999},
           {"", "C_FindObjectsInit 1 0 0", "C_FindObjects 1 O 20 &n = 0; n ? 6", "", 9999},
           {"", "C_GetAttributeValue 1 3E9 [110,O,8] 1", "", value(MARIA, CKA_START_DATE), 9999},
           {"", "C_SignInit 1 [40] 800003E9", "C_SignInit 1 [40] 800003E9 = 90", "", 9999},
           {"C_DigestInit 1 [250] = 0", "C_Digest 1 D E O &n", "", sha256, 9999},
           {"C_SignInit 1 [40] 800003E9 = 0", "C_Sign 1 D E O &n", "", right, 17}}) {
    bool isOver = false;
    for (long i = 0; !isOver && i < most; ++i) {
      SCOPED_TRACE(text + ' ' + std::to_string(i));
      run("C_Finalize = 0; C_Initialize = 0; C_OpenSession 1 4 0 0 &n = 0; n : 100");
      run(before);
      made.assign(256, '\xEE');
      const std::function<CK_RV()> invoke = prepared(text);
      allocationsLeft = i;
      const CK_RV result = invoke();
      isOver = std::exchange(allocationsLeft, -1) >= 0;
      if (result != CKR_OK) {
        EXPECT_TRUE(!isOver && result == CKR_HOST_MEMORY) << result;
        continue;
      }
      run(after);
      EXPECT_EQ(made.substr(0, written.size()), written);
    }
  }
}
#endif

TEST_F(StandardSign, TheServiceMustCarryTheHostsName) {
  EXPECT_NE(certificate("-CA " LOCAL_PKI "/ca.pem -CAkey " LOCAL_PKI "/ca.key"), "");
  options.certificateFile = home / "made.pem";
  options.keyFile = USER_KEY;
  ScriptedService service({FILED, accepted()}, options);
  std::string made(256, '\xEE');
  EXPECT_EQ(signParts(pkcs1, KEY + MARIA, {DATA}, made), CKR_DEVICE_ERROR);
  EXPECT_EQ(logOfService(),
            (Log{"O certificado do servico nao traz o nome do host.", FILING_FAILED}));
  EXPECT_EQ(service.requests.size(), 0U);
}

TEST_F(StandardSign, WhileTheUserIsAskedAllElseGoesOn) {
  const std::string right = signatureOf(DATA, "sha256");
  std::promise<void> both;
  std::atomic<int> asked = 0;
  std::atomic<bool> mayAnswer = false;
  // Request k is filed as number k; a query waits for the test.
  localservice::BackgroundListener listener(SERVICE, [&](const std::string& request) {
    if (!request.starts_with("POST")) {
      return mayAnswer ? accepted(encodeBase64(right))
                       : reply(R"({"status":"","desafioAssinado":""})");
    }
    const int id = ++asked;
    if (id == 2) both.set_value();
    return reply(R"({"id":)" + std::to_string(id) + R"(,"notificacaoEnviada":false})");
  });
  const auto signs = [&](CK_SESSION_HANDLE session) {
    return std::thread([&, session] {
      std::string made(256, '\xEE');
      EXPECT_EQ(signParts({0x40, nullptr, 0}, KEY + MARIA, {DATA}, made, session), CKR_OK);
      EXPECT_EQ(made, right);
    });
  };
  run("C_OpenSession 1 4 0 0 &n = 0; n ? 2");
  std::thread first = signs(1);
  std::thread second = signs(2);
  EXPECT_EQ(both.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready)
      << "each of two signatures with one key is a request of its own";
  // In a session whose signature waits, too.
  EXPECT_EQ(find().size(), 6U);
  EXPECT_EQ(value(MARIA, CKA_ID), number(MARIA));
  run("C_SignInit 1 [1] 800003E9 = 90; C_CloseSession 2 = 0; C_Finalize = 0; C_Initialize = 0; "
      "C_OpenSession 1 4 0 0 &n = 0");
  mayAnswer = true;
  first.join();
  second.join();
}
