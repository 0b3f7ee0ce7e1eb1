#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "pkcs11.h"

namespace bench {

// A PKCS#11 library, loaded and initialised; finalised and unloaded at the end.
class TokenLibrary {
 public:
  explicit TokenLibrary(const char* path);
  TokenLibrary(const TokenLibrary&) = delete;
  TokenLibrary& operator=(const TokenLibrary&) = delete;
  ~TokenLibrary();

  CK_FUNCTION_LIST* operator->() const { return functions_; }

 private:
  void* library_;
  CK_FUNCTION_LIST_PTR functions_ = nullptr;
};

// The eight attributes that applications ask for to show a certificate and to pair it with its key.
class CertificateAttributes {
 public:
  CertificateAttributes();
  CertificateAttributes(const CertificateAttributes&) = delete;
  CertificateAttributes& operator=(const CertificateAttributes&) = delete;

  // All of them, each with room for any value of this benchmark.
  CK_ATTRIBUTE* withRoom();

  // All of them, each with the length of its value as answered last.
  [[nodiscard]] std::vector<CK_ATTRIBUTE> answered() const { return attributes_; }

  // The value of the attribute `type` as answered last.
  [[nodiscard]] std::string value(CK_ATTRIBUTE_TYPE type) const;

  static constexpr std::size_t COUNT = 8;

 private:
  static constexpr std::size_t ROOM = 4096;  // bytes for each value

  std::vector<CK_BYTE> room_;
  std::vector<CK_ATTRIBUTE> attributes_;
};

// What an application does with a token that shows certificates, on a session with `library`.
class Token {
 public:
  Token(const TokenLibrary& library, CK_SESSION_HANDLE session)
      : library_(library), session_(session), handles_(MOST_HANDLES) {}

  // Opens a session on `slot` first.
  static Token open(const TokenLibrary& library, CK_SLOT_ID slot, CK_FLAGS flags = 0);

  // Searches with the `count` entries at `filter`. Returns the number of objects found, of which
  // `found` tells the handles.
  std::size_t find(CK_ATTRIBUTE* filter, std::size_t count);

  // Lists all objects.
  std::size_t list();

  // Searches for the certificate whose attribute `type` is `value`.
  std::size_t findCertificate(CK_ATTRIBUTE_TYPE type, const std::string& value);

  [[nodiscard]] CK_OBJECT_HANDLE found(std::size_t index) const { return handles_[index]; }

  // Reads the eight attributes of `object`.
  void read(CK_OBJECT_HANDLE object, CertificateAttributes& attributes);

  // Signs 32 bytes with `key`.
  void sign(CK_OBJECT_HANDLE key);

  [[nodiscard]] CK_SESSION_HANDLE session() const { return session_; }

 private:
  static constexpr std::size_t MOST_HANDLES = 300'000;

  const TokenLibrary& library_;
  CK_SESSION_HANDLE session_;
  std::vector<CK_OBJECT_HANDLE> handles_;
};

}  // namespace bench
