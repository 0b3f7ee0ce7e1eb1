#include "brivasign_check/certificate_check.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "brivasign_check/x509_text.h"
#include "certcache/certcache.h"
#include "certcache/certificate_label.h"

namespace diagnosis {
namespace {

namespace fs = std::filesystem;

constexpr const char* FETCH_AGAIN =
    "remove the file and let the companion application fetch the certificate again";

// Returns the names of the entries of `directory`, sorted.
std::vector<std::string> entryNames(DIR* directory) {
  std::vector<std::string> names;
  while (const dirent* const entry = readdir(directory)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Certificates are loaded with their keys still encoded.
bool hasRsa2048Key(X509* certificate) {
  unsigned char* encoding = nullptr;
  const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &encoding);
  const brivasign::OpensslBytes owner(encoding);
  const unsigned char* at = encoding;
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(d2i_PUBKEY(nullptr, &at, length),
                                                                EVP_PKEY_free);
  return key != nullptr && EVP_PKEY_base_id(key.get()) == EVP_PKEY_RSA &&
         EVP_PKEY_bits(key.get()) == 2048;
}

// Adds what `certificate` says to `finding`, and what is wrong with it.
void judgeContent(Finding& finding, X509* certificate) {
  const std::string from = timeText(X509_get0_notBefore(certificate));
  const std::string until = timeText(X509_get0_notAfter(certificate));
  const bool hasGoodKey = hasRsa2048Key(certificate);
  const int validity = compareValidity(certificate);
  finding.facts.insert(finding.facts.end(),
                       {{"label", brivasign::certificateLabel(certificate)},
                        {"subject", nameText(X509_get_subject_name(certificate))},
                        {"valid from", from},
                        {"valid until", until},
                        {"2048-bit RSA key", hasGoodKey ? "yes" : "no"}});
  finding.message = "loads";
  if (validity == 0 && hasGoodKey) return;
  finding.status = Status::WRONG;
  if (validity < 0) {
    finding.message = "the certificate expired on " + until;
    finding.advice = "renew the certificate, or remove it with the companion application";
  } else if (validity > 0) {
    finding.message = "the certificate is not valid before " + from;
    finding.advice = "correct this computer's date and time, or wait";
  } else {
    finding.message = "the key is not a 2048-bit RSA key, and no other kind can sign";
    finding.advice = "have a certificate issued for a 2048-bit RSA key";
  }
}

// Looks at the file that applications get for an identifier. Adds to `finding`.
void judgeFile(Finding& finding, std::uint64_t id) {
  const fs::path path = brivasign::certificateFilePath(id);
  std::error_code ignored;
  const fs::file_status status = fs::status(path, ignored);
  finding.status = Status::WRONG;
  if (!fs::exists(status)) {
    finding.message = "there is no file " + path.filename().string() +
                      ": applications see an object that cannot be read";
    finding.advice = "remove this entry, or rename it to the certificate's number and .cer";
  } else if (!fs::is_regular_file(status)) {
    // Opening a pipe could wait for ever.
    finding.message = path.filename().string() + " is no file: applications may fail or hang";
    finding.advice = "remove it";
  } else if (access(path.c_str(), R_OK) != 0) {
    finding.message = "this user may not read " + path.filename().string();
    finding.advice = "give the file back to the user, for instance with chown and chmod";
  } else if (const auto certificate = brivasign::loadCertificate(id)) {
    finding.status = Status::OK;
    judgeContent(finding, certificate.get());
  } else {
    ERR_clear_error();
    finding.message = path.filename().string() + " is damaged: it holds no certificate in DER";
    finding.advice = FETCH_AGAIN;
  }
}

Finding checkEntry(const std::string& name) {
  Finding finding = {Status::NOTE, "certificate " + name, ""};
  const auto listedId = brivasign::certificateIdFromName(name.c_str());
  if (!listedId) {
    finding.message = "ignored, because the name does not contain .cer in small letters";
    return finding;
  }
  const std::uint64_t id = brivasign::widened(*listedId);
  finding.facts = {{"identifier", std::to_string(*listedId)}};
  judgeFile(finding, id);

  std::string oddity;
  const fs::path file = brivasign::certificateFilePath(id);
  std::error_code ignored;
  if (file.filename() != name) {
    oddity = "; the name is odd: it counts as number " + std::to_string(*listedId) +
             ", whose file is " + file.filename().string();
    if (fs::exists(file, ignored)) oddity += ": applications see that one more than once";
  }
  if (*listedId == 0) {
    oddity +=
        "; number 0 is none of the service's: applications may take its object for invalid, and a "
        "search for it finds everything";
  } else if (*listedId < 0) {
    oddity += "; numbers below 0 are none of the service's";
  }
  if (oddity.empty()) return finding;
  finding.message += oddity;
  if (finding.status == Status::OK) {
    finding.status = Status::NOTE;
    finding.advice = "rename the file to the certificate's number and .cer, or remove it";
  }
  return finding;
}

}  // namespace

Findings checkCertificates() {
  const std::string subject = "certificates";
  const brivasign::DirectoryPtr directory = brivasign::openCertificateDirectory();
  if (directory == nullptr) {
    return {{Status::WRONG, subject, "the folder certificados cannot be opened",
             "start the companion application, which creates and fills it"}};
  }
  Findings findings;
  bool isEmpty = true;
  for (const std::string& name : entryNames(directory.get())) {
    findings.push_back(checkEntry(name));
    if (brivasign::certificateIdFromName(name.c_str())) isEmpty = false;
  }
  if (isEmpty) {
    findings.push_back({Status::WRONG, subject, "the folder certificados holds no certificate",
                        "sign in to the companion application, which fetches them"});
  }
  return findings;
}

}  // namespace diagnosis
