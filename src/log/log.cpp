#include "log/log.h"

#include <openssl/err.h>

#include <cstdio>
#include <ctime>
#include <memory>

#include "log/version.h"
#include "product/product_folder.h"

namespace brivasign {
namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// Opens the file `name` of the product folder in `mode` of fopen. Returns null on failure, of which
// a lack of memory is one: what is written here never changes the result of a call.
std::unique_ptr<std::FILE, FileCloser> openProductFile(const char* name, const char* mode) {
  try {
    return std::unique_ptr<std::FILE, FileCloser>(std::fopen(productFilePath(name).c_str(), mode));
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

void writeLog(const char* message) {
  const auto file = openProductFile("orvix.log", "a+");
  if (file == nullptr) return;

  const std::time_t now = std::time(nullptr);
  std::tm local = {};
  tzset();  // the zone may have changed while the host runs
  localtime_r(&now, &local);
  std::fprintf(file.get(), "%d-%02d-%02d %02d:%02d:%02d [%s] %s\n", local.tm_year + 1900,
               local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
               MODULE_VERSION, message);
  if (ERR_peek_error() != 0) ERR_print_errors_fp(file.get());
}

void writeStateFile(const char* name, const char* text) {
  const auto file = openProductFile(name, "w");
  if (file != nullptr) std::fputs(text, file.get());
}

}  // namespace brivasign
