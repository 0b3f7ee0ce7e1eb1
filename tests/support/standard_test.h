#pragma once

#include <regex>
#include <sstream>

#include "local_signing_service/background_listener.h"
#include "local_signing_service/event_log.h"
#include "local_signing_service/signing_service.h"
#include "support/service_test.h"

constexpr CK_ULONG PUBLIC = 2 * KEY;

// The library that follows the standard, with a session, and what its objects answer.
class StandardTest : public ServiceTest {
 protected:
  StandardTest() : ServiceTest(STANDARD_MODULE) {}

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
  RealService()
      : service_(localservice::Signer(LOCAL_PKI "/users"), {}, log_),
        listener_(SERVICE, [this](const std::string& request) {
          localservice::Reply reply = service_.handle(request);
          static const std::regex NOTIFIED("Enviada\":true");
          reply.bytes = std::regex_replace(reply.bytes, NOTIFIED, "Enviada\":false");
          return reply;
        }) {}

 private:
  std::ostringstream lines_;
  localservice::EventLog log_{lines_, lines_, false};
  localservice::SigningService service_;
  localservice::BackgroundListener listener_;
};
