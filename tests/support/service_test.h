#pragma once

#include "local_signing_service/background_listener.h"
#include "local_signing_service/ports.h"
#include "support/module_test.h"
#include "support/test_clock.h"

// The service of the production environment.
const localservice::ListenerOptions SERVICE =
    localservice::listenerOptions(LOCAL_PKI, localservice::PRODUCTION_PORT, "localhost");

// A service on a thread of this process that answers with a script: reply k to request k, the last
// one for good.
class ScriptedService {
 public:
  explicit ScriptedService(std::vector<localservice::Reply> script,
                           const localservice::ListenerOptions& options = SERVICE);

  // What has been received, in full. Only between calls of the module.
  std::vector<std::string> requests;

  // How long, on the tests' clock, the service takes for each reply, in microseconds.
  long replyTime = 0;

 private:
  localservice::Reply answer(const std::string& request);

  std::vector<localservice::Reply> replies;
  localservice::BackgroundListener listener;
};

// A well-formed reply with `body`, and with `headers` (each with its line end) behind the status.
localservice::Reply reply(const std::string& body, const std::string& headers = "");

// Filed as number 77, without a notification; then the states of it.
const localservice::Reply FILED = reply(R"({"id":77,"notificacaoEnviada":false})");
const localservice::Reply WAITING = reply(R"({"status":"AGUARDANDO","desafioAssinado":null})");
const localservice::Reply REFUSED = reply(R"({"status":"RECUSADO","desafioAssinado":7})");
localservice::Reply accepted(const std::string& base64 = "AAECAwQ=");

// What the log says of failures, behind or before what caused them.
using Log = std::vector<std::string>;
const std::string BAD_FILING = "Erro no JSON recebido apos envio do desafio:";
const std::string BAD_STATE = "Erro no JSON recebido na consulta do pedido de assinatura:";
const std::string FILING_FAILED = "Erro ao enviar pedido de assinatura.";

// The path of this program as the module has to find it.
std::string executablePath();

// A module with an open session, and what signing with it takes.
class ServiceTest : public ModuleTest {
 protected:
  explicit ServiceTest(const char* modulePath = LOCAL_MODULE);

  // Signs `data` with PKCS#1 v1.5 and the key of certificate 7 into `signature`.
  CK_RV sign(const std::string& data = "data");
  // The same after a C_SignInit of one's own.
  CK_RV signOnly(const std::string& data = "data");

  // The log without the path of the executable, which every request writes to it, and without the
  // lines of the TLS library's queue.
  [[nodiscard]] Log logOfService() const;

  // Signs at a service that answers with `script`. It gets so many requests, the log holds `lines`,
  // the operation is over, and nothing is left open.
  void expectOutcome(const std::string& name, std::vector<localservice::Reply> script,
                     std::size_t requests, const Log& lines, CK_RV result);

  localservice::ListenerOptions options = SERVICE;
  const std::string executable = executablePath();
  std::string signature = std::string(256, '\xEE');
  CK_ULONG signatureLen = 10;  // never read
};
