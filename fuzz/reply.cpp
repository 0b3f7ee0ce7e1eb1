#include "service/reply.h"

#include <cassert>

#include "service/base64.h"
#include "service/json.h"

using namespace brivasign;

// A byte that tells whether updates are reported, then what the service sends.
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
  return 0;
}
