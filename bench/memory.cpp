#include "memory.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "require.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

// The kernel's exact sum; the figure in /proc/self/status is rounded by as much as the goal.
long residentKibibytes() {
  std::ifstream rollup("/proc/self/smaps_rollup");
  for (std::string word; rollup >> word;) {
    long kibibytes = 0;
    if (word == "Rss:" && rollup >> kibibytes) return kibibytes;
  }
  throw std::runtime_error("the resident memory is not known");
}

std::size_t openDescriptors() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

// Does 1 / `share` of the work.
void live(Token& token, CK_OBJECT_HANDLE key, int share) {
  CertificateAttributes attributes;
  token.read(1, attributes);
  // Each kind of search in turn; what is searched for is found.
  for (int i = 0; i < LIFE_SEARCHES / share / 4; ++i) {
    require(token.list() > 0, "nothing was found");
    for (const CK_ATTRIBUTE_TYPE type : {CKA_SUBJECT, CKA_ISSUER, CKA_VALUE}) {
      require(token.findCertificate(type, attributes.value(type)) > 0, "nothing was found");
    }
  }
  for (int i = 0; i < LIFE_ATTRIBUTE_QUERIES / share; ++i) token.read(1, attributes);
  for (int i = 0; i < LIFE_SIGNATURES / share; ++i) token.sign(key);
}

}  // namespace

MemoryGrowth measureMemory(Token& token, CK_OBJECT_HANDLE key) {
  live(token, key, 100);
  const std::size_t descriptors = openDescriptors();
  const long resident = residentKibibytes();
  live(token, key, 1);
  const long grown = residentKibibytes() - resident;
  return {grown, descriptors, openDescriptors()};
}

}  // namespace bench
