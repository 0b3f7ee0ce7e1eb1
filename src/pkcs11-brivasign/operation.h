#pragma once

#include <algorithm>
#include <array>
#include <initializer_list>

#include "pkcs11-brivasign/module_state.h"
#include "pkcs11.h"

// Which call is accepted in which state of `activeOperation`, and where it leads.

namespace brivasign {

// A state in which a call is accepted and the state after the call has done its work.
struct Transition {
  std::uint32_t from;
  std::uint32_t to;
};

// One call's row of the table: its transitions and the answer in every other state.
struct OperationRule {
  static constexpr std::size_t MOST_TRANSITIONS = 3;

  CK_RV refusal;
  std::size_t count;
  std::array<Transition, MOST_TRANSITIONS> transitions;

  constexpr OperationRule(CK_RV wrongState, std::initializer_list<Transition> accepted)
      : refusal(wrongState), count(accepted.size()), transitions{} {
    std::copy(accepted.begin(), accepted.end(), transitions.begin());
  }

  // Returns the transition that leaves `state`, or null when the call is not accepted there.
  [[nodiscard]] constexpr const Transition* from(std::uint32_t state) const {
    const Transition* const end = transitions.data() + count;
    const Transition* const found = std::find_if(
        transitions.data(), end, [state](const Transition& each) { return each.from == state; });
    return found == end ? nullptr : found;
  }
};

// A call that starts an operation.
constexpr OperationRule starts(std::initializer_list<Transition> accepted) {
  return {CKR_OPERATION_ACTIVE, accepted};
}

// A call that continues or ends an operation.
constexpr OperationRule continues(std::initializer_list<Transition> accepted) {
  return {CKR_OPERATION_NOT_INITIALIZED, accepted};
}

// A call that leaves the one state in which it is accepted as it is.
constexpr OperationRule stays(std::uint32_t state) { return continues({{state, state}}); }

namespace rules {

inline constexpr OperationRule FIND_OBJECTS_INIT = starts({{OP_NONE, OP_FIND}});
inline constexpr OperationRule FIND_OBJECTS = stays(OP_FIND);
inline constexpr OperationRule FIND_OBJECTS_FINAL = continues({{OP_FIND, OP_NONE}});

inline constexpr OperationRule ENCRYPT_INIT =
    starts({{OP_NONE, OP_ENCRYPT}, {OP_DIGEST, OP_DIGEST_ENCRYPT}, {OP_SIGN, OP_SIGN_ENCRYPT}});
inline constexpr OperationRule ENCRYPT = continues({{OP_ENCRYPT, OP_NONE}});
inline constexpr OperationRule ENCRYPT_UPDATE = stays(OP_ENCRYPT);
inline constexpr OperationRule ENCRYPT_FINAL =
    continues({{OP_ENCRYPT, OP_NONE}, {OP_DIGEST_ENCRYPT, OP_DIGEST}, {OP_SIGN_ENCRYPT, OP_SIGN}});

inline constexpr OperationRule DECRYPT_INIT =
    starts({{OP_NONE, OP_DECRYPT}, {OP_DIGEST, OP_DECRYPT_DIGEST}, {OP_VERIFY, OP_DECRYPT_VERIFY}});
inline constexpr OperationRule DECRYPT = continues({{OP_DECRYPT, OP_NONE}});
inline constexpr OperationRule DECRYPT_UPDATE = stays(OP_DECRYPT);
inline constexpr OperationRule DECRYPT_FINAL = continues(
    {{OP_DECRYPT, OP_NONE}, {OP_DECRYPT_DIGEST, OP_DIGEST}, {OP_DECRYPT_VERIFY, OP_VERIFY}});

inline constexpr OperationRule DIGEST_INIT = starts(
    {{OP_NONE, OP_DIGEST}, {OP_ENCRYPT, OP_DIGEST_ENCRYPT}, {OP_DECRYPT, OP_DECRYPT_DIGEST}});
inline constexpr OperationRule DIGEST = continues({{OP_DIGEST, OP_NONE}});
inline constexpr OperationRule DIGEST_UPDATE = stays(OP_DIGEST);
inline constexpr OperationRule DIGEST_KEY = stays(OP_DIGEST);
inline constexpr OperationRule DIGEST_FINAL = continues(
    {{OP_DIGEST, OP_NONE}, {OP_DIGEST_ENCRYPT, OP_ENCRYPT}, {OP_DECRYPT_DIGEST, OP_DECRYPT}});

inline constexpr OperationRule SIGN_INIT =
    starts({{OP_NONE, OP_SIGN}, {OP_ENCRYPT, OP_SIGN_ENCRYPT}});
inline constexpr OperationRule SIGN = continues({{OP_SIGN, OP_NONE}});
inline constexpr OperationRule SIGN_UPDATE = stays(OP_SIGN);
inline constexpr OperationRule SIGN_FINAL =
    continues({{OP_SIGN, OP_NONE}, {OP_SIGN_ENCRYPT, OP_ENCRYPT}});
inline constexpr OperationRule SIGN_RECOVER_INIT = starts({{OP_NONE, OP_SIGN_RECOVER}});
inline constexpr OperationRule SIGN_RECOVER = continues({{OP_SIGN_RECOVER, OP_NONE}});

inline constexpr OperationRule VERIFY_INIT =
    starts({{OP_NONE, OP_VERIFY}, {OP_DECRYPT, OP_DECRYPT_VERIFY}});
inline constexpr OperationRule VERIFY = continues({{OP_VERIFY, OP_NONE}});
inline constexpr OperationRule VERIFY_UPDATE = stays(OP_VERIFY);
inline constexpr OperationRule VERIFY_FINAL =
    continues({{OP_VERIFY, OP_NONE}, {OP_DECRYPT_VERIFY, OP_DECRYPT}});
inline constexpr OperationRule VERIFY_RECOVER_INIT = starts({{OP_NONE, OP_VERIFY_RECOVER}});
inline constexpr OperationRule VERIFY_RECOVER = continues({{OP_VERIFY_RECOVER, OP_NONE}});

inline constexpr OperationRule DIGEST_ENCRYPT_UPDATE = stays(OP_DIGEST_ENCRYPT);
inline constexpr OperationRule DECRYPT_DIGEST_UPDATE = stays(OP_DECRYPT_DIGEST);
inline constexpr OperationRule SIGN_ENCRYPT_UPDATE = stays(OP_SIGN_ENCRYPT);
inline constexpr OperationRule DECRYPT_VERIFY_UPDATE = stays(OP_DECRYPT_VERIFY);

}  // namespace rules

// Refuses the call that `rule` describes unless the operation in progress accepts it.
inline CK_RV operation(const OperationRule& rule) {
  return rule.from(activeOperation) != nullptr ? CKR_OK : rule.refusal;
}

// Moves `activeOperation` as `rule` says. Returns CKR_OK, or CKR_FUNCTION_FAILED when the state
// does not accept the call, which `operation` has refused before.
inline CK_RV advance(const OperationRule& rule) {
  const Transition* const transition = rule.from(activeOperation);
  if (transition == nullptr) return CKR_FUNCTION_FAILED;
  activeOperation = transition->to;
  return CKR_OK;
}

}  // namespace brivasign
