// Measures what an application waits for: loading, listing, attributes and signing.

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "local_signing_service/background_listener.h"
#include "pkcs11.h"

namespace {

namespace fs = std::filesystem;

constexpr CK_ULONG CERTIFICATES = 1'000;
constexpr CK_ULONG KEY_OF_FIRST = 0x80000001;
constexpr std::uint16_t PRODUCTION_PORT = 24432;

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

// A loaded module with an open session; unloaded at the end.
class Module {
 public:
  explicit Module(const char* path) : library_(dlopen(path, RTLD_NOW)) {
    require(library_ != nullptr, "the module cannot be loaded");
    const auto getList =
        reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_, "C_GetFunctionList"));
    require(getList != nullptr && getList(&list_) == CKR_OK, "the module has no function table");
    require(list_->C_Initialize(nullptr) == CKR_OK, "C_Initialize failed");
  }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  ~Module() { dlclose(library_); }

  CK_FUNCTION_LIST* operator->() const { return list_; }

 private:
  void* library_;
  CK_FUNCTION_LIST_PTR list_ = nullptr;
};

// A home folder of its own with CERTIFICATES copies of one certificate; removed at the end.
class Home {
 public:
  explicit Home(const fs::path& certificate) {
    std::string name = fs::temp_directory_path() / "measure-XXXXXX";
    require(mkdtemp(name.data()) != nullptr, "there is no place for a home folder");
    path_ = name;
    const fs::path cache = path_ / "Library/Application Support/Orvix/certificados";
    fs::create_directories(cache);
    for (CK_ULONG id = 1; id <= CERTIFICATES; ++id) {
      fs::copy_file(certificate, cache / (std::to_string(id) + ".cer"));
    }
    setenv("HOME", path_.c_str(), 1);
  }
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;
  ~Home() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

 private:
  fs::path path_;
};

// Prints the median duration of `work` over `repetitions` runs, divided by `share`. What `after`
// does behind each run is not measured.
void measure(
    const char* what, int repetitions, int share, const std::function<void()>& work,
    const std::function<void()>& after = [] {}) {
  std::vector<double> microseconds;
  for (int i = 0; i < repetitions; ++i) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
    microseconds.push_back(time.count() / share);
    after();
  }
  std::sort(microseconds.begin(), microseconds.end());
  std::cout << what << ": " << microseconds[microseconds.size() / 2] << " us (median of "
            << repetitions << ")\n";
}

void list(const Module& module) {
  CK_ATTRIBUTE none = {};
  std::vector<CK_OBJECT_HANDLE> handles(2 * CERTIFICATES);
  CK_ULONG count = 0;
  module->C_FindObjectsInit(1, &none, 0);
  module->C_FindObjects(1, handles.data(), handles.size(), &count);
  module->C_FindObjectsFinal(1);
  require(count == handles.size(), "the listing is not complete");
}

void readLabel(const Module& module) {
  char label[100] = {};
  CK_ATTRIBUTE attribute = {CKA_LABEL, label, sizeof label};
  require(module->C_GetAttributeValue(1, 1, &attribute, 1) == CKR_OK, "there is no label");
}

void sign(const Module& module) {
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  CK_BYTE data[32] = {};
  CK_BYTE signature[256] = {};
  CK_ULONG length = sizeof signature;
  require(module->C_SignInit(1, &mechanism, KEY_OF_FIRST) == CKR_OK &&
              module->C_Sign(1, data, sizeof data, signature, &length) == CKR_OK,
          "the signature failed");
}

localservice::Reply approve(const std::string& request) {
  const bool isQuery = request.starts_with("GET");
  return {.bytes = "HTTP/1.1 200 OK\r\n\r\n" +
                   std::string(isQuery ? R"({"status":"ACEITO","desafioAssinado":"QUJD"})"
                                       : R"({"id":1,"notificacaoEnviada":false})")};
}

void measureAll(const char* modulePath, const fs::path& pki) {
  const Home home(pki / "users/1001.cer");
  std::optional<Module> loaded;
  measure(
      "dlopen and C_Initialize", 101, 1, [&] { loaded.emplace(modulePath); },
      [&] { loaded.reset(); });

  const Module module(modulePath);
  CK_SESSION_HANDLE session = 0;
  require(module->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session) == CKR_OK,
          "there is no session");
  measure("listing of 1,000 certificates and keys", 101, 1, [&] { list(module); });
  measure("one attribute query", 1'001, 1, [&] { readLabel(module); });

  const localservice::BackgroundListener service(
      localservice::listenerOptions(pki, PRODUCTION_PORT), approve);
  measure("one exchange with the local service", 101, 2, [&] { sign(module); });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: measure-module MODULE LOCAL_PKI\n"
                 "MODULE: pkcs11-brivasign-local; LOCAL_PKI: the folder of make-local-pki\n";
    return 2;
  }
  try {
    measureAll(argv[1], argv[2]);
  } catch (const std::exception& failure) {
    std::cerr << "measure-module: " << failure.what() << '\n';
    return 1;
  }
}
