#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "support/standard_test.h"

// Library, sessions, login and objects, as the standard has them.

namespace fs = std::filesystem;

namespace {

class Standard : public StandardTest {
 protected:
  // Puts a certificate made with `arguments` into the cache as number `id`. Returns its bytes.
  std::string add(CK_ULONG id, const std::string& arguments = "") {
    const std::string der = certificate(arguments);
    write("certificados/" + std::to_string(id) + ".cer", der);
    return der;
  }

  // What the file says, as another program reads it: the output of `openssl x509` with `arguments`.
  [[nodiscard]] std::string said(const std::string& arguments) const {
    return output("openssl x509 -in " + home.string() + "/made.pem " + arguments).first;
  }

  CK_RV ask(CK_OBJECT_HANDLE handle, CK_ATTRIBUTE_TYPE type) const {
    CK_ATTRIBUTE attribute = {type, nullptr, 5};
    const CK_RV result = p11->C_GetAttributeValue(1, handle, &attribute, 1);
    EXPECT_EQ(attribute.ulValueLen, CK_UNAVAILABLE_INFORMATION) << std::hex << type;
    return result;
  }
};

// What the consumer's headers do not name yet.
constexpr CK_ATTRIBUTE_TYPE COPYABLE = 0x171, DESTROYABLE = 0x172, PUBLIC_KEY_INFO = 0x129,
                            JAVA_MIDP_SECURITY_DOMAIN = 0x88, HASH_OF_SUBJECT_KEY = 0x8A,
                            HASH_OF_ISSUER_KEY = 0x8B, NAME_HASH_ALGORITHM = 0x8C;
const std::string YES(1, '\1');
const std::string NO(1, '\0');

}  // namespace

TEST_F(Standard, OneNameIsExportedAndWhatHasNoMeaningIsRefused) {
  EXPECT_EQ(p11->version.major, 2);
  EXPECT_EQ(p11->version.minor, 40);
  EXPECT_EQ(output("nm -D --defined-only --format=just-symbols " STANDARD_MODULE).first,
            "C_GetFunctionList\n");
  std::istringstream names(
      "C_InitToken C_InitPIN C_SetPIN C_GetOperationState C_SetOperationState C_CreateObject "
      "C_CopyObject C_DestroyObject C_SetAttributeValue C_EncryptInit C_Encrypt C_DecryptInit "
      "C_DigestKey C_SignRecoverInit C_VerifyInit C_Verify C_DigestEncryptUpdate C_GenerateKey "
      "C_GenerateKeyPair C_WrapKey C_UnwrapKey C_DeriveKey");
  for (std::string name; names >> name;) EXPECT_EQ(call(name + " 1"), 0x54U) << name;
}

TEST_F(Standard, InitializeHonoursItsArguments) {
  // Four functions, the flags and what is reserved.
  run("C_Initialize 0 = 191; C_Finalize &n = 7; C_Finalize 0 = 0; C_Finalize 0 = 190;"
      "C_Initialize [0,0,0,0,0,0] = 0 % C_Initialize [0,0,0,0,3,0] = 0 %"
      "C_Initialize [1,1,1,1,2,0] = 0 %",
      "; C_GetSessionInfo 1 &n = B3; C_Finalize = 0;");
  run("C_Initialize [1,1,1,1,0,0] = A % C_Initialize [1,1,1,0,2,0] = 7 %"
      "C_Initialize [0,0,0,0,2,1] = 7 %",
      "; C_GetInfo &n = 190;");
}

TEST_F(Standard, WhatTheTokenTells) {
  const std::string noVersion(2, '\0');
  const auto blank = [](const char* text, std::size_t width) { return padded(text, width, ' '); };
  EXPECT_EQ(filled(82, "C_GetInfo info"), "\2\x28" + blank("KELMAR", 32) + std::string(6, '\xEE') +
                                              number(0) +
                                              blank("Modulo PKCS#11 KELMAR Quorvent", 32) + "\2\1");
  EXPECT_EQ(filled(108, "C_GetSlotInfo 1 info"),
            blank("Slot Quorvent", 64) + blank("KELMAR", 32) + number(1) + noVersion + noVersion);
  run("C_GetInfo 0 = 7; C_GetSlotInfo 0 &n = 3; C_OpenSession 1 6 0 0 &n = 0");
  const std::string unknown = number(CK_UNAVAILABLE_INFORMATION);
  EXPECT_EQ(filled(204, "C_GetTokenInfo 1 info"),
            blank("Quorvent", 32) + blank("KELMAR", 32) + blank("KELMAR Quorvent", 16) +
                blank("1", 16) + number(0x50B) + number(0) + number(2) + number(0) + number(2) +
                number(255) + number(0) + unknown + unknown + unknown + unknown + noVersion +
                noVersion + blank("", 16));
  std::vector<CK_ULONG> list(20, 99);
  pointers["list"] = list.data();
  run("C_GetSlotList 1 0 &n = 0; n ? 1; n : 0; C_GetSlotList 1 list &n = 150; n ? 1;"
      "C_GetSlotList 1 list &n = 0; C_GetMechanismList 1 0 &n = 0; n ? 11; n : 10;"
      "C_GetMechanismList 1 list &n = 150; n ? 11; C_GetMechanismList 1 list &n = 0;"
      "C_GetMechanismInfo 1 1087 &n = 70; C_WaitForSlotEvent 1 &n 0 = 8;"
      "C_WaitForSlotEvent 0 &n 0 = 54; C_GetFunctionStatus 1 = 51; C_CancelFunction 9 = B3");
  EXPECT_EQ(list[17], 99U);
  for (const CK_ULONG type : std::vector(list.begin(), list.begin() + 17)) {
    CK_MECHANISM_INFO mechanism = {};
    EXPECT_EQ(p11->C_GetMechanismInfo(1, type, &mechanism), CKR_OK);
    EXPECT_EQ(mechanism.flags, type >= CKM_SHA_1 ? CKF_DIGEST : CKF_HW | CKF_SIGN) << type;
  }
}

TEST_F(Standard, SessionsAndLogin) {
  run("C_OpenSession 1 2 0 0 &n = B4; C_OpenSession 2 4 0 0 &n = 3; C_OpenSession 1 4 0 0 0 = 7;"
      "C_OpenSession 1 4 0 0 &n = 0; n ? 2; C_Logout 2 = 101; C_Login 2 0 0 0 = B7;"
      "C_Login 2 2 0 0 = 91; C_Login 2 3 0 0 = 103; C_Login 2 1 0 0 = 0; C_Login 1 1 0 0 = 100;"
      "C_Login 1 0 0 0 = 104");
  EXPECT_EQ(state(1), CKS_RW_USER_FUNCTIONS);
  EXPECT_EQ(state(2), CKS_RO_USER_FUNCTIONS);
  run("C_Logout 1 = 0; C_CloseSession 2 = 0; C_CloseSession 2 = B3; C_Login 1 0 0 0 = 0;"
      "C_OpenSession 1 4 0 0 &n = B8; C_OpenSession 1 6 0 0 &n = 0; n ? 3");
  EXPECT_EQ(state(3), CKS_RW_SO_FUNCTIONS);
  run("C_CloseAllSessions 1 = 0; C_GetSessionInfo 3 &n = B3; C_OpenSession 1 4 0 0 &n = 0; n ? 4");
  EXPECT_EQ(state(4), CKS_RO_PUBLIC_SESSION) << "the login has ended with the last session";
}

TEST_F(Standard, AForkedChildStartsAnew) {
  const pid_t child = fork();
  if (child == 0) {
    run("C_GetInfo &n = 190; C_Finalize = 190; C_Initialize = 0; C_GetSessionInfo 1 &n = B3;"
        "C_OpenSession 1 4 0 0 &n = 0; C_Finalize = 0");
    _exit(HasFailure() ? 1 : 0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  run("C_FindObjectsInit 1 0 0 = 0");
}

TEST_F(Standard, EveryAttributeIsAnsweredAndFound) {
  add(9);
  const std::string der = add(10, issuedBy("CA") + "-set_serial 0x9234");
  write("certificados/10.cer", der + "more");
  const std::string key = said("-noout -pubkey | openssl pkey -pubin -outform DER");
  const std::string integerOf257Bytes("\2\x82\1\1\0", 5);
  const std::string modulus = der.substr(der.find(integerOf257Bytes) + 5, 256);
  const auto date = [&](const std::string& which) {
    return said("-noout -" + which + " | cut -d= -f2 | date -u -f - +%Y%m%d").substr(0, 8);
  };
  std::string mechanisms;
  const CK_ULONG signing[] = {1, 0xD, 6, 0x46, 0x40, 0x41, 0x42, 0xE, 0x47, 0x43, 0x44, 0x45};
  for (const CK_ULONG type : signing) mechanisms += number(type);
  const std::string check = said("-outform DER | openssl dgst -sha1 -binary").substr(0, 3);
  const std::string id = number(10);
  const std::string label = "(37428) Example Holder";
  const std::string unknown = number(CK_UNAVAILABLE_INFORMATION);
  const std::string none = "-";  // no such attribute
  using Row = std::tuple<std::vector<CK_ATTRIBUTE_TYPE>, std::string, std::string, std::string>;
  for (const auto& [types, certificate, privateKey, publicKey] : std::vector<Row>{
           {{CKA_CLASS}, number(1), number(3), number(2)},
           {{CKA_TOKEN}, YES, YES, YES},
           {{CKA_PRIVATE, CKA_MODIFIABLE, COPYABLE, DESTROYABLE}, NO, NO, NO},
           {{CKA_LABEL}, label, label, label},
           {{CKA_ID}, id, id, id},
           {{CKA_SUBJECT}, name("Example Holder"), name("Example Holder"), name("Example Holder")},
           {{CKA_START_DATE}, date("startdate"), date("startdate"), date("startdate")},
           {{CKA_END_DATE}, date("enddate"), date("enddate"), date("enddate")},
           {{PUBLIC_KEY_INFO}, key, key, key},
           {{CKA_TRUSTED}, NO, none, NO},
           {{CKA_CERTIFICATE_TYPE, JAVA_MIDP_SECURITY_DOMAIN}, number(0), none, none},
           {{CKA_CERTIFICATE_CATEGORY}, number(1), none, none},
           {{CKA_CHECK_VALUE}, check, none, none},
           {{CKA_ISSUER}, name("CA"), none, none},
           {{CKA_SERIAL_NUMBER}, std::string("\2\3\0\x92\x34", 5), none, none},
           {{CKA_VALUE}, der, none, none},
           {{CKA_URL, HASH_OF_SUBJECT_KEY, HASH_OF_ISSUER_KEY}, "", none, none},
           {{NAME_HASH_ALGORITHM}, number(CKM_SHA_1), none, none},
           {{CKA_KEY_TYPE}, none, number(CKK_RSA), number(CKK_RSA)},
           {{CKA_DERIVE, CKA_LOCAL}, none, NO, NO},
           {{CKA_KEY_GEN_MECHANISM}, none, unknown, unknown},
           {{CKA_ALLOWED_MECHANISMS}, none, mechanisms, mechanisms},
           {{CKA_MODULUS}, none, modulus, modulus},
           {{CKA_PUBLIC_EXPONENT}, none, "\1" + NO + "\1", "\1" + NO + "\1"},
           {{CKA_MODULUS_BITS}, none, none, number(2048)},
           {{CKA_VERIFY}, none, none, YES},
           {{CKA_ENCRYPT, CKA_VERIFY_RECOVER, CKA_WRAP}, none, none, NO},
           {{CKA_WRAP_TEMPLATE}, none, none, ""},
           {{CKA_UNWRAP_TEMPLATE}, none, "", none},
           {{CKA_SIGN, CKA_SENSITIVE}, none, YES, none},
           {{CKA_SIGN_RECOVER, CKA_DECRYPT, CKA_UNWRAP, CKA_WRAP_WITH_TRUSTED}, none, NO, none},
           {{CKA_ALWAYS_SENSITIVE, CKA_EXTRACTABLE}, none, NO, none},
           {{CKA_NEVER_EXTRACTABLE, CKA_ALWAYS_AUTHENTICATE}, none, NO, none}}) {
    for (const CK_ATTRIBUTE_TYPE type : types) {
      for (const auto& [handle, bytes] : std::vector<std::pair<CK_OBJECT_HANDLE, std::string>>{
               {10, certificate}, {KEY + 10, privateKey}, {PUBLIC + 10, publicKey}}) {
        if (bytes == none) {
          EXPECT_EQ(ask(handle, type), CKR_ATTRIBUTE_TYPE_INVALID) << std::hex << type;
        } else {
          EXPECT_EQ(value(handle, type), bytes) << std::hex << handle << ' ' << type;
        }
        EXPECT_EQ(std::ranges::count(find({{type, bytes}}), handle), bytes == none ? 0 : 1)
            << std::hex << handle << ' ' << type;
      }
    }
  }
  write("certificados/11.cer", certificate("-utf8 -nameopt utf8 -subj '/CN=José €'"));
  EXPECT_EQ(value(11, CKA_LABEL), "(4660) José €");
  for (const CK_ULONG type : {0x123UL, 0x124UL, 0x125UL, 0x126UL, 0x127UL, 0x128UL}) {
    EXPECT_EQ(ask(KEY + 10, type), CKR_ATTRIBUTE_SENSITIVE);
    EXPECT_EQ(ask(PUBLIC + 10, type), CKR_ATTRIBUTE_TYPE_INVALID);
    EXPECT_THAT(find({{type, ""}}), testing::IsEmpty()) << "its value cannot be found out";
  }
}

TEST_F(Standard, EveryEntryIsAnsweredByTheLengthConvention) {
  add(10);
  std::string room(7, '\xEE');
  pointers["R"] = room.data();
  run("list : [3,R,6,124,R,7,89,R,7,0,&class,8]; C_GetAttributeValue 1 8000000A list 4 = 150;"
      "list[2] ? %; list[5] ? %; list[8] ? %; class ? 3",
      "FFFFFFFFFFFFFFFF");
  EXPECT_EQ(room, std::string(7, '\xEE'));
  run("C_GetAttributeValue 1 A 0 1 = 7; C_GetAttributeValue 1 A 0 0 = 0;"
      "C_GetAttributeValue 2 A 0 0 = B3; C_GetObjectSize 1 A &n = 0; n ? FFFFFFFFFFFFFFFF");
  for (const char* handle : {"0", "9", "8000000B", "180000000", "200000000", "FFFFFFFFFFFFFFFB"}) {
    run("C_GetAttributeValue 1 % 0 0 = 82", handle);
  }
}

TEST_F(Standard, EachNumberOfACertificateIsThreeObjects) {
  const std::string der = add(10);
  add(0);
  add(2'147'483'647, "-newkey rsa:1024 -nodes -keyout /dev/null");
  add(7, "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout /dev/null");
  for (const char* file : {"0010.cer", "10abc.cer", "-5.cer", "11abc.cer", "x.cer", "12.CER"}) {
    write(std::string("certificados/") + file, der);
  }
  write("certificados/13.cer", "-----BEGIN CERTIFICATE-----");
  write("certificados/14.cer", "");
  fs::create_directory(folder / "certificados/15.cer");
  EXPECT_EQ(mkfifo((folder / "certificados/16.cer").c_str(), 0600), 0);
  const std::vector<CK_OBJECT_HANDLE> all = {
      3 * KEY, KEY, PUBLIC, 7, 10, KEY + 10, PUBLIC + 10, KEY - 1, 2 * KEY - 1, 3 * KEY - 1};
  for (const CK_ULONG room : {1UL, 3UL, 10UL, 100UL}) EXPECT_EQ(find({}, room), all) << room;
  EXPECT_EQ(value(2 * KEY - 1, CKA_MODULUS).size(), 128U);
  EXPECT_EQ(find({{CKA_ID, number(10)}}), (std::vector<CK_ULONG>{10, KEY + 10, PUBLIC + 10}));
  for (const Attributes& filter :
       {Attributes{{CKA_ID, number(11)}}, Attributes{{CKA_ID, number(10).substr(0, 4)}},
        Attributes{{CKA_ID, ""}}, Attributes{{CKA_CLASS, number(4)}},
        Attributes{{CKA_CLASS, number(1)}, {CKA_SIGN, YES}},
        Attributes{{CKA_ID, number(7)}, {CKA_KEY_TYPE, number(0)}}, Attributes{{CKA_TOKEN, NO}}}) {
    EXPECT_THAT(find(filter), testing::IsEmpty());
  }
  run("C_FindObjectsInit 1 0 1 = 7; C_FindObjectsInit 1 [3,0,1] 1 = 13;"
      "C_FindObjects 1 0 0 &n = 91; C_FindObjectsInit 1 0 0 = 0; C_FindObjectsInit 1 0 0 = 90;"
      "C_FindObjects 1 0 1 &n = 7; C_FindObjects 1 0 0 &n = 0; n ? 0; C_FindObjectsFinal 1 = 0;"
      "C_FindObjectsFinal 1 = 91");
  EXPECT_EQ(log(), Log());
}

TEST_F(Standard, EachCallSeesTheFilesAsTheyAre) {
  const std::string ana = certificate("-subj /CN=Ana");
  const std::string bia = certificate("-subj /CN=Bia");
  EXPECT_EQ(ana.size(), bia.size());
  const fs::path file = folder / "certificados/7.cer";
  // In the same moment, at an age of hours, and set back to that age.
  const auto old = fs::file_time_type::clock::now() - std::chrono::hours(9);
  for (int i = 0; i < 40; ++i) {
    const bool isAna = i % 2 == 0;
    write("certificados/7.cer", isAna ? ana : bia);
    if (i >= 20) fs::last_write_time(file, old);
    EXPECT_EQ(value(7, CKA_SUBJECT), name(isAna ? "Ana" : "Bia"));
    EXPECT_EQ(find({{CKA_SUBJECT, name(isAna ? "Ana" : "Bia")}}).size(), 3U);
  }
  fs::remove(file);
  EXPECT_THAT(find(), testing::IsEmpty());
  run("C_GetAttributeValue 1 7 0 0 = 82");
  unsetenv("HOME");
  EXPECT_THAT(find(), testing::IsEmpty());
}

TEST_F(Standard, AHundredThousandCertificatesAreListedAndSearched) {
  const std::string der = certificate();
  for (int i = 1; i <= 100'000; ++i) write("certificados/" + std::to_string(i) + ".cer", der);
  add(77'777, "-subj /CN=Rare");
  EXPECT_EQ(find({}, 100'000).size(), 300'000U);
  EXPECT_EQ(find({{CKA_SUBJECT, name("Rare")}, {CKA_CLASS, number(3)}}), std::vector{KEY + 77'777});
}

TEST_F(Standard, LoadingAThousandTimesLeavesNothingBehind) {
  add(7);
  for (int i = 0; i < 1'000; ++i) {
    load(STANDARD_MODULE);
    run("C_GetInfo &n = 190; C_Initialize = 0; C_OpenSession 1 4 0 0 &n = 0; n ? 1;"
        "C_FindObjectsInit 1 0 0 = 0");
    if (i % 2 == 0) run("C_Finalize = 0");
  }
  load(LOCAL_MODULE);
  EXPECT_EQ(output("grep -c brivasign-standard /proc/$PPID/maps").first, "0\n");
}

TEST_F(Standard, DigestsAndRandomNumbers) {
  std::string data = "abc";
  for (const auto& [type, option] :
       {std::pair("220", "-sha1"), std::pair("255", "-sha224"), std::pair("250", "-sha256"),
        std::pair("260", "-sha384"), std::pair("270", "-sha512")}) {
    const std::string expected =
        output(std::string("printf abc | openssl dgst -binary ") + option).first;
    std::string made(expected.size(), '\xEE');
    pointers = {{"D", data.data()}, {"E", data.data() + 1}, {"O", made.data()}};
    run("n : 4; C_Digest 1 D 3 O &n = 91; C_DigestInit 1 [%] = 0; C_DigestInit 1 [%] = 90;"
        "C_Digest 1 D 3 O &n = 150; C_Digest 1 D 3 0 &n = 0; C_Digest 1 D 3 O &n = 0",
        type);
    EXPECT_EQ(made, expected);
    made.assign(made.size(), '\xEE');
    run("C_DigestInit 1 [%] = 0; C_DigestUpdate 1 D 1 = 0; C_Digest 1 D 3 O &n = 91;"
        "C_DigestFinal 1 O &n = 91; C_DigestInit 1 [%] = 0; C_DigestUpdate 1 D 1 = 0;"
        "C_DigestUpdate 1 E 2 = 0; C_DigestFinal 1 0 &n = 0; C_DigestFinal 1 O &n = 0;"
        "C_DigestFinal 1 O &n = 91; C_DigestInit 1 [%] = 0; C_Digest 1 0 1 O &n = 7;"
        "C_DigestUpdate 1 D 1 = 91",
        type);
    EXPECT_EQ(made, expected);
    EXPECT_EQ(numbers["n"], expected.size());
  }
  std::string one(40, '\0');
  std::string other = one;
  pointers = {{"one", one.data()}, {"other", other.data()}};
  run("C_SeedRandom 1 one 28 = 0; C_GenerateRandom 1 one 20 = 0; C_GenerateRandom 1 other 20 = 0;"
      "C_GenerateRandom 1 0 1 = 7; C_GenerateRandom 1 0 0 = 0");
  EXPECT_NE(one.substr(0, 32), other.substr(0, 32));
  EXPECT_EQ(one.substr(32), std::string(8, '\0'));
}
