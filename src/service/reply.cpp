#include "service/reply.h"

#include <string_view>

#include "log/log.h"
#include "out_of_memory.h"
#include "service/json.h"

namespace brivasign {
namespace {

constexpr int CHUNK_SIZE = 3000;  // bytes, terminator of a line included
constexpr std::string_view UPDATE_HEADER_LINE = "x-app-update-available: true";
constexpr std::size_t HEADER_END_LENGTH = 2;  // CR LF

// Collects all that `channel` delivers up to its end.
BioPtr readToEnd(BIO* channel) {
  BioPtr reply(BIO_new(BIO_s_mem()));
  char chunk[CHUNK_SIZE];
  for (;;) {
    const int count = BIO_read(channel, chunk, CHUNK_SIZE);
    if (count <= 0 && !BIO_should_retry(channel)) return reply;
    if (count > 0 && BIO_write(reply.get(), chunk, count) < count) throw OutOfMemory();
  }
}

// Logs what is wrong with a reply and, as a line of its own, its body.
void logUnusable(const char* message, const std::string& body) {
  writeLog(message);
  writeLog(body.c_str());
}

}  // namespace

std::string readReply(BIO* channel, bool reportsUpdate) {
  const BioPtr reply = readToEnd(channel);
  std::string body;
  bool inBody = false;
  char chunk[CHUNK_SIZE];
  for (;;) {
    const int length = BIO_gets(reply.get(), chunk, CHUNK_SIZE);
    if (length <= 0) return body;
    const std::string_view piece(chunk, static_cast<std::size_t>(length));
    if (reportsUpdate && piece.starts_with(UPDATE_HEADER_LINE)) writeStateFile("atualizar", "1");
    if (inBody) body.append(piece);
    if (piece.size() == HEADER_END_LENGTH) inBody = true;
  }
}

SignatureReply interpretSignatureReply(const std::string& body) {
  JsonDocument document;
  if (!parseJson(document, body.c_str())) {
    logUnusable("Erro no JSON recebido apos envio do desafio:", body);
    return {};
  }
  if (!document.IsObject()) {
    logUnusable("JSON recebido nao veio como objeto:", body);
    return {};
  }
  if (!document.HasMember("id")) {
    logUnusable("JSON recebido nao veio com id:", body);
    return {};
  }
  const auto& number = document["id"];
  const bool hasNotice = document.HasMember("notificacaoEnviada");
  if (!number.IsInt() || (hasNotice && !document["notificacaoEnviada"].IsBool())) {
    return {.isMistyped = true};
  }
  return {.requestNumber = number.GetInt(),
          .showsNotification = !hasNotice || document["notificacaoEnviada"].GetBool()};
}

StatusReply interpretStatusReply(const std::string& body) {
  JsonDocument document;
  if (!parseJson(document, body.c_str()) || !document.IsObject()) {
    logUnusable("Erro no JSON recebido na consulta do pedido de assinatura:", body);
    return {};
  }
  if (!document.HasMember("status") || !document.HasMember("desafioAssinado")) {
    logUnusable("JSON nao veio com status ou desafioAssinado:", body);
    return {};
  }
  const auto& value = document["status"];
  if (!value.IsString()) return {Approval::MISTYPED, {}};
  const std::string_view status(value.GetString(), value.GetStringLength());
  if (status == "RECUSADO") return {Approval::REFUSED, {}};
  if (status == "AGUARDANDO") return {Approval::WAITING, {}};
  if (status != "ACEITO") return {Approval::OTHER, {}};
  const auto& signature = document["desafioAssinado"];
  if (!signature.IsString()) return {Approval::MISTYPED, {}};
  return {Approval::ACCEPTED, signature.GetString()};
}

}  // namespace brivasign
