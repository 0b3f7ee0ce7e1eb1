#include "pkcs11-brivasign-standard/certificate_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "certcache/certcache.h"
#include "certcache/object_handle.h"
#include "out_of_memory.h"

namespace brivasign::standard {
namespace {

// Within this time a file can change again without a change of its own times, where the file
// system's clock is slow. Nanoseconds; two seconds are the slowest clock's.
constexpr std::int64_t SETTLING_TIME = 2'000'000'000;

// Returns whether a content that is read now can be told from a later one by `stamp`.
bool isSettled(const FileStamp& stamp) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t changed = std::max(stamp.contentTime, stamp.attributeTime);
  return nanoseconds(now) - changed > SETTLING_TIME;
}

// Returns the numbers that the entries of `directory` name, sorted, each once. A negative one names
// no file.
std::vector<std::uint64_t> numbersIn(DIR* directory) {
  std::vector<std::uint64_t> numbers;
  while (const dirent* const entry = readdir(directory)) {
    const auto id = certificateIdFromName(entry->d_name);
    if (id && *id >= 0) numbers.push_back(widened(*id));
  }
  // With the default order, macOS's C++ library would have to have this sorting.
  std::sort(numbers.begin(), numbers.end(), [](auto left, auto right) { return left < right; });
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return numbers;
}

}  // namespace

CertificatePtr CertificateStore::find(std::uint64_t id) {
  if (id >= KEY_HANDLE_OFFSET) return nullptr;
  const std::string path = certificateFilePath(id);
  struct stat status = {};
  // Nothing but a file: a pipe would keep its reader waiting.
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  {
    const std::scoped_lock lock(mutex_);
    const auto known = entries_.find(id);
    if (known != entries_.end() && known->second.stamp == fileStamp(status)) {
      return known->second.certificate;
    }
  }
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return nullptr;
  const BioPtr file(BIO_new_fd(descriptor, BIO_CLOSE));
  if (file == nullptr) {
    close(descriptor);
    throw OutOfMemory();
  }
  // The file may be another one by now.
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  const FileStamp stamp = fileStamp(status);
  const bool isKept = isSettled(stamp);
  CertificatePtr certificate = readCertificate(context_, id, file.get());
  if (isKept && certificate != nullptr) {
    const std::scoped_lock lock(mutex_);
    entries_.insert_or_assign(id, Entry{stamp, certificate});
  }
  return certificate;
}

std::vector<CertificatePtr> CertificateStore::list() {
  const DirectoryPtr directory = openCertificateDirectory();
  if (directory == nullptr && errno == ENOMEM) throw OutOfMemory();
  if (directory == nullptr) return {};
  const std::vector<std::uint64_t> numbers = numbersIn(directory.get());
  std::vector<CertificatePtr> certificates;
  certificates.reserve(numbers.size());
  for (const std::uint64_t id : numbers) {
    CertificatePtr certificate = find(id);
    if (certificate != nullptr) certificates.push_back(std::move(certificate));
  }
  keepOnly(numbers);
  return certificates;
}

void CertificateStore::keepOnly(const std::vector<std::uint64_t>& numbers) {
  const std::scoped_lock lock(mutex_);
  if (entries_.size() <= numbers.size()) return;
  std::erase_if(entries_, [&](const auto& entry) {
    return !std::binary_search(numbers.begin(), numbers.end(), entry.first);
  });
}

}  // namespace brivasign::standard
