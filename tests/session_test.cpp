#include <tuple>

#include "support/service_test.h"

namespace {

class Session : public ServiceTest {
 protected:
  void enter(CK_STATE wanted) {
    run(wanted < 2 ? "C_OpenSession 1 4 0 0 &n = 0" : "C_OpenSession 1 6 0 0 &n = 0");
    if (wanted % 2 == 1) run("C_Login 1 1 0 0 = 0");
    if (wanted == 4) run("C_Login 1 0 0 0 = 0");
    ASSERT_EQ(state(), wanted);
  }
};

}  // namespace

TEST_F(Session, LoginMovesThroughTheStatesAndLogoutDoesNot) {
  using Row = std::tuple<CK_STATE, const char*, CK_STATE>;  // before, user type and result, after
  for (const auto& [before, login, after] :
       {Row{0, "1 = 0", 1}, Row{0, "0 = B7", 0}, Row{1, "1 = 100", 1}, Row{1, "0 = 104", 1},
        Row{2, "1 = 0", 3}, Row{2, "0 = 0", 4}, Row{3, "1 = 100", 3}, Row{3, "0 = 104", 3},
        Row{4, "1 = 104", 4}, Row{4, "0 = 100", 4}, Row{2, "2 = 103", 2},
        Row{2, "100000001 = 103", 2}}) {
    enter(before);
    run("C_Login 1 %", login);
    EXPECT_EQ(state(), after) << before << ' ' << login;
    run(after == 4 ? "C_InitPIN 1 = 0" : "C_InitPIN 1 = 101");
    run("C_Logout 1 = %; C_Logout 1 = %", after == 0 || after == 2 ? "101" : "0");
    EXPECT_EQ(state(), after);
  }
}

TEST_F(Session, ClosingKeepsTheHandleAndFinalizeTheState) {
  run("C_FindObjectsInit 1 &none 0 = 0");
  enter(3);
  run("C_Finalize = 0; C_Finalize = 190; C_Initialize &anything = 0;"
      "C_FindObjectsInit 1 &none 0 = 90");
  EXPECT_EQ(state(), 3U);
  run("C_CloseSession 7 = 0; C_FindObjectsInit 1 &none 0 = 0");
  EXPECT_EQ(state(), 0U);
  run("C_InitToken 1 0 0 &label = B6; C_CloseAllSessions 1 = 0; C_GetSessionInfo 1 = B3;"
      "C_FindObjects 1 0 0 &n = 91;"
      "C_InitToken 1 0 0 &label = 0");
}

TEST_F(Session, PinsAreMeasuredOnly) {
  enter(1);
  run("C_SetPIN 1 &pin 4 &pin 4 = B5; C_SetPIN 1 = B5");
  enter(2);
  run("C_SetPIN 1 &pin 4 &pin 100 = 0; C_SetPIN 1 &pin 100 &pin 4 = 0; C_SetPIN 1 0 3 &pin 4 = 7;"
      "C_SetPIN 1 &pin 3 0 4 = A2; C_SetPIN 1 &pin 101 &pin 4 = A2; C_SetPIN 1 &pin 4 0 3 = 7;"
      "C_SetPIN 1 &pin 4 &pin 3 = A2; C_SetPIN 1 &pin 4 &pin 100000004 = A2");
}

TEST_F(Session, OperationStateIsAFixedBlock) {
  std::string bytes(257, '\xEE');
  pointers["block"] = bytes.data();
  run("C_GetOperationState 1 0 &n = 0; n ? 100; n : FF;"
      "C_GetOperationState 1 block &n = 150; n ? FF");
  EXPECT_EQ(bytes, std::string(257, '\xEE'));
  run("n : 1000; C_GetOperationState 1 block &n = 0; n ? 100");
  EXPECT_EQ(bytes, std::string(256, '\1') + '\xEE');
  run("C_SetOperationState 1 block 100 8 9 = 0; C_SetOperationState 1 block 101 8 9 = 7");
}
