#include "service/reply.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cassert>
#include <csignal>

#include "service/base64.h"
#include "service/json.h"

using namespace brivasign;

// Makes the call that `mustEnd` the process in one of its own: any other end is a finding.
template <class Reply>
Reply interpreted(Reply (*interpret)(const std::string&), const std::string& body, bool mustEnd) {
  if (!mustEnd) return interpret(body);
  if (fork() == 0) {
    std::signal(SIGABRT, SIG_DFL);
    _exit((interpret(body), 0));
  }
  int status = 0;
  assert(TEMP_FAILURE_RETRY(wait(&status)) > 0 && WTERMSIG(status) == SIGABRT);
  return {};
}

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
  bool mustEnd = hasId && !json["id"].IsInt();
  mustEnd |= hasId && hasNotice && !json["notificacaoEnviada"].IsBool();
  const SignatureReply filed = interpreted(interpretSignatureReply, body, mustEnd);
  assert(mustEnd || filed.requestNumber == (hasId ? json["id"].GetInt() : 0));
  const bool hasBoth = has("status") && has("desafioAssinado");
  const bool isAccepted = hasBoth && json["status"] == "ACEITO";
  mustEnd = hasBoth && !json["status"].IsString();
  mustEnd |= isAccepted && !json["desafioAssinado"].IsString();
  const StatusReply answer = interpreted(interpretStatusReply, body, mustEnd);
  assert(mustEnd || answer.signature == (isAccepted ? json["desafioAssinado"].GetString() : ""));
  std::string decoded(answer.signature.size() / 4 * 3 + 3, '\0');
  decodeBase64(answer.signature.c_str(), reinterpret_cast<unsigned char*>(decoded.data()));
  return 0;
}
