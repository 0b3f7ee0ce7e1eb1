#include "pkcs11-brivasign/module_state.h"

namespace brivasign {

std::uint8_t moduleInitialized;
std::uint8_t sessionOpen;
CK_STATE sessionState;
std::uint32_t activeOperation;
std::uint64_t signCertificateId;
const CK_RSA_PKCS_PSS_PARAMS* signPssParams;
char messageBuffer[MESSAGE_BUFFER_SIZE];

}  // namespace brivasign
