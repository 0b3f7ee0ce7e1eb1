#include "service/message_format.h"

#include "log/version.h"

namespace brivasign {
namespace {

const char* hashName(CK_MECHANISM_TYPE hashAlg) {
  switch (hashAlg) {
    case CKM_SHA256:
      return "SHA2_256";
    case CKM_SHA224:
      return "SHA2_224";
    case CKM_SHA384:
      return "SHA2_384";
    case CKM_SHA512:
      return "SHA2_512";
    case CKM_MD5:
      return "MD5";
    default:
      return "SHA1";
  }
}

std::string formatBody(const SignatureRequest& request) {
  std::string body = R"({"certificadoId":)" + std::to_string(request.certificateId) +
                     R"(,"desafio":")" + request.challenge + R"(","pid":")" +
                     std::to_string(request.processId) + R"(","executavel":")" +
                     request.executableName + '"';
  if (request.pss != nullptr) {
    body.append(R"(,"algoritmoHash":")")
        .append(request.pss->hash)
        .append(R"(","tipoPadding":")")
        .append(request.pss->padding)
        .append("\"");
  }
  return body + '}';
}

}  // namespace

PssNames pssNames(const CK_RSA_PKCS_PSS_PARAMS& parameters, std::size_t dataLength) {
  return {hashName(parameters.hashAlg), parameters.sLen == dataLength ? "PSS_SALT_LEN_MD" : "PSS"};
}

std::string formatSignatureRequest(const SignatureRequest& request, const char* host,
                                   const char* machineId) {
  const std::string body = formatBody(request);
  std::string text = "POST /brivasign-api/api/";
  text.append(request.pss != nullptr ? "v2/" : "")
      .append("drivers/assinatura HTTP/1.1\r\nHost: ")
      .append(host)
      .append("\r\nContent-Type: application/json\r\nX-BRIVASIGN-UUID: ")
      .append(machineId)
      .append("\r\nx-app-version: ")
      .append(MODULE_VERSION)
      .append("\r\nx-app-so: MACOS_64\r\nConnection: close\r\nContent-Length: ")
      .append(std::to_string(body.size()))
      .append("\r\n\r\n")
      .append(body)
      .append("\r\n");  // not counted in Content-Length: what the service has always received
  return text;
}

std::string formatStatusQuery(std::int32_t requestNumber, const char* host, const char* machineId) {
  std::string text = "GET /brivasign-api/api/drivers/assinatura/";
  text.append(std::to_string(requestNumber))
      .append(" HTTP/1.1\r\nHost: ")
      .append(host)
      .append(
          "\r\nContent-Type: application/json\r\nCache-Control: no-cache\r\n"
          "Connection: close\r\nX-BRIVASIGN-UUID: ")
      .append(machineId)
      .append("\r\n\r\n");
  return text;
}

}  // namespace brivasign
