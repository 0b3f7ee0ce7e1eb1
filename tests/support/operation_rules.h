#pragma once

#include <map>
#include <sstream>
#include <string>

// Each function with arguments that make it succeed and write all it can, and the states that
// accept it, each with the state afterwards. C_Sign stands here for its length query; what reaches
// the service has tests of its own.
inline constexpr const char* OPERATION_RULES =
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

struct OperationRow {
  std::string arguments;
  std::map<std::size_t, std::size_t> leads;  // accepted state -> state afterwards
};

inline std::map<std::string, OperationRow> operationRules() {
  std::map<std::string, OperationRow> rules;
  std::istringstream all(OPERATION_RULES);
  for (std::string name, arguments, leads;
       all >> name && std::getline(all, arguments, ':') && std::getline(all, leads, ';');) {
    rules[name].arguments = arguments;
    std::istringstream each(leads);
    std::size_t from = 0;
    for (char arrow = 0; each >> from >> arrow;) each >> rules[name].leads[from];
  }
  return rules;
}
