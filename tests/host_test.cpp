#include <malloc.h>
#include <openssl/err.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "support/service_test.h"

// The process around the module and the files that it is given. The services here, on a thread of
// this process, run on the system's shared TLS library beside the module's own.

namespace fs = std::filesystem;

namespace {

class Host : public ServiceTest {
 protected:
  // Asks certificate 7 for its label and its file. Returns the result.
  CK_RV ask() {
    label.assign(100, '\0');
    std::string file(5'000, '\0');
    CK_ATTRIBUTE attributes[] = {{CKA_LABEL, label.data(), label.size()},
                                 {CKA_VALUE, file.data(), file.size()}};
    const CK_RV result = p11->C_GetAttributeValue(1, 7, attributes, 2);
    label.resize(label.find('\0'));
    return result;
  }

  // Returns how many handles a search finds; `filter` is the name of a template of one entry.
  CK_ULONG found(const std::string& filter = "") {
    pointers["handles"] = handles.data();
    run("C_FindObjectsInit 1 " + (filter.empty() ? "&none 0" : filter + " 1") +
        " = 0; C_FindObjects 1 handles 493E0 &n = 0; C_FindObjectsFinal 1 = 0");
    return numbers["n"];
  }

  // Returns what `work` returns in a process that has none of this one's threads, below 256, beside
  // a service that answers with `script`.
  template <class Work>
  static CK_RV inChild(const std::vector<localservice::Reply>& script, const Work& work) {
    const pid_t child = fork();
    const auto waits = [] { return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && raise(SIGSTOP) == 0; };
    if (child == 0) _exit(waits() ? static_cast<int>(work()) : -1);
    EXPECT_EQ(waitpid(child, nullptr, WUNTRACED), child);
    ScriptedService service(script);
    kill(child, SIGCONT);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_THAT(service.requests.at(0),
                testing::HasSubstr("\"pid\":\"" + std::to_string(child) + '"'));
    return WIFEXITED(status) ? CK_RV(WEXITSTATUS(status)) : ~0UL;
  }

  std::vector<CK_OBJECT_HANDLE> handles = std::vector<CK_OBJECT_HANDLE>(300'000);
  std::string label;
};

}  // namespace

TEST_F(Host, ErrorQueuesStayApart) {
  ERR_put_error(ERR_LIB_USER, 0, 42, "host", 1);
  const unsigned long ours = ERR_peek_error();
  EXPECT_EQ(ask(), CKR_DEVICE_ERROR);
  EXPECT_EQ(sign(), CKR_FUNCTION_FAILED) << "nobody listens";
  EXPECT_THAT(read("orvix.log"), testing::Not(testing::HasSubstr("host")));
  EXPECT_EQ(ERR_get_error(), ours);
  EXPECT_EQ(ERR_get_error(), 0U) << "and what the module queued stays with the module";
}

TEST_F(Host, NoConfigurationIsObeyed) {
  std::ofstream(home / "openssl.cnf")
      << "openssl_conf = all\n[all]\nssl_conf = ssl\n[ssl]\n"
         "system_default = tls\n[tls]\nCipherString = DEFAULT:@SECLEVEL=5\n";
  EXPECT_NE(certificate(issuedBy("Unknown")), "");
  setenv("OPENSSL_CONF", (home / "openssl.cnf").c_str(), 1);
  setenv("SSL_CERT_FILE", (home / "ca.pem").c_str(), 1);
  setenv("SSL_CERT_DIR", home.c_str(), 1);
  load(LOCAL_MODULE);  // into a process that has not initialised it
  openSession();
  for (const CK_RV result : {CKR_OK, CKR_FUNCTION_FAILED}) {
    ScriptedService service({FILED, accepted()}, options);
    EXPECT_EQ(sign(), result);
    run("C_Finalize = 0; C_Initialize = 0");
    options.certificateFile = home / "made.pem";
    options.keyFile = USER_KEY;
  }
  unsetenv("OPENSSL_CONF");
}

TEST_F(Host, HomesOfAllKinds) {
  write("certificados/7.cer", certificate());
  const std::string slashes(4'000 - home.string().size(), '/');
  const auto update =
      reply(R"({"id":77,"notificacaoEnviada":false})", "x-app-update-available: true\r\n");
  const uid_t user = geteuid();
  using Row = std::tuple<std::string, std::string, bool>;  // what, HOME, whether it has a folder
  for (const auto& [what, path, isThere] :
       {Row{"unset", "", false}, Row{"empty", "", false}, Row{"missing", "/nowhere", false},
        Row{"a file", "/dev/null", false}, Row{"too long", slashes + slashes, false},
        Row{"long", home.string() + slashes, true}, Row{"full", home, true},
        Row{"read-only", home, true}}) {
    SCOPED_TRACE(what);
    ScriptedService service({update, accepted()});
    what == "unset" ? unsetenv("HOME") : setenv("HOME", path.c_str(), 1);
    for (const char* file : {"orvix.log", "atualizar"}) {
      fs::remove(folder / file);
      if (what == "full") fs::create_symlink("/dev/full", folder / file);
    }
    if (what == "read-only") {  // for whoever is not root
      EXPECT_EQ(std::system(("chmod -R a=rX " + home.string()).c_str()), 0);
      EXPECT_TRUE(seteuid(65'534) == 0 || user != 0);
    }
    EXPECT_EQ(found(), isThere ? 2U : 0U) << "a folder that cannot be opened is empty";
    EXPECT_EQ(ask(), isThere ? CKR_OK : CKR_DEVICE_ERROR);
    EXPECT_EQ(sign(), CKR_OK);
    EXPECT_EQ(seteuid(user), 0);
    EXPECT_EQ(what == "full" ? "" : read("atualizar"), what == "long" ? "1" : "");
  }
  EXPECT_EQ(std::system(("chmod -R u+w " + home.string()).c_str()), 0);
}

TEST_F(Host, FilesChangeAndVanishWhileTheyAreRead) {
  const std::string ana = certificate("-subj /CN=Ana");
  const std::string bia = certificate("-subj '/CN=Beatriz Cristina'") + std::string(300, '-');
  const Attributes wanted = {{CKA_SUBJECT, name("Ana")}, {CKA_VALUE, ana}};
  std::vector<CK_ATTRIBUTE> filters = entries(wanted);
  pointers = {{"subject", &filters[0]}, {"value", &filters[1]}};
  std::jthread companion([&](const std::stop_token& isOver) {
    while (!isOver.stop_requested()) {
      for (const std::string& content : {ana, bia, ana.substr(0, 400), std::string()}) {
        write("certificados/7.cer", content);
      }
      fs::remove(folder / "certificados/7.cer");
    }
  });
  for (int i = 0; i < 2'000; ++i) {
    // The file may be gone when its bytes are asked for: no buffer is large enough for that.
    const CK_RV result = ask();
    EXPECT_THAT(result, testing::AnyOf(CKR_OK, CKR_DEVICE_ERROR, CKR_BUFFER_TOO_SMALL));
    if (result == CKR_OK) {
      EXPECT_THAT(label, testing::AnyOf("(4660) Ana", "(4660) Beatriz Cristina"));
    }
    EXPECT_LE(found("subject"), 2U);
    EXPECT_LE(found("value"), 1U);
  }
  companion = {};
  write("certificados/7.cer", ana);
  EXPECT_EQ(ask(), CKR_OK);
  EXPECT_EQ(found("value"), 1U);
}

TEST_F(Host, AThousandLoadsLeaveNothingBehind) {
  const std::string der = certificate();
  std::size_t before = 0;
  for (int i = 0; i < 1'000; ++i) {
    if (i == 10) before = mallinfo2().uordblks;
    load(LOCAL_MODULE);
    run("C_GetSessionInfo 1 = 190; C_Initialize = 0; C_GetSessionInfo 1 = B3;"
        "C_OpenSession 1 6 0 0 &session = 0");
    for (const std::string& content : {der, der, der.substr(0, 400)}) {
      write("certificados/7.cer", content);
      EXPECT_EQ(ask(), content == der ? CKR_OK : CKR_DEVICE_ERROR);
    }
  }
  EXPECT_LT(mallinfo2().uordblks, before + 20'000) << "bytes in use";
}

TEST_F(Host, AForkedChildSigns) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(inChild({FILED, accepted()}, [this] { return sign(); }), CKR_OK);
    ScriptedService service({FILED, accepted()});
    EXPECT_EQ(sign(), CKR_OK);
  }
}

TEST_F(Host, LackOfMemoryIsAResult) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer takes all of the address space";
#endif
  const std::string large(16 << 20, ' ');
  CK_ATTRIBUTE value = {CKA_VALUE, const_cast<char*>(large.data()), large.size()};
  CK_MECHANISM unknown = {0x40, nullptr, 0};
  CK_ULONG count = 9;
  rlimit space = {0, RLIM_INFINITY};
  const auto limit = [&](rlim_t bytes) {
    return space.rlim_cur = bytes, CK_RV(setrlimit(RLIMIT_AS, &space));
  };
  const auto takeAll = [] {
    CK_RV size = 1 << 20;
    while (size != 0) size >>= operator new(size, std::nothrow) == nullptr ? 1 : 0;
    return size;
  };
  const auto work = [&] {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    using Step = std::pair<CK_RV, CK_RV>;
    const auto steps = {
        Step(limit(pages * rlim_t(getpagesize()) + large.size() / 2), 0),
        // The data, the reply, what it says, and the filter are too much.
        Step(sign(large), CKR_HOST_MEMORY), Step(signatureLen, 256),
        Step(signOnly(), CKR_OPERATION_NOT_INITIALIZED), Step(sign(), CKR_HOST_MEMORY),
        Step(sign(), CKR_HOST_MEMORY), Step(p11->C_FindObjectsInit(1, &value, 1), CKR_HOST_MEMORY),
        Step(p11->C_FindObjectsInit(1, &value, 0), CKR_OK), Step(takeAll(), 0),
        Step(p11->C_FindObjects(1, handles.data(), 9, &count), CKR_HOST_MEMORY), Step(count, 0),
        Step(p11->C_FindObjects(1, nullptr, 0, &count), CKR_OK),
        Step(p11->C_FindObjectsFinal(1), CKR_OK),
        Step(p11->C_GetAttributeValue(1, 7, &value, 1), CKR_HOST_MEMORY),
        Step(p11->C_SignInit(1, &unknown, KEY), CKR_MECHANISM_INVALID),
        Step(sign(), CKR_HOST_MEMORY), Step(limit(RLIM_INFINITY), 0), Step(sign(), CKR_OK)};
    return std::ranges::count_if(steps, [](const auto& step) { return step.first != step.second; });
  };
  EXPECT_EQ(inChild({reply(large), reply(std::string(1 << 20, '[')), FILED, accepted()}, work), 0U)
      << "steps had another result";
}

TEST_F(Host, AHundredThousandEntries) {
  for (int i = 1; i <= 100'000; ++i) write("certificados/" + std::to_string(i) + ".cer", "");
  write("certificados/7.cer", certificate());
  EXPECT_EQ(found(), 200'000U);
  EXPECT_EQ(ask(), CKR_OK);
}
