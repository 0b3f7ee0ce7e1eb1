#include "brivasign_check/certificate_check.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>
#include <system_error>

#include "brivasign_check/file_look.h"
#include "brivasign_check/x509_text.h"
#include "certcache/certcache.h"
#include "certcache/certificate_label.h"
#include "product/product_folder.h"

namespace diagnosis {
namespace {

namespace fs = std::filesystem;

constexpr const char* FOLDER = "certificados";

// The names of the entries of the cache, or what keeps them from being read.
struct Listing {
  std::vector<std::string> names{};
  Findings obstacle{};
};

Listing listEntries() {
  const std::string path = brivasign::productFilePath(FOLDER);
  const brivasign::DirectoryPtr directory = brivasign::openCertificateDirectory();
  const int error = directory == nullptr ? errno : 0;
  if (error != 0 && isDeadLink(path)) {
    return {
        .obstacle = {{Status::WRONG, "certificate-folder.missing", DEAD_LINK, DEAD_LINK_ADVICE}}};
  }
  if (error == ENOENT) {
    return {.obstacle = {{Status::WRONG, "certificate-folder.missing", "there is no such folder",
                          "start the companion application, which creates and fills it"}}};
  }
  if (error == ENOTDIR) {
    return {.obstacle = {{Status::WRONG, "certificate-folder.not-a-folder", "is no folder",
                          "remove it and start the companion application, which creates it"}}};
  }
  if (access(path.c_str(), R_OK | X_OK) != 0 && errno == EACCES) {
    const auto [message, advice] = denial(path, "read or enter it");
    return {.obstacle = {{Status::WRONG, "certificate-folder.denied", message, advice}}};
  }
  if (error != 0) {
    return {
        .obstacle = {{Status::WRONG, "certificate-folder.denied",
                      "cannot be opened: " + std::system_category().message(error), DISK_ADVICE}}};
  }
  Listing listing;
  while (const dirent* const entry = readdir(directory.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") listing.names.push_back(name);
  }
  std::sort(listing.names.begin(), listing.names.end());
  return listing;
}

// Returns the size in bits of the RSA key of `certificate`, 0 when it has none. Certificates are
// loaded with their keys still encoded.
int rsaKeySize(X509* certificate) {
  unsigned char* encoding = nullptr;
  const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &encoding);
  const brivasign::OpensslBytes owner(encoding);
  const unsigned char* at = encoding;
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(d2i_PUBKEY(nullptr, &at, length),
                                                                EVP_PKEY_free);
  const bool isRsa = key != nullptr && EVP_PKEY_base_id(key.get()) == EVP_PKEY_RSA;
  return isRsa ? EVP_PKEY_bits(key.get()) : 0;
}

Finding judge(X509* certificate, std::uint64_t id) {
  const std::string from = timeText(X509_get0_notBefore(certificate));
  const std::string until = timeText(X509_get0_notAfter(certificate));
  const int keySize = rsaKeySize(certificate);
  const bool hasUsableKey = keySize == 2048;
  ERR_clear_error();
  const Facts facts = {{"identifier", static_cast<std::int64_t>(id)},
                       {"label", brivasign::certificateLabel(certificate)},
                       {"subject", nameText(X509_get_subject_name(certificate))},
                       {"validFrom", from},
                       {"validUntil", until},
                       {"hasUsableKey", hasUsableKey}};
  const int validity = compareValidity(certificate);
  if (validity < 0 && X509_cmp_current_time(X509_get0_notAfter(certificate)) == 0) {
    return {Status::WRONG, "certificate.expired",
            "the end of its validity is malformed, which counts as expired",
            "have the certificate issued anew", facts};
  }
  if (validity < 0) {
    return {Status::WRONG, "certificate.expired", "expired on " + until,
            "if this computer's date and time are right, renew the certificate, or remove it with "
            "the companion application",
            facts};
  }
  if (validity > 0) {
    return {Status::WRONG, "certificate.not-yet-valid", "is not valid before " + from,
            "correct this computer's date and time, or wait", facts};
  }
  constexpr const char* NEW_KEY = "have a certificate issued for a 2048-bit RSA key";
  if (keySize < 512 || keySize > 16384) {
    return {Status::WRONG, "certificate.unusable-key",
            "its key is not an RSA key of 512 to 16384 bits, and no other kind can sign", NEW_KEY,
            facts};
  }
  if (!hasUsableKey) {
    return {Status::NOTE, "certificate.other-key-size",
            "its key has " + std::to_string(keySize) +
                " bits: only pkcs11-brivasign-standard signs with it",
            std::string("load that library, or ") + NEW_KEY, facts};
  }
  if (id == 0) {
    return {Status::NOTE, "certificate.number-zero",
            "number 0 is none of the service's: applications may take its object for invalid, and "
            "a search for it finds everything",
            "rename the file to the certificate's number and .cer, or remove it", facts};
  }
  return {Status::OK, "certificate.ok", "loads", "", facts};
}

// Looks at the file of certificate `id`, which is listed under its own name.
Finding checkFile(std::uint64_t id) {
  constexpr const char* FETCH_AGAIN =
      "remove it and let the companion application fetch the certificate again";
  constexpr std::string_view PEM = "-----BEGIN";
  const std::string path = brivasign::certificateFilePath(id);
  const FileLook look = lookBeforeReading(path);
  switch (look.state) {
    case FileState::MISSING:
      return {Status::WRONG, "certificate.missing",
              look.message.empty() ? "has just been removed" : look.message, FETCH_AGAIN};
    case FileState::NO_FILE:
      return {Status::WRONG, "certificate.not-a-file",
              look.message + (look.isPipe ? ": pkcs11-brivasign waits for it for ever"
                                          : ": pkcs11-brivasign shows an unreadable object"),
              look.advice};
    case FileState::DENIED:
      return {Status::WRONG, "certificate.denied", look.message, look.advice};
    case FileState::TOO_LARGE:
      return {Status::WRONG, "certificate.too-large", look.message, FETCH_AGAIN};
    case FileState::USABLE:
      break;
  }
  if (const auto certificate = brivasign::loadCertificate(id)) return judge(certificate.get(), id);
  ERR_clear_error();
  std::string start(PEM.size(), '\0');
  std::ifstream(path).read(start.data(), static_cast<std::streamsize>(start.size()));
  const char* message = "is damaged: it holds no certificate in DER";
  if (start == PEM) message = "is in PEM, not in DER";
  if (look.size == 0) message = "is empty";
  return {Status::WRONG, "certificate.damaged", message, FETCH_AGAIN};
}

Finding checkEntry(const std::string& name) {
  const auto listedId = brivasign::certificateIdFromName(name.c_str());
  if (!listedId) {
    return {Status::NOTE, "certificate.ignored",
            "is ignored, because the name does not contain .cer in small letters",
            "if it is a certificate, rename it to its number and .cer"};
  }
  const std::uint64_t id = brivasign::widened(*listedId);
  const fs::path file = brivasign::certificateFilePath(id);
  if (file.filename() == name) return checkFile(id);

  constexpr const char* RENAME =
      "remove it, or, if no other file holds its certificate, rename it to the number and .cer";
  const std::string number = "counts as number " + std::to_string(*listedId);
  const Facts facts = {{"identifier", std::int64_t{*listedId}}};
  std::error_code ignored;
  if (fs::exists(file, ignored)) {
    return {Status::NOTE, "certificate.listed-twice",
            number + ": pkcs11-brivasign shows " + file.filename().string() + " more than once",
            RENAME, facts};
  }
  // Another name may count as this number for want of a better.
  const bool isPadded = name.substr(name.find_first_not_of('0')) == file.filename();
  return {Status::WRONG, "certificate.misnamed",
          number + ", for which \"" + file.filename().string() +
              "\" is looked for and missing: pkcs11-brivasign shows an unreadable object",
          isPadded ? "rename it to " + file.filename().string() : RENAME, facts};
}

}  // namespace

Findings checkCertificates(const TimeLimit& limit) {
  const auto listing = limit.run(FOLDER, listEntries);
  Findings findings;
  if (!listing) {
    findings = {{Status::WRONG, "certificate-folder.timeout", limit.exceeded(), DISK_ADVICE}};
  } else {
    findings = listing->obstacle;
  }
  for (Finding& finding : findings) finding.entry = FOLDER;
  if (!findings.empty()) return findings;

  bool isEmpty = true;
  for (const std::string& name : listing->names) {
    auto finding = limit.run(name, [name] { return checkEntry(name); });
    findings.push_back(finding.value_or(
        Finding{Status::WRONG, "certificate.timeout",
                limit.exceeded() + "; the entries behind it were not looked at", DISK_ADVICE}));
    findings.back().entry = name;
    if (brivasign::certificateIdFromName(name.c_str())) isEmpty = false;
    if (!finding) break;
  }
  if (isEmpty) {
    findings.insert(findings.begin(),
                    {Status::WRONG, "certificate-folder.empty", "holds no certificate",
                     "sign in to the companion application, which fetches them"});
    findings.front().entry = FOLDER;
  }
  return findings;
}

}  // namespace diagnosis
