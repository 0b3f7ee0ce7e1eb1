#include <cassert>
#include <cstdint>
#include <fstream>
#include <vector>

#include "pkcs11.h"
#include "product/product_folder.h"

// First an unknown one, because the last failure counts; last what has a size check.
constexpr CK_ATTRIBUTE_TYPE TYPES[] = {0x999, 0,     1,     2,     0x80, 0x82,  0x100, 0x102,
                                       0x103, 0x120, 0x162, 0x202, 0x81, 0x101, 0x3,   0x11};
using Handles = std::vector<CK_OBJECT_HANDLE>;

Handles search(CK_ATTRIBUTE filter, CK_ULONG count) {
  Handles found(4);
  assert(C_FindObjectsInit(1, &filter, count) == CKR_OK);
  assert(C_FindObjects(1, found.data(), 4, &count) == CKR_OK && C_FindObjectsFinal(1) == CKR_OK);
  return {found.data(), found.data() + count};
}

// Asks for everything: the sizes, the values into room of that size, and into a byte less.
void checkAttributes(CK_OBJECT_HANDLE handle, const std::string& content) {
  std::vector<CK_ATTRIBUTE> asked;
  std::vector<std::vector<char>> values;
  for (const auto type : TYPES) asked.push_back({type, nullptr, 0});
  const auto ask = [&] { return C_GetAttributeValue(1, handle, asked.data(), asked.size()); };
  if (ask() == CKR_DEVICE_ERROR) return;
  for (auto& each : asked) each.pValue = values.emplace_back(each.ulValueLen).data();
  assert(ask() == CKR_ATTRIBUTE_TYPE_INVALID);
  if (handle >= 0x80000000) return;
  assert(std::string(values.back().begin(), values.back().end()) == content);
  for (const std::size_t i : {12U, 13U, 15U}) assert(search(asked[i], 1).front() == handle);
  assert(search({CKA_ISSUER, values[15].data(), values[15].size()}, 1).empty());  // too long
  for (const std::size_t i : {14U, 15U}) {
    std::vector<char> less(--asked[i].ulValueLen);
    asked[i].pValue = less.data();
    assert(ask() == CKR_BUFFER_TOO_SMALL && asked[i].ulValueLen == values[i].size());
    asked[i].pValue = nullptr;
  }
}

// A length, a file name of that length, and the content of the one file of the cache.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string input(data + 1, data + size), name = input.substr(0, data[0]);
  const std::string content = input.substr(name.size());
  const std::string path = brivasign::productFilePath("certificados/" + name);
  if (name.find('/') < size || name.find('\0') < size) return 0;
  if (!(std::ofstream(path) << content)) return 0;
  CK_SESSION_HANDLE session = 0;
  C_Initialize(nullptr);
  assert(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session) == CKR_OK);
  const auto id = CK_ULONG(std::int64_t{std::atoi(name.c_str())});  // NOLINT(cert-err34-c): rule
  const Handles all = search({}, 0);
  assert(all == (name.find(".cer") < size ? Handles{id, id + 0x80000000} : Handles{}));
  for (const CK_OBJECT_HANDLE handle : all) checkAttributes(handle, content);
  std::remove(path.c_str());
  return 0;
}
