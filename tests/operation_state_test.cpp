#include "support/module_test.h"
#include "support/operation_rules.h"

// The operation state has no reader, but every function tests it before the session: with a wrong
// session a call answers for its state alone and changes nothing.

namespace {

// For each state the function that it alone accepts, and the calls that lead to it from none.
constexpr const char* STATES[] = {"",
                                  "C_FindObjects C_FindObjectsInit",
                                  "C_Encrypt C_EncryptInit",
                                  "C_Decrypt C_DecryptInit",
                                  "C_Digest C_DigestInit",
                                  "C_Sign C_SignInit",
                                  "C_SignRecover C_SignRecoverInit",
                                  "C_Verify C_VerifyInit",
                                  "C_VerifyRecover C_VerifyRecoverInit",
                                  "C_DigestEncryptUpdate C_EncryptInit C_DigestInit",
                                  "C_DecryptDigestUpdate C_DecryptInit C_DigestInit",
                                  "C_SignEncryptUpdate C_EncryptInit C_SignInit",
                                  "C_DecryptVerifyUpdate C_DecryptInit C_VerifyInit"};

class OperationState : public ModuleTest {
 protected:
  OperationState() {
    openSession();
    pointers = {{"rsa", &rsa}, {"sha1", &sha1}, {"in", in.data()}, {"out", out.data()}};
  }

  CK_RV callWith(const char* session, const std::string& name) {
    numbers["n"] = 20;
    return call(name + session + rules.at(name).arguments);
  }

  std::size_t state() {
    std::size_t found = 0;
    for (std::size_t i = 1; i < std::size(STATES); ++i) {
      const std::string witness = STATES[i];
      if (callWith(" 7 ", witness.substr(0, witness.find(' '))) == CKR_SESSION_HANDLE_INVALID) {
        found = i;
      }
    }
    return found;
  }

  void enter(std::size_t wanted) {
    call("C_CloseSession 1");
    std::istringstream road(STATES[wanted]);
    std::string name;
    for (road >> name; road >> name;) callWith(" 1 ", name);
    ASSERT_EQ(state(), wanted);
  }

  const std::map<std::string, OperationRow> rules = operationRules();
  CK_MECHANISM rsa = {CKM_RSA_PKCS, nullptr, 0};
  CK_MECHANISM sha1 = {CKM_SHA_1, nullptr, 0};
  std::string in = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  std::string out = std::string(256, '\1');
};

}  // namespace

TEST_F(OperationState, EveryFunctionInEveryState) {
  ASSERT_EQ(rules.size(), 32U);
  for (std::size_t from = 0; from < std::size(STATES); ++from) {
    for (const auto& [name, rule] : rules) {
      SCOPED_TRACE(name + " in state " + std::to_string(from));
      ASSERT_NO_FATAL_FAILURE(enter(from));
      const auto lead = rule.leads.find(from);
      const bool accepted = lead != rule.leads.end();
      const CK_RV refusal =
          name.ends_with("Init") ? CKR_OPERATION_ACTIVE : CKR_OPERATION_NOT_INITIALIZED;
      EXPECT_EQ(callWith(" 7 ", name), accepted ? CKR_SESSION_HANDLE_INVALID : refusal);
      EXPECT_EQ(callWith(" 1 ", name), accepted ? CKR_OK : refusal);
      EXPECT_EQ(state(), accepted ? lead->second : from);
    }
  }
}
