#include "support/operation_rules.h"
#include "support/service_test.h"

// The operation state has no reader, but every function tests it before the session: with a wrong
// session a call answers for its state alone and changes nothing.

namespace {

constexpr std::size_t STATES = 13;

class OperationState : public ServiceTest {
 protected:
  OperationState() {
    pointers = {{"in", in.data()}, {"out", out.data()}};
    run("rsa : [1]; sha1 : [220]");
  }

  CK_RV callWith(const char* session, const std::string& name) {
    numbers["n"] = 20;
    return call(name + session + rules.at(name).arguments);
  }

  // The state in which just the calls are accepted that are.
  std::size_t state() {
    std::size_t found = 0;
    const auto fits = [&](const auto& row) {
      return row.second.leads.contains(found) ==
             (callWith(" 7 ", row.first) == CKR_SESSION_HANDLE_INVALID);
    };
    while (found < STATES && !std::ranges::all_of(rules, fits)) ++found;
    return found;
  }

  // Makes the calls of initialisation that lead there from none.
  void enter(std::size_t wanted) {
    if (wanted == 0) call("C_CloseSession 1");
    for (const auto& [name, rule] : rules) {
      for (const auto& [from, to] : rule.leads) {
        if (to != wanted || !name.ends_with("Init")) continue;
        enter(from);
        callWith(" 1 ", name);
        return;
      }
    }
  }

  const std::map<std::string, OperationRow> rules = operationRules();
  std::string in = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  std::string out = std::string(256, '\1');
};

}  // namespace

TEST_F(OperationState, EveryFunctionInEveryState) {
  ASSERT_EQ(rules.size(), 32U);
  for (std::size_t from = 0; from < STATES; ++from) {
    for (const auto& [name, rule] : rules) {
      SCOPED_TRACE(name + " in state " + std::to_string(from));
      enter(from);
      ASSERT_EQ(state(), from);
      const auto lead = rule.leads.find(from);
      const bool accepted = lead != rule.leads.end();
      const CK_RV refusal =
          name.ends_with("Init") ? CKR_OPERATION_ACTIVE : CKR_OPERATION_NOT_INITIALIZED;
      // Without what it needs, too, which counts later.
      EXPECT_EQ(call(name + " 7"), accepted ? CKR_SESSION_HANDLE_INVALID : refusal);
      run("C_Finalize = 0; " + name + " 7 = 190; C_Initialize = 0");
      EXPECT_EQ(callWith(" 1 ", name), accepted ? CKR_OK : refusal);
      EXPECT_EQ(state(), accepted ? lead->second : from);
    }
  }
}
