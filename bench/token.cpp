#include "token.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>

#include "require.h"

namespace bench {

TokenLibrary::TokenLibrary(const char* path) : library_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
  require(library_ != nullptr, "a PKCS#11 library cannot be loaded");
  const auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_, "C_GetFunctionList"));
  require(getList != nullptr && getList(&functions_) == CKR_OK,
          "a PKCS#11 library has no function table");
  require(functions_->C_Initialize(nullptr) == CKR_OK, "C_Initialize failed");
}

TokenLibrary::~TokenLibrary() {
  functions_->C_Finalize(nullptr);
  dlclose(library_);
}

CertificateAttributes::CertificateAttributes() : room_(COUNT * ROOM) {
  constexpr std::array<CK_ATTRIBUTE_TYPE, COUNT> TYPES = {
      CKA_CLASS,   CKA_CERTIFICATE_TYPE, CKA_LABEL,         CKA_ID,
      CKA_SUBJECT, CKA_ISSUER,           CKA_SERIAL_NUMBER, CKA_VALUE};
  for (std::size_t i = 0; i < COUNT; ++i) {
    attributes_.push_back({TYPES[i], &room_[i * ROOM], ROOM});
  }
}

CK_ATTRIBUTE* CertificateAttributes::withRoom() {
  for (CK_ATTRIBUTE& attribute : attributes_) attribute.ulValueLen = ROOM;
  return attributes_.data();
}

std::string CertificateAttributes::value(CK_ATTRIBUTE_TYPE type) const {
  const auto found =
      std::find_if(attributes_.begin(), attributes_.end(),
                   [type](const CK_ATTRIBUTE& attribute) { return attribute.type == type; });
  return {static_cast<const char*>(found->pValue), found->ulValueLen};
}

Token Token::open(const TokenLibrary& library, CK_SLOT_ID slot, CK_FLAGS flags) {
  CK_SESSION_HANDLE session = 0;
  require(library->C_OpenSession(slot, CKF_SERIAL_SESSION | flags, nullptr, nullptr, &session) ==
              CKR_OK,
          "there is no session");
  return {library, session};
}

std::size_t Token::find(CK_ATTRIBUTE* filter, std::size_t count) {
  CK_ULONG matches = 0;
  require(
      library_->C_FindObjectsInit(session_, filter, count) == CKR_OK &&
          library_->C_FindObjects(session_, handles_.data(), handles_.size(), &matches) == CKR_OK &&
          library_->C_FindObjectsFinal(session_) == CKR_OK,
      "a search failed");
  return matches;
}

std::size_t Token::list() {
  CK_ATTRIBUTE none = {};
  return find(&none, 0);
}

std::size_t Token::findCertificate(CK_ATTRIBUTE_TYPE type, const std::string& value) {
  CK_OBJECT_CLASS certificate = CKO_CERTIFICATE;
  std::array<CK_ATTRIBUTE, 2> filter = {{
      {CKA_CLASS, &certificate, sizeof certificate},
      {type, const_cast<char*>(value.data()), value.size()},
  }};
  return find(filter.data(), filter.size());
}

void Token::read(CK_OBJECT_HANDLE object, CertificateAttributes& attributes) {
  require(library_->C_GetAttributeValue(session_, object, attributes.withRoom(),
                                        CertificateAttributes::COUNT) == CKR_OK,
          "the attributes cannot be read");
}

void Token::sign(CK_OBJECT_HANDLE key) {
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  std::array<CK_BYTE, 32> data = {};
  std::array<CK_BYTE, 256> signature = {};
  CK_ULONG length = signature.size();
  require(
      library_->C_SignInit(session_, &mechanism, key) == CKR_OK &&
          library_->C_Sign(session_, data.data(), data.size(), signature.data(), &length) == CKR_OK,
      "a signature failed");
}

}  // namespace bench
