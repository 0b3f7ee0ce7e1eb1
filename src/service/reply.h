#pragma once

#include <cstdint>
#include <string>

#include "openssl_handles.h"

// The service's replies: reading them off a channel and understanding their bodies.

namespace brivasign {

// Reads a reply from `channel` up to the end of the connection and returns its body: every byte
// after the first line of exactly two bytes. The status line and the headers are not examined,
// except that, when `reportsUpdate` is set, each line that begins with the service's announcement
// of an update writes the flag file for the companion application.
std::string readReply(BIO* channel, bool reportsUpdate);

// What the reply to a signature request says.
struct SignatureReply {
  std::int32_t requestNumber = 0;  // 0: not usable
  bool showsNotification = false;
  bool isMistyped = false;  // a member has the wrong type, and nothing that it says counts
};

// Understands the body of a signature request's reply and logs what makes it unusable, but for a
// member of the wrong type, which each library answers in its own way.
SignatureReply interpretSignatureReply(const std::string& body);

enum class Approval {
  UNUSABLE,  // not such an object
  ACCEPTED,
  REFUSED,
  WAITING,
  OTHER,     // a status that is none of these
  MISTYPED,  // a member has the wrong type
};

// What the reply to a status query says.
struct StatusReply {
  Approval approval = Approval::UNUSABLE;
  std::string signature;  // base64, when accepted
};

// Understands the body of a status query's reply and logs what makes it unusable, but for a member
// of the wrong type, which each library answers in its own way.
StatusReply interpretStatusReply(const std::string& body);

}  // namespace brivasign
