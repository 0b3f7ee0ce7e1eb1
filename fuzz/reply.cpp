#include "service/reply.h"

#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "certcache/certcache.h"
#include "pkcs11-brivasign-standard/entry_points.h"
#include "service/base64.h"
#include "service/secure_channel.h"

using namespace brivasign;
namespace library = brivasign::standard;

namespace {

constexpr CK_OBJECT_HANDLE PRIVATE_KEY = 0x80000007;
const std::string DATA = "data";
const std::string FILED = "\r\n{\"id\":1,\"notificacaoEnviada\":false}";
const std::string REFUSED = "\r\n{\"status\":\"RECUSADO\",\"desafioAssinado\":\"\"}";

std::vector<std::string> replies;  // what the service says next, the last for good
std::size_t exchanges;

// Puts a user's certificate into the cache. Returns the signature of DATA by that user's key.
std::string makeUser() {
  std::filesystem::copy_file(LOCAL_PKI "/users/1001.cer", certificateFilePath(7));
  std::FILE* const signer =
      popen("printf data | openssl pkeyutl -sign -inkey " LOCAL_PKI "/users/1001.key", "r");
  std::string signature(256, '\0');
  assert(std::fread(signature.data(), 1, 256, signer) == 256 && pclose(signer) == 0);
  return signature;
}

// Signs DATA at a service that answers with `script`: whatever it says, only the right signature
// comes out.
void sign(std::vector<std::string> script) {
  static const std::string right = makeUser();
  static const CK_SESSION_HANDLE session = [] {
    CK_SESSION_HANDLE opened = 0;
    assert(library::C_Initialize(nullptr) == CKR_OK);
    assert(library::C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &opened) == CKR_OK);
    return opened;
  }();
  static const std::string base64 =
      encodeBase64(reinterpret_cast<const unsigned char*>(right.data()), right.size());
  for (std::string& reply : script) {
    for (std::size_t i = 0; (i = reply.find('$')) != std::string::npos;)
      reply.replace(i, 1, base64);
  }
  replies = std::move(script);
  exchanges = 0;
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  assert(library::C_SignInit(session, &mechanism, PRIVATE_KEY) == CKR_OK);
  std::string data = DATA;
  const std::string untouched(300, '\xEE');
  std::string made = untouched;
  CK_ULONG length = made.size();
  const CK_RV result =
      library::C_Sign(session, reinterpret_cast<CK_BYTE_PTR>(data.data()), data.size(),
                      reinterpret_cast<CK_BYTE_PTR>(made.data()), &length);
  assert(result != CKR_OK || made == right + untouched.substr(right.size()));
  assert(result == CKR_OK || made == untouched);
}

}  // namespace

// In place of a connection: what is written to it goes nowhere.
bool brivasign::openSecureChannel(SslContextPtr& /*outContext*/, BioPtr& outChannel,
                                  const char* /*host*/, const char* /*port*/,
                                  HostNameCheck /*hostNameCheck*/) {
  const std::string& reply = replies[std::min(exchanges++, replies.size() - 1)];
  outChannel.reset(BIO_new_mem_buf(reply.data(), static_cast<int>(reply.size())));
  return true;
}

extern "C" int usleep(useconds_t /*microseconds*/) { return 0; }
extern "C" int system(const char* /*command*/) { return 0; }

// A byte that tells whether updates are reported, and whether this is the reply to the request or
// to the query, then what the service sends. To the library, "$" stands for the right signature.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const BioPtr channel(BIO_new_mem_buf(data + 1, static_cast<int>(size - 1)));
  const std::string body = readReply(channel.get(), data[0] % 2 != 0);
  const std::string sent(data + 1, data + size);
  assert(sent.ends_with(body));
  interpretSignatureReply(body);
  const StatusReply answer = interpretStatusReply(body);
  std::string decoded(answer.signature.size() / 4 * 3 + 3, '\0');
  const std::size_t length =
      decodeBase64(answer.signature.c_str(), reinterpret_cast<unsigned char*>(decoded.data()));
  assert(length <= decoded.size());

  sign(data[0] / 2 % 2 != 0 ? std::vector{sent, REFUSED} : std::vector{FILED, sent, REFUSED});
  return 0;
}
