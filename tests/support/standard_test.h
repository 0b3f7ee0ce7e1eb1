#pragma once

#include <sstream>

#include "local_signing_service/background_listener.h"
#include "local_signing_service/signing_service.h"
#include "support/service_test.h"

constexpr CK_ULONG PUBLIC = 2 * KEY;

// The library that follows the standard, with a session, and what its objects answer.
class StandardTest : public ServiceTest {
 protected:
  StandardTest() : ServiceTest(STANDARD_MODULE) {}

  // Handles of all objects that `filter` matches, in the order in which they are found, asked for
  // `room` at a time.
  std::vector<CK_OBJECT_HANDLE> find(Attributes filter = {}, CK_ULONG room = 1'000,
                                     CK_SESSION_HANDLE in = 1) const {
    std::vector<CK_ATTRIBUTE> entries;
    for (auto& [type, value] : filter) entries.push_back({type, value.data(), value.size()});
    EXPECT_EQ(p11->C_FindObjectsInit(in, entries.data(), entries.size()), CKR_OK);
    std::vector<CK_OBJECT_HANDLE> all;
    std::vector<CK_OBJECT_HANDLE> some(room);
    CK_ULONG count = room;
    while (count == room) {
      EXPECT_EQ(p11->C_FindObjects(in, some.data(), room, &count), CKR_OK);
      all.insert(all.end(), some.begin(), some.begin() + static_cast<std::ptrdiff_t>(count));
    }
    EXPECT_EQ(p11->C_FindObjectsFinal(in), CKR_OK);
    return all;
  }

  // The value of one attribute, asked for as consumers do: first its length, then its bytes.
  std::string value(CK_OBJECT_HANDLE handle, CK_ATTRIBUTE_TYPE type,
                    CK_SESSION_HANDLE in = 1) const {
    CK_ATTRIBUTE attribute = {type, nullptr, 0};
    EXPECT_EQ(p11->C_GetAttributeValue(in, handle, &attribute, 1), CKR_OK) << std::hex << type;
    std::string bytes(attribute.ulValueLen, '\xEE');
    attribute.pValue = bytes.data();
    EXPECT_EQ(p11->C_GetAttributeValue(in, handle, &attribute, 1), CKR_OK) << std::hex << type;
    return bytes;
  }

  static CK_BYTE_PTR bytes(std::string& text) { return reinterpret_cast<CK_BYTE_PTR>(text.data()); }

  // Signs `parts` by `mechanism`, whose parameters are gone after C_SignInit, in one call where
  // there is one part, into the room of `made`.
  CK_RV signParts(CK_MECHANISM mechanism, CK_OBJECT_HANDLE key, std::vector<std::string> parts,
                  std::string& made, CK_SESSION_HANDLE in = 1) const {
    CK_RV result = p11->C_SignInit(in, &mechanism, key);
    std::fill_n(static_cast<char*>(mechanism.pParameter), mechanism.ulParameterLen, '\xEE');
    CK_ULONG length = made.size();
    if (result == CKR_OK && parts.size() == 1) {
      result = p11->C_Sign(in, bytes(parts[0]), parts[0].size(), bytes(made), &length);
    } else if (result == CKR_OK) {
      for (std::string& part : parts) {
        if (result == CKR_OK) result = p11->C_SignUpdate(in, bytes(part), part.size());
      }
      if (result == CKR_OK) result = p11->C_SignFinal(in, bytes(made), &length);
    }
    if (result == CKR_OK) made.resize(length);
    return result;
  }
};

// A service that signs in earnest with the users' keys, on a thread of this process, and shows no
// notification.
class RealService {
 public:
  explicit RealService(const localservice::ServiceOptions& options = {})
      : service_(localservice::Signer(LOCAL_PKI "/users"), options, log_),
        listener_(SERVICE, [this](const std::string& request) {
          localservice::Reply reply = service_.handle(request);
          const std::string notified = R"("notificacaoEnviada":true)";
          const std::size_t place = reply.bytes.find(notified);
          if (place != std::string::npos) {
            reply.bytes.replace(place, notified.size(), R"("notificacaoEnviada":false)");
          }
          return reply;
        }) {}

 private:
  std::ostringstream lines_;
  localservice::EventLog log_{lines_, lines_, false};
  localservice::SigningService service_;
  localservice::BackgroundListener listener_;
};
