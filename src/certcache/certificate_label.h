#pragma once

#include <string>

#include "openssl_handles.h"

namespace brivasign {

// Returns "(" serial number in decimal ") " common name: what a person tells certificates apart by.
// The name is the subject's first, as stored, nothing converted, up to its first zero byte.
std::string certificateLabel(const X509* certificate);

}  // namespace brivasign
