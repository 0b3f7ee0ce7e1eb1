#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

// Returns `count` certificates in DER, all of one length, with a serial number and a subject each
// of its own: what a search has to tell apart. They are made after user 1001 of the local PKI in
// `pki`.
std::vector<std::string> makeCertificates(const std::filesystem::path& pki, std::size_t count);

}  // namespace bench
