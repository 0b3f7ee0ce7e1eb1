#include <dlfcn.h>

#include <sstream>
#include <tuple>

#include "support/module_test.h"

// What the 68 functions answer before any of their own work, and that the library is made of them.

namespace {

class ProductLibrary : public ModuleTest {
 protected:
  ProductLibrary() : ModuleTest(PRODUCT_MODULE) {}
};

// The names of the function list in the standard's order, one a line, from the consumer's header.
const std::string NAMES =
    output("sed -n 's/.*CK_C_[A-Za-z]* \\(C_[A-Za-z]*\\);.*/\\1/p' " P11_KIT_HEADER " | head -68")
        .first;

// The answers to a call whose first argument, when it is no pointer, is 1, all others 0 or null:
// not initialised; initialised, without a session; with a session, without an operation.
using Answers = std::tuple<CK_RV, CK_RV, CK_RV, const char*>;
const Answers ANSWERS[] = {
    {0x0, 0x191, 0x191, "C_Initialize"},
    {0x7, 0x7, 0x7, "C_GetFunctionList"},
    {0x54, 0x54, 0x54, "C_GenerateKeyPair"},
    {0x190, 0x0, 0x0, "C_Finalize C_CloseSession C_CloseAllSessions"},
    {0x190, 0x7, 0x7,
     "C_GetInfo C_GetSlotList C_GetSlotInfo C_GetTokenInfo C_GetMechanismList C_GetMechanismInfo "
     "C_InitToken C_WaitForSlotEvent"},
    {0x190, 0xB4, 0xB4, "C_OpenSession"},
    {0x190, 0xB3, 0x0, "C_Login"},
    {0x190, 0xB3, 0x51, "C_GetFunctionStatus C_CancelFunction"},
    {0x190, 0xB3, 0x101, "C_InitPIN C_Logout"},
    {0x190, 0xB3, 0x82, "C_CopyObject C_DestroyObject C_GetObjectSize C_SetAttributeValue"},
    {0x190, 0xB3, 0x7,
     "C_SetPIN C_GetSessionInfo C_GetOperationState C_SetOperationState C_CreateObject "
     "C_GetAttributeValue C_FindObjectsInit C_EncryptInit C_DecryptInit C_DigestInit C_SignInit "
     "C_SignRecoverInit C_VerifyInit C_VerifyRecoverInit C_GenerateKey C_WrapKey C_UnwrapKey "
     "C_DeriveKey C_SeedRandom C_GenerateRandom"},
    {0x190, 0x91, 0x91,
     "C_FindObjects C_FindObjectsFinal C_Encrypt C_EncryptUpdate C_EncryptFinal C_Decrypt "
     "C_DecryptUpdate C_DecryptFinal C_Digest C_DigestUpdate C_DigestKey C_DigestFinal C_Sign "
     "C_SignUpdate C_SignFinal C_SignRecover C_Verify C_VerifyUpdate C_VerifyFinal "
     "C_VerifyRecover C_DigestEncryptUpdate C_DecryptDigestUpdate C_SignEncryptUpdate "
     "C_DecryptVerifyUpdate"}};

}  // namespace

// What another PKCS#11 library in the process exports; it must not become ours.
extern "C" __attribute__((visibility("default"))) CK_RV C_GetInfo(CK_INFO*) {
  return CKR_GENERAL_ERROR;
}

TEST_F(ProductLibrary, FirstRefusalOfEveryFunction) {
  std::size_t called = 0;
  for (const auto& [uninitialized, closed, open, list] : ANSWERS) {
    std::istringstream names(list);
    for (std::string name; names >> name; ++called) {
      const bool takesPointer = name == "C_Initialize" || name == "C_Finalize" ||
                                name == "C_GetInfo" || name == "C_GetFunctionList";
      const std::string text = name + (takesPointer ? " 0" : " 1");
      // What refuses a call first neither follows its pointers nor misses them.
      for (const std::string rest : {" 8 8 8 8 8 8 8", ""}) {
        run("C_Initialize = 0; C_CloseAllSessions 1 = 0; C_Finalize = 0");
        EXPECT_EQ(call(name + (takesPointer ? " 0" : " 2") + rest), uninitialized) << name;
        call("C_Initialize");
        EXPECT_EQ(call(closed == 0xB3 ? name + " 1" + rest : text), closed) << name;
        call("C_Finalize");
      }
      openSession();
      EXPECT_EQ(call(text), open) << name;
      call("C_Finalize");
    }
  }
  EXPECT_EQ(called, 68U);
}

TEST_F(ProductLibrary, HandlesAndSlotsCountInAllTheir64Bits) {
  openSession();
  for (const char* wrong : {"0", "2", "100000001"}) {
    run("C_GetSessionInfo % = B3; C_GetSlotInfo % = 3; C_GetTokenInfo % = 3;"
        "C_GetMechanismList % = 3; C_GetMechanismInfo % = 3; C_OpenSession % = 3;"
        "C_CloseAllSessions % = 3; C_InitToken % = 3",
        wrong);
  }
}

TEST_F(ProductLibrary, ExportsTheListedFunctionsAndNothingElse) {
  EXPECT_EQ(
      output("nm -D --defined-only " PRODUCT_MODULE " | cut -d' ' -f2- | LC_ALL=C sort").first,
      output("echo '" + NAMES + "' | sed -n 's/^C_/T C_/p' | LC_ALL=C sort").first);
  EXPECT_EQ(output("readelf -d " PRODUCT_MODULE " | grep -E 'NEEDED.*(ssl|crypto)'").first, "");
  EXPECT_EQ(output("grep -ac 'BEGIN CERT' " PRODUCT_MODULE).first, "12\n");
}

TEST_F(ProductLibrary, TableHoldsItsOwnFunctionsInTheStandardsOrder) {
  EXPECT_EQ(std::pair(p11->version.major, p11->version.minor), std::pair(CK_BYTE{2}, CK_BYTE{20}));
  auto* const* entry = reinterpret_cast<void* const*>(&p11->C_Initialize);
  std::istringstream names(NAMES);
  std::string name;
  for (int i = 0; i < 68; ++i, ++entry) {
    names >> name;
    EXPECT_EQ(*entry, dlsym(library, name.c_str())) << name;
  }
  EXPECT_EQ(name, "C_WaitForSlotEvent");
}
