#include <openssl/evp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <thread>

#include "support/standard_test.h"

// Many threads at once, none of which waits for another or gets what is another's. The thread
// sanitizer watches in the build of the preset `threads`.

namespace fs = std::filesystem;

namespace {

constexpr auto DURATION = std::chrono::seconds(3);
constexpr CK_ULONG MARIA = 1001;
constexpr CK_ULONG JOAO = 1002;
constexpr CK_ULONG GUEST = 7;

class Threads : public StandardTest {
 protected:
  Threads() {
    for (const CK_ULONG id : {MARIA, JOAO}) {
      const std::string name = std::to_string(id) + ".cer";
      fs::copy_file(LOCAL_PKI "/users/" + name, folder / "certificados" / name);
      EXPECT_EQ(signParts({CKM_RSA_PKCS, nullptr, 0}, KEY + id, {DATA}, expected[id]), CKR_OK);
    }
  }

  // Does all that an application does in a session of its own with the key of `id`.
  void visit(CK_ULONG id) {
    CK_SESSION_HANDLE session = 0;
    ASSERT_EQ(p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
    const std::vector<CK_OBJECT_HANDLE> keys =
        find({{CKA_CLASS, number(CKO_PRIVATE_KEY)}, {CKA_ID, number(id)}}, 1, session);
    EXPECT_EQ(keys, std::vector{KEY + id});
    EXPECT_EQ(value(id, CKA_SUBJECT, session), value(PUBLIC + id, CKA_SUBJECT, session));
    EXPECT_GE(find({}, 2, session).size(), 6U);
    std::string made(256, '\0');
    EXPECT_EQ(signParts({CKM_RSA_PKCS, nullptr, 0}, keys.at(0), {DATA}, made, session), CKR_OK);
    EXPECT_EQ(made, expected.at(id)) << "a signature of another key";
    std::string digest(32, '\0');
    CK_MECHANISM sha256 = {CKM_SHA256, nullptr, 0};
    EXPECT_EQ(p11->C_DigestInit(session, &sha256), CKR_OK);
    EXPECT_EQ(p11->C_DigestUpdate(session, data(), 3), CKR_OK);
    CK_ULONG length = digest.size();
    EXPECT_EQ(p11->C_DigestFinal(session, reinterpret_cast<CK_BYTE_PTR>(digest.data()), &length),
              CKR_OK);
    EXPECT_EQ(p11->C_CloseSession(session), CKR_OK);
  }

  static CK_BYTE_PTR data() {
    return reinterpret_cast<CK_BYTE_PTR>(const_cast<char*>(DATA.data()));
  }

  inline static const std::string DATA = "what is signed";
  RealService service;
  std::map<CK_ULONG, std::string> expected = {{MARIA, std::string(256, '\0')},
                                              {JOAO, std::string(256, '\0')}};
};

}  // namespace

TEST_F(Threads, EachGetsWhatItAsksFor) {
  const std::string guest = certificate("-subj /CN=Guest");
  const auto end = std::chrono::steady_clock::now() + DURATION;
  std::vector<std::thread> threads;
  std::atomic<int> visits = 0;
  const auto start = [&](const std::function<void()>& work) {
    threads.emplace_back([&, work] {
      while (std::chrono::steady_clock::now() < end) work();
    });
  };
  for (int i = 0; i < 8; ++i) start([&, i] { visit(i % 2 == 0 ? MARIA : JOAO), ++visits; });
  // All use one session for what does not touch its operations, and read what comes and goes.
  start([&] {
    CK_TOKEN_INFO token = {};
    EXPECT_EQ(p11->C_GetTokenInfo(1, &token), CKR_OK);
    EXPECT_LE(token.ulSessionCount, 10U);
    CK_ATTRIBUTE subject = {CKA_SUBJECT, nullptr, 0};
    EXPECT_THAT(p11->C_GetAttributeValue(1, GUEST, &subject, 1),
                testing::AnyOf(CKR_OK, CKR_OBJECT_HANDLE_INVALID));
    const CK_RV login = p11->C_Login(1, CKU_USER, nullptr, 0);
    EXPECT_THAT(login, testing::AnyOf(CKR_OK, CKR_USER_ALREADY_LOGGED_IN));
    p11->C_Logout(1);
  });
  start([&] {
    write("certificados/7.cer", guest);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    fs::remove(folder / "certificados/7.cer");
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_GE(visits, 8);
}

TEST_F(Threads, OneSessionIsSharedWithoutHarm) {
  const auto end = std::chrono::steady_clock::now() + DURATION / 3;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      const auto isOneOf = [](CK_RV result, CK_RV other) {
        EXPECT_THAT(result, testing::AnyOf(CKR_OK, other));
      };
      while (std::chrono::steady_clock::now() < end) {
        CK_OBJECT_HANDLE handle = 0;
        CK_ULONG count = 0;
        isOneOf(p11->C_FindObjectsInit(1, nullptr, 0), CKR_OPERATION_ACTIVE);
        isOneOf(p11->C_FindObjects(1, &handle, 1, &count), CKR_OPERATION_NOT_INITIALIZED);
        isOneOf(p11->C_FindObjectsFinal(1), CKR_OPERATION_NOT_INITIALIZED);
        CK_MECHANISM rsa = {CKM_RSA_PKCS, nullptr, 0};
        isOneOf(p11->C_SignInit(1, &rsa, KEY + MARIA), CKR_OPERATION_ACTIVE);
        std::string made(256, '\0');
        CK_ULONG length = made.size();
        const CK_RV result = p11->C_Sign(1, data(), DATA.size(),
                                         reinterpret_cast<CK_BYTE_PTR>(made.data()), &length);
        isOneOf(result, CKR_OPERATION_NOT_INITIALIZED);
        EXPECT_TRUE(result != CKR_OK || made == expected.at(MARIA));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(Threads, TheLibraryMayBeFinalizedUnderThem) {
  const auto end = std::chrono::steady_clock::now() + DURATION / 3;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      while (std::chrono::steady_clock::now() < end) {
        CK_SESSION_HANDLE session = 0;
        CK_MECHANISM rsa = {CKM_RSA_PKCS, nullptr, 0};
        std::string made(256, '\0');
        CK_ULONG length = made.size();
        p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
        p11->C_FindObjectsInit(session, nullptr, 0);
        p11->C_SignInit(session, &rsa, KEY + JOAO);
        const CK_RV result = p11->C_Sign(session, data(), DATA.size(),
                                         reinterpret_cast<CK_BYTE_PTR>(made.data()), &length);
        EXPECT_THAT(result,
                    testing::AnyOf(CKR_OK, CKR_CRYPTOKI_NOT_INITIALIZED, CKR_SESSION_HANDLE_INVALID,
                                   CKR_OPERATION_NOT_INITIALIZED));
        EXPECT_TRUE(result != CKR_OK || made == expected.at(JOAO));
      }
    });
  }
  while (std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  }
  for (std::thread& thread : threads) thread.join();
}
