#pragma once

#include <string>

#include "openssl_handles.h"

namespace brivasign {

enum class NameForm {
  AS_STORED,  // nothing converted, up to the first zero byte
  UTF8,
};

// Returns "(" serial number in decimal ") " common name: what a person tells certificates apart by.
// The name is the subject's first, in the given form; none where it has no such form.
std::string certificateLabel(const X509* certificate, NameForm form = NameForm::AS_STORED);

}  // namespace brivasign
