#include "soft_hsm.h"

#include <cstdlib>
#include <fstream>
#include <string>

#include "require.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* LIBRARY = "/usr/lib/softhsm/libsofthsm2.so";

// Returns the library's path once it is configured to live in `folder`.
const char* configured(const fs::path& folder) {
  const fs::path configuration = folder / "softhsm2.conf";
  const fs::path tokens = folder / "tokens";
  fs::create_directories(tokens);
  std::ofstream(configuration) << "directories.tokendir = " << tokens.string()
                               << "\nobjectstore.backend = file\nlog.level = ERROR\n";
  setenv("SOFTHSM2_CONF", configuration.c_str(), 1);
  return LIBRARY;
}

}  // namespace

SoftHsm::SoftHsm(const fs::path& folder) : library_(configured(folder)) {}

CK_SLOT_ID SoftHsm::freeSlot() {
  CK_ULONG count = 0;
  library_->C_GetSlotList(CK_TRUE, nullptr, &count);
  std::vector<CK_SLOT_ID> slots(count);
  library_->C_GetSlotList(CK_TRUE, slots.data(), &count);
  for (const CK_SLOT_ID slot : slots) {
    CK_TOKEN_INFO token = {};
    library_->C_GetTokenInfo(slot, &token);
    if ((token.flags & CKF_TOKEN_INITIALIZED) == 0) return slot;
  }
  throw std::runtime_error("SoftHSM2 has no free slot");
}

Token SoftHsm::addToken(Token& model, std::size_t count) {
  const CK_SLOT_ID slot = freeSlot();
  std::string pin = "12345678";
  std::string label(32, ' ');
  require(library_->C_InitToken(slot, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()), pin.size(),
                                reinterpret_cast<CK_UTF8CHAR_PTR>(label.data())) == CKR_OK,
          "SoftHSM2 cannot make a token");
  Token token = Token::open(library_, slot, CKF_RW_SESSION);

  CK_OBJECT_CLASS certificate = CKO_CERTIFICATE;
  CK_ATTRIBUTE certificates = {CKA_CLASS, &certificate, sizeof certificate};
  require(model.find(&certificates, 1) >= count, "there are too few certificates");
  CK_BBOOL yes = CK_TRUE;
  CK_BBOOL no = CK_FALSE;
  CertificateAttributes attributes;
  for (std::size_t i = 0; i < count; ++i) {
    model.read(model.found(i), attributes);
    std::vector<CK_ATTRIBUTE> object = attributes.answered();
    object.push_back({CKA_TOKEN, &yes, sizeof yes});
    // Without a login, as it is with the module.
    object.push_back({CKA_PRIVATE, &no, sizeof no});
    CK_OBJECT_HANDLE handle = 0;
    require(
        library_->C_CreateObject(token.session(), object.data(), object.size(), &handle) == CKR_OK,
        "SoftHSM2 does not take a certificate");
  }
  return token;
}

}  // namespace bench
