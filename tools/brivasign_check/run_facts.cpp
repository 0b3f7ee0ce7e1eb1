#include "brivasign_check/run_facts.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <ctime>

#include "brivasign_check/x509_text.h"
#include "identity/identity.h"

namespace diagnosis {

Facts runFacts(const std::string& user, const TimeLimit& limit) {
  const std::time_t now = std::time(nullptr);
  std::tm utc = {};
  gmtime_r(&now, &utc);
  utsname names = {};
  uname(&names);
  return {{"moduleVersion", brivasign::brivasignIdentity.version},
          {"commit", brivasign::brivasignIdentity.commit},
          {"tlsLibraryVersion", brivasign::brivasignIdentity.tlsLibrary},
          {"time", timeText(utc)},
          {"user", user},
          {"isRoot", geteuid() == 0},
          {"system", std::string(names.sysname) + " " + names.release},
          {"architecture", names.machine},
          {"timeLimitSeconds", limit.limit().count()}};
}

}  // namespace diagnosis
