#include "service/reply.h"

#include <openssl/pem.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <vector>

#include "certcache/certcache.h"
#include "pkcs11-brivasign-standard/entry_points.h"
#include "service/base64.h"
#include "service/json.h"
#include "service/secure_channel.h"

using namespace brivasign;
namespace library = brivasign::standard;

namespace {

constexpr CK_OBJECT_HANDLE PRIVATE_KEY = 0x80000007;
const std::string DATA = "data";
const std::string FILED = "\r\n{\"id\":1,\"notificacaoEnviada\":false}";
const std::string REFUSED = "\r\n{\"status\":\"RECUSADO\",\"desafioAssinado\":\"\"}";

std::string right;                 // the signature of DATA
std::vector<std::string> replies;  // what the service says next, the last for good
std::size_t exchanges;

// Puts a certificate with a key of its own into the cache. Returns the key's signature of DATA.
std::string makeUser() {
  const KeyPtr key(EVP_PKEY_new());
  RSA* const rsa = RSA_new();
  const BignumPtr exponent(BN_new());
  BN_set_word(exponent.get(), RSA_F4);
  RSA_generate_key_ex(rsa, 1024, exponent.get(), nullptr);
  EVP_PKEY_assign_RSA(key.get(), rsa);
  const X509Ptr certificate(X509_new());
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 1);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  const BioPtr file(BIO_new_file(certificateFilePath(7).c_str(), "wb"));
  assert(i2d_X509_bio(file.get(), certificate.get()) == 1);
  std::string signature(128, '\0');
  assert(RSA_private_encrypt(
             static_cast<int>(DATA.size()), reinterpret_cast<const unsigned char*>(DATA.data()),
             reinterpret_cast<unsigned char*>(signature.data()), rsa, RSA_PKCS1_PADDING) == 128);
  return signature;
}

// Signs DATA at a service that answers with `script`: whatever it says, only the right signature
// comes out.
void sign(std::vector<std::string> script) {
  static const CK_SESSION_HANDLE session = [] {
    CK_SESSION_HANDLE opened = 0;
    assert(library::C_Initialize(nullptr) == CKR_OK);
    right = makeUser();
    assert(library::C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &opened) == CKR_OK);
    return opened;
  }();
  const std::string base64 =
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
  const std::string untouched(200, '\xEE');
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
  assert(std::string(data + 1, data + size).ends_with(body));
  JsonDocument json;
  const bool isObject = parseJson(json, body.c_str()) && json.IsObject();
  const auto has = [&](const char* name) { return isObject && json.HasMember(name); };

  const bool hasId = has("id"), hasNotice = has("notificacaoEnviada");
  bool isMistyped = hasId && !json["id"].IsInt();
  isMistyped |= hasId && hasNotice && !json["notificacaoEnviada"].IsBool();
  const SignatureReply filed = interpretSignatureReply(body);
  assert(filed.isMistyped == isMistyped);
  assert(filed.requestNumber == (hasId && !isMistyped ? json["id"].GetInt() : 0));
  const bool hasBoth = has("status") && has("desafioAssinado");
  const bool isAccepted = hasBoth && json["status"] == "ACEITO";
  isMistyped = hasBoth && !json["status"].IsString();
  isMistyped |= isAccepted && !json["desafioAssinado"].IsString();
  const StatusReply answer = interpretStatusReply(body);
  assert((answer.approval == Approval::MISTYPED) == isMistyped);
  const bool isUsed = isAccepted && !isMistyped;
  assert(answer.signature == (isUsed ? json["desafioAssinado"].GetString() : ""));
  std::string decoded(answer.signature.size() / 4 * 3 + 3, '\0');
  const std::size_t length =
      decodeBase64(answer.signature.c_str(), reinterpret_cast<unsigned char*>(decoded.data()));
  assert(length <= decoded.size());

  const std::string sent(data + 1, data + size);
  if (data[0] / 2 % 2 != 0) {
    sign({sent, REFUSED});
  } else {
    sign({FILED, sent, REFUSED});
  }
  return 0;
}
