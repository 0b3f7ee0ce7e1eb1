#include "support/service_test.h"

// The imitation: what goes in, what comes out, and which refusal comes first.

namespace {

class Placeholder : public ServiceTest {
 protected:
  Placeholder() {
    for (char i = 0; i < 64; ++i) bytes.push_back(i);
    pointers = {{"B", bytes.data()}, {"B20", bytes.data() + 20}, {"B32", bytes.data() + 32}};
  }

  std::string bytes;
};

}  // namespace

TEST_F(Placeholder, MechanismsBeforeKeys) {
  run("% [1] 3 = 0; % [1] 2 = 63; % [1,B,8] 2 = 71; % [1,B,0] 3 = 71; % [9,B,28] 3 = 0;"
      "% [9,B,27] 3 = 71; % [9,0,28] 3 = 71; % [9,B,28] 2 = 63; % [133,B,8] 2 = 0;"
      "% [133,B,10] 3 = 71; % [133,B,8] 3 = 63; % [6] 3 = 70; % [1082,B,10] 2 = 0;"
      "% [1082,B,10] 100000002 = 63; % [100001082,B,10] 2 = 70; % [D,B,18] 3 = 70",
      "C_CloseSession 1 = 0; C_EncryptInit 1");
  run("% [1] 4 = 0; % [1] 3 = 63; % [9,B,28] 4 = 0; % [1082,B,10] 2 = 0; % [1082,B,10] 4 = 63;"
      "% [133,B,8] 2 = 0",
      "C_CloseSession 1 = 0; C_DecryptInit 1");
  run("% [220] 0 = 0; % [220,0,1] 0 = 71; % [250] 0 = 70", "C_CloseSession 1 = 0; C_DigestInit 1");
  run("% [1] 4 = 0; % [6] 4 = 70; % [1] 3 = 63", "C_CloseSession 1 = 0; C_SignRecoverInit 1");
  run("% [1] 3 = 0; % [6] 3 = 0; % [D,B,18] 3 = 70; % [6] 4 = 63",
      "C_CloseSession 1 = 0; C_VerifyInit 1");
  run("% [1] 3 = 0; % [1] 4 = 63; % [6] 3 = 70", "C_CloseSession 1 = 0; C_VerifyRecoverInit 1");
  // The real one looks at the parameter before the key, and at no parameter of PSS.
  run("% [1,B,0] 7 = 71; % [1,0,1] 80000007 = 71; % [1] 7FFFFFFF = 63; % [D,B,3] 7 = 63;"
      "% [40] 7 = 70; % [10000000D] 80000007 = 70; % [0] 80000007 = 70; % [1] 80000000 = 0;"
      "% [D,0,9] 100000000 = 0",
      "C_CloseSession 1 = 0; C_SignInit 1");
  const std::string message = "Mecanismo invalido: ";
  EXPECT_THAT(log(), testing::ElementsAre(message + "0x40", message + "0xd", message + "0"));
}

TEST_F(Placeholder, BytesUnderAMask) {
  bytes.replace(0, 4, "abc-");
  run("C_EncryptInit 1 [1082,B,10] 2 = 0; C_Encrypt 1 B 3 0 &n = 0; n ? 3;"
      "n : 2; C_Encrypt 1 B 3 B &n = 150; n ? 2; C_Encrypt 1 0 3 B &n = 7;"
      "C_Encrypt 1 B 0 B &n = 7; C_Encrypt 1 B 3 B 0 = 7; n : 4; C_Encrypt 1 B 3 B &n = 0; n ? 3");
  EXPECT_EQ(bytes.substr(0, 4), "\xCA\xC9\xC8-");
  run("C_DecryptInit 1 [1082,B,10] 2 = 0; C_DecryptFinal 1 B 0 = 7; C_DecryptFinal 1 0 &n = 0;"
      "C_DecryptFinal 1 B &n = 0; n ? 0; C_EncryptInit 1 [1082,B,10] 2 = 0; n : 99;"
      "C_EncryptFinal 1 0 &n = 0; n : 99; C_EncryptFinal 1 B &n = 0; n ? 0");
  EXPECT_EQ(bytes.substr(0, 4), "\xCA\xC9\xC8-");
}

TEST_F(Placeholder, DigestOfEverything) {
  for (const std::string ask : {"C_Digest 1 B 5", "C_DigestFinal 1"}) {
    std::string digest(21, '-');
    pointers["digest"] = digest.data();
    run("C_DigestInit 1 [220] = 0; C_DigestUpdate 1 B 0 = 7; C_DigestUpdate 1 0 5 = 7;"
        "C_DigestKey 1 3 = 82; C_Digest 1 B 0 digest &n = 7; % digest 0 = 7; % 0 &n = 0; n ? 14;"
        "n : 13; % digest &n = 150; n ? 13; n : 15; % digest &n = 0; n ? 14",
        ask);
    EXPECT_EQ(digest,
              "\x7b\x50\x2c\x3a\x1f\x48\xc8\x60\x9a\xe2\x12\xcd\xfb\x63\x9d\xee\x39\x67\x3f\x5e-");
  }
}

TEST_F(Placeholder, OneSignatureVerifies) {
  pointers["other"] = bytes.data() + 1;
  for (const std::string verify : {"C_Verify 1 B 1", "C_VerifyFinal 1"}) {
    run("C_VerifyInit 1 [1] 3 = 0; % 0 A = 7; % B 0 = 7; % B B = C1; % other A = C0;"
        "C_VerifyUpdate 1 B 0 = 7; % B A = 0; % B A = 91",
        verify);
  }
}

TEST_F(Placeholder, ObjectsKeysAndRandom) {
  run("des : [131]; mix : [364,B,10]; good : [3,B,1,11,B,1]; empty : [3,B,1,11,B,0]");
  run("h : 9; C_CreateObject 1 empty 2 &h = 13; C_CreateObject 1 empty 2 0 = 7;"
      "C_CreateObject 1 good 0 &h = 7; C_CreateObject 1 0 2 &h = 7; h ? 9;"
      "C_CreateObject 1 good 2 &h = 0; h ? 1;"
      "h : 9; C_CopyObject 1 2 good 2 0 = 82; C_CopyObject 1 1 good 2 0 = 7; h ? 9;"
      "C_CopyObject 1 1 0 5 &h = 0; h ? 1;"
      "C_DestroyObject 1 4 = 0; C_DestroyObject 1 5 = 82; C_DestroyObject 1 100000001 = 82;"
      "C_GetObjectSize 1 0 0 = 82; C_GetObjectSize 1 1 0 = 7; C_GetObjectSize 1 4 &h = 0; h ? 100;"
      "C_SetAttributeValue 1 1 good 2 = 0; C_SetAttributeValue 1 1 good 0 = 7;"
      "C_SetAttributeValue 1 1 empty 2 = 13; C_SetAttributeValue 1 1 [3,B,1,102,0,0] 2 = 12;"
      "h : 9; C_GenerateKey 1 [1] 0 0 0 = 70; C_GenerateKey 1 des empty 2 0 = 7;"
      "C_GenerateKey 1 des empty 2 &h = 13; h ? 9; C_GenerateKey 1 des good 2 &h = 0; h ? 2;"
      "h : 9; C_UnwrapKey 1 [1] 3 B 0 good 2 &h = 60; C_UnwrapKey 1 [1] 4 B 0 empty 2 &h = 7;"
      "C_UnwrapKey 1 [1] 4 B 1 empty 2 &h = 13; C_UnwrapKey 1 [1] 4 B 1 good 0 &h = 7; h ? 9;"
      "C_UnwrapKey 1 [1] 4 B 1 good 2 &h = 0; h ? 2;"
      "h : 9; C_DeriveKey 1 [364,B,F] 3 0 0 0 = 71; C_DeriveKey 1 mix 3 0 0 0 = 82;"
      "C_DeriveKey 1 mix 2 0 0 0 = 7; h ? 9; C_DeriveKey 1 mix 2 0 0 &h = 0; h ? 2;"
      "h : 9; C_WrapKey 1 [1] 3 1 B &h = 60; C_WrapKey 1 [1] 4 2 B &h = 60;"
      "C_WrapKey 1 [1] 3 2 B20 &h = 150; h ? 9; C_WrapKey 1 [1] 3 2 0 &h = 0; h ? A");
  EXPECT_EQ(bytes[20], 20);
  run("C_WrapKey 1 [1] 3 2 B20 &h = 0; h ? A; C_SeedRandom 1 B 1 = 0; C_SeedRandom 1 B 0 = 7;"
      "C_GenerateRandom 1 B 0 = 7; C_GenerateRandom 1 B32 1F = 0");
  EXPECT_EQ(bytes.substr(19),
            std::string("\x13\0\1\2\3\4\5\6\7\10\11\x1E\x1F", 13) + std::string(31, '\1') + '\x3F');
}
