#include "private_key.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace localservice {
namespace {

int refusePassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*context*/) {
  return -1;
}

}  // namespace

std::string readFile(const std::filesystem::path& file) {
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  std::string content;
  std::array<char, 4096> block{};
  while (stream) {
    stream.read(block.data(), block.size());
    content.append(block.data(), static_cast<std::size_t>(stream.gcount()));
  }
  // Only the end of the file is a good reason to stop: a folder opens, but cannot be read.
  if (!stream.eof()) {
    throw std::runtime_error("cannot read " + file.string() + ": " +
                             std::generic_category().message(errno));
  }
  return content;
}

PrivateKey loadPrivateKey(const std::filesystem::path& file) {
  const std::string pem = readFile(file);
  const OpensslHandle<BIO, BIO_free> source(
      BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  PrivateKey key(PEM_read_bio_PrivateKey(source.get(), nullptr, refusePassword, nullptr));
  ERR_clear_error();
  if (!key) {
    throw std::runtime_error(file.string() + " holds no unencrypted private key in PEM form");
  }
  return key;
}

}  // namespace localservice
