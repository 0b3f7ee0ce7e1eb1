#include "signature_request.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "base64.h"
#include "json.h"

namespace localservice {
namespace {

using HashName = std::pair<std::string_view, const EVP_MD* (*)()>;

constexpr std::array<HashName, 6> HASHES{{{"SHA1", EVP_sha1},
                                          {"SHA2_224", EVP_sha224},
                                          {"SHA2_256", EVP_sha256},
                                          {"SHA2_384", EVP_sha384},
                                          {"SHA2_512", EVP_sha512},
                                          {"MD5", EVP_md5}}};

// "PSS" leaves the length open; this one is the default of RSASSA-PSS-params in RFC 8017.
constexpr int DEFAULT_SALT_LENGTH = 20;

std::string stringMember(const json::Value& object, const char* name) {
  if (!object.HasMember(name) || !object[name].IsString()) {
    throw std::invalid_argument(std::string("the member ") + name + " is missing or no string");
  }
  return {object[name].GetString(), object[name].GetStringLength()};
}

PssScheme pssScheme(const SignatureRequest& request) {
  const auto known = std::find_if(HASHES.begin(), HASHES.end(),
                                  [&](const HashName& name) { return name.first == request.hash; });
  if (known == HASHES.end()) {
    throw std::invalid_argument("algoritmoHash names no known hash");
  }
  const EVP_MD* const digest = known->second();
  if (request.padding == "PSS_SALT_LEN_MD") {
    return {digest, EVP_MD_get_size(digest)};
  }
  if (request.padding == "PSS") {
    return {digest, DEFAULT_SALT_LENGTH};
  }
  throw std::invalid_argument("tipoPadding names no known padding");
}

}  // namespace

SignatureRequest parseSignatureRequest(const std::string& body, bool withPss) {
  json::Document object;
  // Iteratively, because recursion would let deeply nested input exhaust the stack.
  object.Parse<json::kParseIterativeFlag | json::kParseValidateEncodingFlag>(body.data(),
                                                                             body.size());
  if (object.HasParseError() || !object.IsObject()) {
    throw std::invalid_argument("the body is not a JSON object");
  }
  SignatureRequest request;
  if (!object.HasMember("certificadoId") || !object["certificadoId"].IsUint64()) {
    throw std::invalid_argument("the member certificadoId is missing or no whole number");
  }
  request.certificate = object["certificadoId"].GetUint64();
  request.process = stringMember(object, "pid");
  request.application = stringMember(object, "executavel");
  const auto challenge = decodeBase64(stringMember(object, "desafio"));
  if (!challenge) {
    throw std::invalid_argument("the member desafio is not standard base64");
  }
  request.challenge = *challenge;
  if (withPss) {
    request.hash = stringMember(object, "algoritmoHash");
    request.padding = stringMember(object, "tipoPadding");
    request.pss = pssScheme(request);
  } else if (object.HasMember("algoritmoHash") || object.HasMember("tipoPadding")) {
    throw std::invalid_argument("algoritmoHash and tipoPadding belong to the v2 path");
  }
  return request;
}

}  // namespace localservice
