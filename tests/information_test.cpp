#include <sstream>

#include "support/module_test.h"

// The constants: library, slot, token and mechanisms.

using Information = ModuleTest;

TEST_F(Information, LibrarySlotAndToken) {
  run("C_Initialize = 0");
  const std::string version1("\1\0", 2);
  EXPECT_EQ(filled(82, "C_GetInfo info"),
            "\2\x14" + padded("KELMAR", 32) + std::string(6, '\xEE') + number(0) +
                padded("Modulo PKCS#11 KELMAR Quorvent", 32) + "\3\xB");
  EXPECT_EQ(filled(108, "C_GetSlotInfo 1 info"),
            padded("Slot Quorvent", 64) + padded("KELMAR", 32) + number(7) + version1 + version1);
  const auto expectToken = [&](CK_ULONG sessions) {
    EXPECT_EQ(filled(204, "C_GetTokenInfo 1 info"),
              padded("Quorvent", 32) + padded("KELMAR", 32) + "KELMAR Quorvent " + padded("1", 16) +
                  number(0x50A) + number(~0UL) + number(sessions) + number(~0UL) +
                  number(sessions) + number(256) + number(4) + number(61440) + number(0) +
                  number(61440) + number(0) + version1 + version1 + padded("", 16));
  };
  expectToken(0);
  run("C_OpenSession 1 4 0 0 &session = 0");
  expectToken(1);
  run("C_CloseSession 1 = 0");
  expectToken(1);
  run("C_CloseAllSessions 1 = 0");
  expectToken(0);
}

TEST_F(Information, ListsFillWhatFitsAndRefuseWithoutATrace) {
  run("C_Initialize = 0; list : [9,9,9]; C_GetSlotList 0 0 &n = 0; n ? 1; n : 0; C_GetSlotList 1 "
      "list &n = 150; n ? "
      "0;"
      "C_GetMechanismList 1 0 &n = 0; n ? 2; n : 1; C_GetMechanismList 1 list &n = 150; n ? 1;"
      "list[0] ? 9; n : 5; C_GetSlotList 0 list &n = 0; n ? 1; list[0] ? 1; list[1] ? 9;"
      "n : 3; C_GetMechanismList 1 list &n = 0; n ? 2; list[0] ? 1; list[1] ? D; list[2] ? 9");
}

TEST_F(Information, MechanismsKnownAndUnknownAndNoSlotEvents) {
  run("C_Initialize = 0");
  std::istringstream known(  // type, least and most key size, flags
      "1 800 800 7B00  6 800 800 2800  9 800 800 300  D 800 800 2800  131 C0 C0 8000  "
      "133 C0 C0 300  220 0 0 400  364 80 100 80000  1082 80 100 300");
  std::string type;
  for (CK_ULONG least, most, flags; known >> std::hex >> type >> least >> most >> flags;) {
    EXPECT_EQ(filled(24, "C_GetMechanismInfo 1 " + type + " info"),
              number(least) + number(most) + number(flags));
  }
  EXPECT_EQ(type, "1082");
  std::istringstream unknown("0 2 3 4 5 7 8 A B C E 40 130 132 210 250 1081 100000001");
  while (unknown >> type) run("n : 9; C_GetMechanismInfo 1 " + type + " &n = 70; n ? 9");
  run("slot : 9; C_WaitForSlotEvent 0 &slot 0 = 8; C_WaitForSlotEvent 1 &slot 0 = 8;"
      "C_WaitForSlotEvent 2 &slot 0 = 7; C_WaitForSlotEvent 100000000 &slot 0 = 7;"
      "C_WaitForSlotEvent 1 &slot &slot = 7; slot ? 9");
}
