#pragma once

#include <ctime>
#include <string>

#include "openssl_handles.h"

namespace diagnosis {

// Returns a distinguished name in one line, in UTF-8.
std::string nameText(X509_NAME* name);

// Returns a point in time in UTC, such as "2026-11-21T12:38:27Z".
std::string timeText(const std::tm& utc);

// The same for a time in a certificate; "unreadable" when it is malformed.
std::string timeText(const ASN1_TIME* time);

// Returns whether `certificate` is valid now: 0, or -1 when it was, or 1 when it will be.
int compareValidity(const X509* certificate);

}  // namespace diagnosis
