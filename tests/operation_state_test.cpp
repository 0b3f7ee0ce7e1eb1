#include <sstream>

#include "support/module_test.h"

// The operation state has no reader, but every function tests it before the session: with a wrong
// session a call answers for its state alone and changes nothing.

namespace {

// Each function with arguments that make it succeed and write all it can, and the states that
// accept it, each with the state afterwards. C_Sign stands here for its length query; what reaches
// the service has tests of its own.
constexpr const char* RULES =
    "C_FindObjectsInit &none 0: 0>1; C_FindObjects 0 0 &n: 1>1; C_FindObjectsFinal : 1>0;"
    "C_EncryptInit rsa 3: 0>2 4>9 5>11; C_EncryptFinal out &n: 2>0 9>4 11>5;"
    "C_Encrypt in A out &n: 2>0; C_EncryptUpdate in A out &n: 2>2;"
    "C_DecryptInit rsa 4: 0>3 4>10 7>12; C_DecryptFinal out &n: 3>0 10>4 12>7;"
    "C_Decrypt in A out &n: 3>0; C_DecryptUpdate in A out &n: 3>3;"
    "C_DigestInit sha1: 0>4 2>9 3>10; C_DigestFinal out &n: 4>0 9>2 10>3;"
    "C_Digest in A out &n: 4>0; C_DigestUpdate in A: 4>4; C_DigestKey 2: 4>4;"
    "C_SignInit rsa 80000007: 0>5 2>11; C_SignFinal out &n: 5>0 11>2;"
    "C_Sign in A 0 &n: 5>5; C_SignUpdate in A: 5>5;"
    "C_SignRecoverInit rsa 4: 0>6; C_SignRecover in A out &n: 6>0;"
    "C_VerifyInit rsa 3: 0>7 3>12; C_VerifyFinal in A: 7>0 12>3;"
    "C_Verify in A in A: 7>0; C_VerifyUpdate in A: 7>7;"
    "C_VerifyRecoverInit rsa 3: 0>8; C_VerifyRecover in A out &n: 8>0;"
    "C_DigestEncryptUpdate in A out &n: 9>9; C_DecryptDigestUpdate in A out &n: 10>10;"
    "C_SignEncryptUpdate in A out &n: 11>11; C_DecryptVerifyUpdate in A out &n: 12>12";

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

struct Rule {
  std::string arguments;
  std::map<std::size_t, std::size_t> leads;  // accepted state -> state afterwards
};

class OperationState : public ModuleTest {
 protected:
  OperationState() {
    openSession();
    pointers = {{"rsa", &rsa}, {"sha1", &sha1}, {"in", in.data()}, {"out", out.data()}};
    std::istringstream all(RULES);
    for (std::string name, arguments, leads;
         all >> name && std::getline(all, arguments, ':') && std::getline(all, leads, ';');) {
      rules[name].arguments = arguments;
      std::istringstream each(leads);
      std::size_t from = 0;
      for (char arrow = 0; each >> from >> arrow;) each >> rules[name].leads[from];
    }
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

  std::map<std::string, Rule> rules;
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
