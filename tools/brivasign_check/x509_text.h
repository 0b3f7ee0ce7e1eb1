#pragma once

#include <string>

#include "openssl_handles.h"

namespace diagnosis {

// Returns a distinguished name in one line, in UTF-8.
std::string nameText(X509_NAME* name);

// Returns a point in time in words, in UTC.
std::string timeText(const ASN1_TIME* time);

// Returns whether `certificate` is valid now: 0, or -1 when it was, or 1 when it will be.
int compareValidity(const X509* certificate);

}  // namespace diagnosis
