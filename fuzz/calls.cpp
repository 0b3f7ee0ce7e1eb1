#include <cassert>
#include <list>
#include <numeric>
#include <vector>

#include "pkcs11-brivasign/module_state.h"
#include "pkcs11.h"
#include "support/operation_rules.h"

using namespace brivasign;
// Each argument is one machine word on the platforms served, so one type calls all functions.
using Word = CK_ULONG;
using AnyFunction = CK_RV (*)(Word, Word, Word, Word, Word, Word, Word, Word);

// In and out of range: handles, flags and the like; lengths; attributes and mechanisms.
constexpr Word NUMBERS[] = {1, 1, 1, 2, 3, 4, 6, 0, 0x80000007};
constexpr Word LENGTHS[] = {10, 20, 40, 0, 1, 8, 16, 256};
constexpr Word TYPES[] = {1,    0,     3,     6,     9,     0xD,   0x11,
                          0x81, 0x102, 0x131, 0x133, 0x220, 0x364, 0x1082};

[[clang::no_sanitize("function")]] CK_RV call(AnyFunction entry, const Word (&a)[8]) {
  return entry(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]);
}

// Calls of the whole function table, each a byte for the function and bytes for its arguments,
// which keep within what a caller may pass.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static CK_FUNCTION_LIST_PTR list;
  assert(C_GetFunctionList(&list) == CKR_OK);
  static const std::vector<std::tuple<std::string, std::string, AnyFunction>> FUNCTIONS = {
#define CK_FUNCTION_ENTRY(name, arguments) {#name, #arguments, AnyFunction(Word(list->name))},
#include "pkcs11f.h"
  };
  static const auto RULES = operationRules();
  static Word scratch[32];  // as large as any parameter and attribute, and as lasting
  const auto next = [&]() -> Word { return size > 0 ? --size, *data++ : 0; };
  const auto pick = [&](const auto& from) -> Word { return from[next() % std::size(from)]; };
  const auto orNull = [&](auto* target) { return next() % 4 == 3 ? nullptr : target; };
  bool initialized = moduleInitialized = 0, open = sessionOpen = 0;
  Word login = sessionState = 0, operation = activeOperation = OP_NONE;
  while (size > 0) {
    const auto& [name, arguments, entry] = FUNCTIONS[next() % FUNCTIONS.size()];
    Word a[8] = {}, length = 0, count = 0;
    std::list<std::vector<CK_BYTE>> blocks;
    std::istringstream words(arguments.substr(1));
    for (std::string type, parameter; words >> type >> parameter; ++count) {
      a[count] = type == "CK_ULONG" ? length : type == "CK_NOTIFY" ? 0 : pick(NUMBERS);
      if (type == "CK_ULONG_PTR") a[count] = Word(name == "C_WrapKey" ? &length : orNull(&length));
      if (type == "CK_ULONG_PTR" || !type.ends_with("_PTR")) continue;
      length = type == "CK_MECHANISM_PTR" ? 1 : pick(LENGTHS);
      // A signature is as long as it is, whatever length is offered.
      const Word room = type == "CK_BYTE_PTR" ? length : (length + 10) * sizeof(CK_ATTRIBUTE);
      auto& block = blocks.emplace_back(name == "C_Sign" ? 256 : room);
      std::iota(block.begin(), block.end(), CK_BYTE{0});
      // A mechanism is laid out like an attribute.
      auto* const entries = reinterpret_cast<CK_ATTRIBUTE*>(block.data());
      const bool isRead = type == "CK_ATTRIBUTE_PTR" || type == "CK_MECHANISM_PTR";
      for (Word i = 0; isRead && i < length; ++i) {
        entries[i] = {pick(TYPES), orNull(scratch), pick(LENGTHS)};
      }
      a[count] = Word(orNull(entries));
    }
    if (name == "C_Sign" && next() % 16 != 0) a[3] = 0;  // failing to reach a service takes long
    const CK_RV result = call(entry, a);

    const auto row = RULES.find(name);
    const bool isAccepted = row == RULES.end() || row->second.leads.contains(operation);
    assert(isAccepted ? result != CKR_OPERATION_ACTIVE && result != CKR_OPERATION_NOT_INITIALIZED
                      : result != CKR_OK);
    if (name == "C_Sign" && result == CKR_FUNCTION_FAILED) operation = OP_NONE;
    if (result == CKR_OK) {
      if (row != RULES.end() && !(row->second.arguments.ends_with("out &n") && a[count - 2] == 0)) {
        operation = row->second.leads.at(operation);
      }
      if (name == "C_Initialize" || name == "C_Finalize") initialized = !initialized;
      if (name == "C_OpenSession" || name == "C_CloseAllSessions") open = name == "C_OpenSession";
      if (name == "C_OpenSession") login = a[1] & CKF_RW_SESSION;
      if (name == "C_Login") login = a[1] == CKU_SO ? CKS_RW_SO_FUNCTIONS : login + 1;
      if (name.starts_with("C_Close")) login = operation = 0;
    }
    assert(moduleInitialized == initialized && sessionOpen == open);
    assert(sessionState == login && activeOperation == operation);
  }
  return 0;
}
