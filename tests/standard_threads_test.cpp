#include <chrono>
#include <functional>
#include <thread>

#include "support/standard_test.h"

// Many threads at once, none of which waits for another or gets what is another's. The thread
// sanitizer watches in the build of the preset `threads`.

namespace fs = std::filesystem;

namespace {

constexpr CK_ULONG MARIA = 1001;
constexpr CK_ULONG JOAO = 1002;
constexpr CK_ULONG GUEST = 7;

using Work = std::function<void()>;

// Has threads do their work over and over for a time.
void inThreads(std::chrono::seconds time, const std::vector<Work>& works) {
  const auto end = std::chrono::steady_clock::now() + time;
  std::vector<std::thread> threads;
  for (const Work& work : works) {
    threads.emplace_back([&work, end] {
      do work();
      while (std::chrono::steady_clock::now() < end);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

class Threads : public StandardTest {
 protected:
  Threads() {
    for (const CK_ULONG id : {MARIA, JOAO}) {
      const std::string name = std::to_string(id) + ".cer";
      fs::copy_file(LOCAL_PKI "/users/" + name, folder / "certificados" / name);
      EXPECT_EQ(signParts(rsa, KEY + id, {DATA}, expected[id]), CKR_OK);
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
    EXPECT_EQ(signParts(rsa, keys.at(0), {DATA}, made, session), CKR_OK);
    EXPECT_EQ(made, expected.at(id)) << "a signature of another key";
    CK_MECHANISM sha256 = {CKM_SHA256, nullptr, 0};
    CK_ULONG length = made.size();
    EXPECT_EQ(p11->C_DigestInit(session, &sha256), CKR_OK);
    EXPECT_EQ(p11->C_DigestUpdate(session, bytes(made), 3), CKR_OK);
    EXPECT_EQ(p11->C_DigestFinal(session, bytes(made), &length), CKR_OK);
    EXPECT_EQ(p11->C_CloseSession(session), CKR_OK);
  }

  // Signs in a session that others use and close too, with the key of `id`. What comes is right, or
  // one of `refusals`.
  void trySigning(CK_SESSION_HANDLE session, CK_ULONG id, const std::vector<CK_RV>& refusals) {
    std::string text = DATA;
    std::string made(256, '\0');
    CK_ULONG length = made.size();
    CK_MECHANISM mechanism = rsa;
    p11->C_SignInit(session, &mechanism, KEY + id);
    const CK_RV result = p11->C_Sign(session, bytes(text), text.size(), bytes(made), &length);
    EXPECT_TRUE(result == CKR_OK ? made == expected.at(id)
                                 : std::ranges::count(refusals, result) != 0)
        << result;
  }

  inline static const std::string DATA = "what is signed";
  const CK_MECHANISM rsa = {CKM_RSA_PKCS, nullptr, 0};
  RealService service;
  std::map<CK_ULONG, std::string> expected = {{MARIA, std::string(256, '\0')},
                                              {JOAO, std::string(256, '\0')}};
};

}  // namespace

TEST_F(Threads, EachGetsWhatItAsksFor) {
  const std::string guest = certificate("-subj /CN=Guest");
  std::vector<Work> works(4, [&] { visit(MARIA); });
  works.resize(8, [&] { visit(JOAO); });
  // All use one session for what does not touch its operations, and read what comes and goes.
  works.emplace_back([&] {
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
  works.emplace_back([&] {
    write("certificados/7.cer", guest);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    fs::remove(folder / "certificados/7.cer");
  });
  inThreads(std::chrono::seconds(3), works);
}

TEST_F(Threads, OneSessionIsSharedWithoutHarm) {
  const Work work = [&] {
    const auto isOneOf = [](CK_RV result, CK_RV other) {
      EXPECT_THAT(result, testing::AnyOf(CKR_OK, other));
    };
    CK_OBJECT_HANDLE handle = 0;
    CK_ULONG count = 0;
    isOneOf(p11->C_FindObjectsInit(1, nullptr, 0), CKR_OPERATION_ACTIVE);
    isOneOf(p11->C_FindObjects(1, &handle, 1, &count), CKR_OPERATION_NOT_INITIALIZED);
    isOneOf(p11->C_FindObjectsFinal(1), CKR_OPERATION_NOT_INITIALIZED);
    trySigning(1, MARIA, {CKR_OPERATION_NOT_INITIALIZED});
  };
  inThreads(std::chrono::seconds(1), std::vector(8, work));
}

TEST_F(Threads, TheLibraryMayBeFinalizedUnderThem) {
  std::vector<Work> works(8, [&] {
    CK_SESSION_HANDLE session = 0;
    p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
    p11->C_FindObjectsInit(session, nullptr, 0);
    trySigning(
        session, JOAO,
        {CKR_CRYPTOKI_NOT_INITIALIZED, CKR_SESSION_HANDLE_INVALID, CKR_OPERATION_NOT_INITIALIZED});
  });
  works.emplace_back([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  });
  inThreads(std::chrono::seconds(1), works);
}

// Not for the thread sanitizer, which ends a process that forks and then starts threads.
TEST_F(StandardTest, TheProcessMayEndUnderItsThreads) {
  const std::string der = certificate();
  for (int i = 1; i <= 100; ++i) write("certificados/" + std::to_string(i) + ".cer", der);
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "what stays for threads that still call counts as lost";
#endif
  const auto endsInTheirMidst = [&] {
    // Runs after the exit handlers of the library, if it has any, and gives the threads time.
    std::atexit([] { std::this_thread::sleep_for(std::chrono::milliseconds(50)); });
    load(STANDARD_MODULE);
    run("C_Initialize = 0");
    const Work work = [&] {
      CK_SESSION_HANDLE session = 0;
      p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
      p11->C_FindObjectsInit(session, nullptr, 0);
      p11->C_CloseSession(session);
    };
    std::thread([&] { inThreads(std::chrono::seconds(9), std::vector(8, work)); }).detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::exit(0);
  };
  for (int i = 0; i < 5; ++i) EXPECT_EXIT(endsInTheirMidst(), testing::ExitedWithCode(0), "");
}
