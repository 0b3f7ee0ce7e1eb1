#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "token.h"

namespace bench {

// Returns the requests of one signature that `token` makes with `key`, byte for byte. The service
// must not be running.
std::vector<std::string> recordSignature(const std::filesystem::path& pki, Token& token,
                                         CK_OBJECT_HANDLE key);

// A local service that accepts every signature at the first query. It has a process of its own: its
// memory and its locks are not those of what is measured.
class ServiceProcess {
 public:
  explicit ServiceProcess(const std::filesystem::path& pki);
  ServiceProcess(const ServiceProcess&) = delete;
  ServiceProcess& operator=(const ServiceProcess&) = delete;
  ~ServiceProcess();

 private:
  pid_t process_ = -1;
};

}  // namespace bench
