#include <openssl/evp.h>

#include <condition_variable>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include "support/standard_test.h"

// Signatures: what is asked of the service, what is made of its answers, and what never is.

using localservice::Reply;

namespace {

constexpr CK_ULONG MARIA = 1001;

// What the log says where a signature is refused to the application.
const std::string NO_MATCH = "A assinatura recebida nao confere com a chave do certificado.";

std::string base64(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
  return text.substr(0, static_cast<std::size_t>(length));
}

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
    std::ofstream(home / "data") << DATA;
    const std::string command =
        "cd " + home.string() +
        "; openssl x509 -in " LOCAL_PKI "/users/1001.pem -noout -pubkey >k;" + "openssl dgst -" +
        hash + " -verify k -signature made " +
        (isPss ? "-sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:-1 data" : "data");
    return output(command).second == 0;
  }

  // What the key of `user` makes of `data` with `hash`, by default under PKCS#1 v1.5.
  std::string signatureOf(const std::string& data, const std::string& hash,
                          const std::string& user = "1001", const std::string& sigopt = "") const {
    std::ofstream(home / "data") << data;
    return output("openssl dgst -" + hash + " -sign " LOCAL_PKI "/users/" + user + ".key " +
                  sigopt + " " + (home / "data").string())
        .first;
  }

  CK_RV init(CK_MECHANISM mechanism, CK_OBJECT_HANDLE key = KEY + MARIA) const {
    return p11->C_SignInit(1, &mechanism, key);
  }

  inline static const std::string DATA = "what is signed";
  const CK_MECHANISM pkcs1 = {CKM_RSA_PKCS, nullptr, 0};
};

struct Hash {
  std::string name;
  CK_ULONG type, mask, length, pkcs1, pss;
};
const std::vector<Hash> HASHES = {{"sha1", CKM_SHA_1, 1, 20, 0x6, 0xE},
                                  {"sha224", CKM_SHA224, 5, 28, 0x46, 0x47},
                                  {"sha256", CKM_SHA256, 2, 32, 0x40, 0x43},
                                  {"sha384", CKM_SHA384, 3, 48, 0x41, 0x44},
                                  {"sha512", CKM_SHA512, 4, 64, 0x42, 0x45}};

}  // namespace

TEST_F(StandardSign, EveryMechanismInOnePartAndInSeveral) {
  RealService service;
  for (const Hash& hash : HASHES) {
    const std::string digest =
        output("printf '" + DATA + "' | openssl dgst -binary -" + hash.name).first;
    for (const CK_ULONG type : {hash.pkcs1, hash.pss, CK_ULONG{CKM_RSA_PKCS_PSS}}) {
      const bool isPss = type != hash.pkcs1;
      const std::string& data = type == CKM_RSA_PKCS_PSS ? digest : DATA;
      for (const auto& parts :
           std::vector<std::vector<std::string>>{{data}, {data.substr(0, 3), "", data.substr(3)}}) {
        CK_RSA_PKCS_PSS_PARAMS parameters = {hash.type, hash.mask, hash.length};
        std::string made(300, '\xEE');
        EXPECT_EQ(signParts({type, isPss ? &parameters : nullptr, isPss ? sizeof parameters : 0},
                            KEY + MARIA, parts, made),
                  CKR_OK);
        EXPECT_TRUE(verifies(made, hash.name, isPss)) << hash.name << ' ' << type;
      }
    }
  }
  std::string made(256, '\xEE');
  EXPECT_EQ(signParts(pkcs1, KEY + MARIA, {std::string(245, 'x')}, made), CKR_OK);
  std::ofstream(home / "made") << made;
  EXPECT_EQ(
      output("openssl pkeyutl -verifyrecover -certin -inkey " LOCAL_PKI "/users/1001.pem -in " +
             (home / "made").string())
          .first,
      std::string(245, 'x'));
  EXPECT_EQ(logOfService(), Log());
}

TEST_F(StandardSign, NobodyIsAskedForWhatCannotBe) {
  ScriptedService service({FILED, REFUSED});
  CK_RSA_PKCS_PSS_PARAMS good = {CKM_SHA256, CKG_MGF1_SHA256, 32};
  CK_RSA_PKCS_PSS_PARAMS bad[] = {{CKM_SHA256, CKG_MGF1_SHA1, 32},
                                  {CKM_SHA256, CKG_MGF1_SHA256, 20},
                                  {CKM_SHA256, CKG_MGF1_SHA256, 0x100000020},
                                  {CKM_MD5, CKG_MGF1_SHA1, 16}};
  for (CK_RSA_PKCS_PSS_PARAMS& parameters : bad) {
    EXPECT_EQ(init({CKM_RSA_PKCS_PSS, &parameters, sizeof good}), CKR_MECHANISM_PARAM_INVALID);
  }
  using Row = std::tuple<CK_MECHANISM, CK_OBJECT_HANDLE, CK_RV>;
  for (const auto& [mechanism, key, result] :
       std::vector<Row>{{{CKM_RSA_PKCS_PSS, nullptr, 0}, KEY + MARIA, CKR_MECHANISM_PARAM_INVALID},
                        {{CKM_RSA_PKCS_PSS, &good, 23}, KEY + MARIA, CKR_MECHANISM_PARAM_INVALID},
                        {{CKM_RSA_PKCS, &good, 1}, KEY + MARIA, CKR_MECHANISM_PARAM_INVALID},
                        {{0x47, &good, sizeof good}, KEY + MARIA, CKR_MECHANISM_PARAM_INVALID},
                        {{CKM_SHA256, nullptr, 0}, KEY + MARIA, CKR_MECHANISM_INVALID},
                        {{CKM_RSA_X_509, nullptr, 0}, KEY + MARIA, CKR_MECHANISM_INVALID},
                        {pkcs1, MARIA, CKR_KEY_HANDLE_INVALID},
                        {pkcs1, KEY + 7, CKR_KEY_HANDLE_INVALID},
                        {pkcs1, PUBLIC + MARIA, CKR_KEY_FUNCTION_NOT_PERMITTED}}) {
    EXPECT_EQ(init(mechanism, key), result) << mechanism.mechanism;
    EXPECT_EQ(init(pkcs1), CKR_OK) << "the failure has started nothing";
    EXPECT_EQ(init(pkcs1), CKR_OPERATION_ACTIVE);
    EXPECT_EQ(p11->C_SignUpdate(1, nullptr, 1), CKR_ARGUMENTS_BAD) << "and this ends it";
  }
  write("certificados/7.cer", certificate("-newkey rsa:512 -nodes -keyout /dev/null"));
  EXPECT_EQ(init({0x42, nullptr, 0}, KEY + 7), CKR_KEY_SIZE_RANGE);
  for (const auto& [mechanism, parts] :
       std::vector<std::pair<CK_MECHANISM, std::vector<std::string>>>{
           {pkcs1, {std::string(246, 'x')}},
           {pkcs1, {std::string(245, 'x'), "y"}},
           {pkcs1, {""}},
           {{CKM_RSA_PKCS_PSS, &good, sizeof good}, {std::string(31, 'x')}},
           {{CKM_RSA_PKCS_PSS, &good, sizeof good}, {std::string(32, 'x'), "y"}}}) {
    good = {CKM_SHA256, CKG_MGF1_SHA256, 32};
    std::string made(256, '\xEE');
    EXPECT_EQ(signParts(mechanism, KEY + MARIA, parts, made), CKR_DATA_LEN_RANGE);
    EXPECT_EQ(made, std::string(256, '\xEE'));
    EXPECT_EQ(p11->C_SignFinal(1, nullptr, nullptr), CKR_OPERATION_NOT_INITIALIZED);
  }
  EXPECT_EQ(service.requests.size(), 0U);
}

TEST_F(StandardSign, AQueryOfTheLengthAndTooSmallABufferChangeNothing) {
  std::string made(256, '\xEE');
  std::string data = DATA;
  CK_MECHANISM sha256 = {0x40, nullptr, 0};
  pointers = {{"M", &sha256}, {"D", data.data()}, {"O", made.data()}};
  const std::string refused = "n : FF; C_Sign% O &n = 150; n ? 100; C_Sign% 0 &n = 0; n ? 100;";
  const auto with = [](std::string text, const std::string& arguments) {
    for (std::size_t i = 0; (i = text.find('%')) != std::string::npos;)
      text.replace(i, 1, arguments);
    return text;
  };
  ScriptedService service({FILED, accepted(base64(signatureOf(DATA, "sha256")))});
  run("C_SignInit 1 M 800003E9 = 0;" + with(refused, " 1 D E") + "C_Sign 1 D E O &n = 0; n ? 100;" +
      "C_Sign 1 D E O &n = 91; C_SignInit 1 M 800003E9 = 0; C_SignUpdate 1 D 4 = 0;" +
      "C_Sign 1 D E O &n = 91; C_SignInit 1 M 800003E9 = 0; C_SignUpdate 1 D 4 = 0; " +
      with(refused, "Final 1"));
  EXPECT_EQ(made, signatureOf(DATA, "sha256"));
  EXPECT_EQ(service.requests.size(), 2U);
  run("C_SignFinal 1 O 0 = 7; C_SignFinal 1 O &n = 91; C_SignInit 9 M 800003E9 = B3;"
      "C_SignInit 1 0 800003E9 = 7");
}

TEST_F(StandardSign, OnlyTheRightSignatureReachesTheCaller) {
  const std::string right = signatureOf(DATA, "sha256");
  const std::string mistyped = "Resposta do servico com um membro de tipo errado.";
  const std::string noId = R"({"numero":12})";
  std::string damaged = right;
  damaged[255] ^= 1;
  using Row = std::tuple<std::vector<Reply>, CK_RV, Log>;
  const auto gives = [](const std::string& bytes) {
    return Row{{FILED, accepted(base64(bytes))}, CKR_DEVICE_ERROR, {NO_MATCH}};
  };
  for (const auto& [script, result, lines] : std::vector<Row>{
           {{FILED, accepted(base64(right))}, CKR_OK, {}},
           {{FILED, WAITING, accepted(base64(right))}, CKR_OK, {}},
           gives(signatureOf(DATA, "sha256", "1002")),
           gives(signatureOf(DATA, "sha1")),
           gives(signatureOf(DATA + "!", "sha256")),
           gives(signatureOf(DATA, "sha256", "1001", "-sigopt rsa_padding_mode:pss")),
           gives(damaged),
           gives(right.substr(0, 255)),
           gives(right + '\0'),
           gives(std::string(5'000, 'x')),
           gives(""),
           {{FILED, accepted("*")}, CKR_DEVICE_ERROR, {NO_MATCH}},
           {{FILED, REFUSED}, CKR_FUNCTION_REJECTED, {}},
           {{FILED, WAITING},
            CKR_FUNCTION_CANCELED,
            {"Retornando CKR_FUNCTION_CANCELED depois de receber 20 vezes AGUARDANDO."}},
           {{reply(R"({"id":"7"})")}, CKR_DEVICE_ERROR, {mistyped}},
           {{reply(R"({"id":7,"notificacaoEnviada":0})")}, CKR_DEVICE_ERROR, {mistyped}},
           {{FILED, reply(R"({"status":1,"desafioAssinado":""})")}, CKR_DEVICE_ERROR, {mistyped}},
           {{FILED, reply(R"({"status":"ACEITO","desafioAssinado":1})")},
            CKR_DEVICE_ERROR,
            {mistyped}},
           {{reply(noId)},
            CKR_DEVICE_ERROR,
            {"JSON recebido nao veio com id:", noId, FILING_FAILED}},
           {{FILED, reply("")}, CKR_DEVICE_ERROR, {BAD_STATE, ""}}}) {
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

static bool isOut() { return allocationsLeft >= 0 && allocationsLeft-- == 0; }
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl*)
extern "C" void* __libc_malloc(std::size_t);
extern "C" void* __libc_realloc(void*, std::size_t);
void* malloc(std::size_t size) noexcept { return isOut() ? nullptr : __libc_malloc(size); }
void* realloc(void* memory, std::size_t size) noexcept {
  return isOut() ? nullptr : __libc_realloc(memory, size);
}
// NOLINTEND

TEST_F(StandardSign, LackOfMemoryIsAResult) {
  const std::string right = signatureOf(DATA, "sha256");
  ScriptedService service({FILED, accepted(base64(right))});
  std::string data = DATA;
  std::string made;
  CK_ULONG length = 256;
  CK_MECHANISM sign = {0x40, nullptr, 0};
  CK_MECHANISM digest = {CKM_SHA256, nullptr, 0};
  pointers = {{"sign", &sign}, {"digest", &digest}};
  CK_ATTRIBUTE attribute = {CKA_START_DATE, nullptr, 0};
  struct Row {
    std::string before;
    std::function<CK_RV()> call;
    std::function<bool()> isRight;
    long most;  // of failing allocations, behind which the TLS library itself does not look
  };
  for (const Row& row : std::vector<Row>{
           {"", [&] { return p11->C_OpenSession(1, 4, nullptr, nullptr, &length); },
            [&] { return length == 2; }, 9999},
           {"", [&] { return p11->C_FindObjectsInit(1, nullptr, 0); },
            [&] { return p11->C_FindObjectsFinal(1) == CKR_OK && find().size() == 6; }, 9999},
           {"", [&] { return p11->C_GetAttributeValue(1, MARIA, &attribute, 1); },
            [&] { return attribute.ulValueLen == 8; }, 9999},
           {"", [&] { return init(sign); }, [&] { return init(sign) == CKR_OPERATION_ACTIVE; },
            9999},
           {"C_DigestInit 1 digest = 0",
            [&] { return p11->C_Digest(1, bytes(data), data.size(), bytes(made), &length); },
            [&] {
              return made.substr(0, 32) ==
                     output("printf '" + DATA + "' | openssl dgst -binary -sha256").first;
            },
            9999},
           {"C_SignInit 1 sign 800003E9 = 0",
            [&] { return p11->C_Sign(1, bytes(data), data.size(), bytes(made), &length); },
            [&] { return made == right; }, 17}}) {
    bool isOver = false;
    for (long i = 0; !isOver && i < row.most; ++i) {
      run("C_Finalize = 0; C_Initialize = 0; C_OpenSession 1 4 0 0 &n = 0");
      if (!row.before.empty()) run(row.before);
      made.assign(256, '\xEE');
      length = 256;
      allocationsLeft = i;
      const CK_RV result = row.call();
      isOver = std::exchange(allocationsLeft, -1) >= 0;
      EXPECT_TRUE(result == CKR_OK ? row.isRight() : !isOver && result == CKR_HOST_MEMORY)
          << row.before << ' ' << i << ' ' << result;
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
  std::mutex mutex;
  std::condition_variable changed;
  int asked = 0;
  bool mayAnswer = false;
  // Request k is filed as number k; a query waits for the test.
  localservice::BackgroundListener listener(SERVICE, [&](const std::string& request) {
    const std::scoped_lock lock(mutex);
    if (request.starts_with("POST")) {
      ++asked;
      changed.notify_all();
      return reply(R"({"id":)" + std::to_string(asked) + R"(,"notificacaoEnviada":false})");
    }
    return mayAnswer ? accepted(base64(right)) : reply(R"({"status":"","desafioAssinado":""})");
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
  {
    std::unique_lock lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(10), [&] { return asked == 2; }))
        << "each of two signatures with one key is a request of its own";
  }
  // In a session whose signature waits, too.
  EXPECT_EQ(find().size(), 6U);
  EXPECT_EQ(value(MARIA, CKA_ID), number(MARIA));
  EXPECT_EQ(init(pkcs1), CKR_OPERATION_ACTIVE);
  run("C_CloseSession 2 = 0; C_Finalize = 0; C_Initialize = 0; C_OpenSession 1 4 0 0 &n = 0");
  {
    const std::scoped_lock lock(mutex);
    mayAnswer = true;
  }
  first.join();
  second.join();
}
