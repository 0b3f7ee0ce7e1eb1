#include "support/service_test.h"

#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

#include <csignal>
#include <cstdint>

using localservice::ListenerOptions;
using localservice::Reply;

ScriptedService::ScriptedService(std::vector<Reply> script, const ListenerOptions& options)
    : replies(std::move(script)),
      listener(options, [this](const std::string& request) { return answer(request); }) {}

Reply ScriptedService::answer(const std::string& request) {
  requests.push_back(request);
  testclock::advance(replyTime);
  return replies[std::min(requests.size(), replies.size()) - 1];
}

Reply reply(const std::string& body, const std::string& headers) {
  return {.bytes = "HTTP/1.1 200 OK\r\n" + headers + "Connection: close\r\n\r\n" + body};
}

Reply accepted(const std::string& base64) {
  return reply(R"({"status":"ACEITO","desafioAssinado":")" + base64 + "\"}");
}

std::string executablePath() {
#ifdef __APPLE__
  char path[4096] = {};
  std::uint32_t size = sizeof path;
  return _NSGetExecutablePath(path, &size) == 0 ? path : "";
#else
  return std::filesystem::read_symlink("/proc/self/exe");
#endif
}

ServiceTest::ServiceTest(const char* modulePath) : ModuleTest(modulePath) { openSession(); }

CK_RV ServiceTest::sign(const std::string& data) {
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  EXPECT_EQ(p11->C_SignInit(1, &mechanism, 0x80000007), CKR_OK);
  return signOnly(data);
}

CK_RV ServiceTest::signOnly(const std::string& data) {
  auto* const bytes = reinterpret_cast<CK_BYTE_PTR>(const_cast<char*>(data.data()));
  return p11->C_Sign(1, bytes, data.size(), reinterpret_cast<CK_BYTE_PTR>(signature.data()),
                     &signatureLen);
}

Log ServiceTest::logOfService() const {
  Log messages = log();
  std::erase(messages, executable);
  std::erase(messages, "<tls>");
  return messages;
}

void ServiceTest::expectOutcome(const std::string& name, std::vector<Reply> script,
                                std::size_t requests, const Log& lines, CK_RV result) {
  const auto opened = [] {
    return std::ranges::distance(std::filesystem::directory_iterator("/dev/fd"));
  };
  const auto before = opened();
  std::filesystem::remove(folder / "orvix.log");
  signature[0] = '\xEE';
  signatureLen = 10;
  {
    ScriptedService service(std::move(script), options);
    EXPECT_EQ(sign(), result) << name;
    EXPECT_EQ(service.requests.size(), requests) << name;
  }
  EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_IGN) << name;
  EXPECT_EQ(opened(), before) << name;
  EXPECT_EQ(logOfService(), lines) << name;
  EXPECT_EQ(signature[0], result == CKR_OK ? '\0' : '\xEE') << name;
  EXPECT_EQ(signatureLen, 256U) << name;
  EXPECT_EQ(signOnly(), CKR_OPERATION_NOT_INITIALIZED) << name;
}
