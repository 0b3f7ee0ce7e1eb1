#include <sys/stat.h>

#include "support/service_test.h"

using testing::ElementsAre;
using testing::UnorderedElementsAreArray;

namespace {

using Handles = std::vector<CK_ULONG>;

const Attributes::value_type CERTIFICATES = {CKA_CLASS, number(CKO_CERTIFICATE)};
const Attributes::value_type KEYS = {CKA_CLASS, number(CKO_PRIVATE_KEY)};

using Search = ServiceTest;

}  // namespace

TEST_F(Search, EntriesAndTheirIdentifiers) {
  for (const char* name : {"1234.cer", "12abc.cer", "0042.cer", "x.cer.bak", "._99.cer", "-5.cer",
                           " +8.cer", "2147483647.cer", "1.CER", "2.pem", "cer"}) {
    write(std::string("certificados/") + name, "");
  }
  std::filesystem::create_directory(folder / "certificados/7.cer");
  std::filesystem::create_symlink("nowhere", folder / "certificados/9.cer");
  mkfifo((folder / "certificados/33.cer").c_str(), 0600);  // opening it would never return
  const Handles ids = {1234, 12, 42, 0, 0, ~4UL, 8, 2147483647, 7, 9, 33};
  Handles keys;
  for (const CK_ULONG id : ids) keys.push_back(id == ~4UL ? 0x7FFFFFFB : KEY + id);
  EXPECT_THAT(find({CERTIFICATES}), UnorderedElementsAreArray(ids));
  EXPECT_THAT(find({KEYS}), UnorderedElementsAreArray(keys));
}

TEST_F(Search, RoomIsCountedInWholeEntries) {
  write("certificados/10.cer", "");
  write("certificados/11.cer", "");
  for (CK_ULONG max = 0; max <= 4; ++max) {
    const Handles found = find({}, max);
    ASSERT_EQ(found.size(), (max + 1) / 2 * 2) << "a pair is never split";
    for (std::size_t i = 0; i < found.size(); i += 2) EXPECT_EQ(found[i + 1], found[i] + KEY);
  }
  EXPECT_EQ(find({CERTIFICATES}, 1).size(), 1U);
  EXPECT_EQ(find({KEYS}, 1).size(), 1U);
}

TEST_F(Search, ClassesAndFilters) {
  const std::string byCa = issuedBy("CA");
  const std::string ana = certificate(byCa + "-subj /CN=Ana");
  const std::string bia = certificate(byCa + "-subj /CN=Bia");
  const std::string alone = certificate();
  write("certificados/10.cer", ana);
  write("certificados/11.cer", bia);
  write("certificados/12.cer", alone + "more");
  write("certificados/13.cer", "-----BEGIN CERTIFICATE-----");
  write("certificados/x.cer.bak", ana);  // identifier 0, but there is no 0.cer
  const std::string issuer = name("CA");
  const std::string subject = name("Ana");
  const Handles issued = {10, KEY + 10, 11, KEY + 11};
  const std::vector<std::pair<Attributes, Handles>> searches = {
      {{{CKA_CLASS, number(9)}, CERTIFICATES, {CKA_ID, number(10)}}, {10}},
      {{CERTIFICATES, {CKA_CLASS, number(9)}, {CKA_ID, number(10)}}, {}},
      {{{CKA_ISSUER, issuer}}, issued},
      {{{CKA_SUBJECT, subject}}, {10, KEY + 10}},
      {{{CKA_SUBJECT, subject.substr(0, subject.size() - 3)}}, {10, KEY + 10, 11, KEY + 11}},
      {{{CKA_SUBJECT, subject + "x"}}, {}},
      {{CERTIFICATES, {CKA_SUBJECT, subject}}, {10}},
      {{KEYS, {CKA_SUBJECT, subject}}, {KEY, KEY + 10, KEY + 11, KEY + 12, KEY + 13}},
      {{{CKA_VALUE, ana}}, {10}},
      {{{CKA_VALUE, alone}}, {}},
      {{{CKA_VALUE, "-----BEGIN CERTIFICATE-----"}}, {13}},
      {{{CKA_VALUE, bia}, {CKA_SUBJECT, subject}}, {10, KEY + 10}},
      {{{CKA_ISSUER, subject}, {CKA_SUBJECT, subject}}, {}},
      {{{CKA_ISSUER, subject}, {CKA_ISSUER, issuer.substr(0, 2)}, {CKA_TOKEN, "?"}}, issued},
      {{{CKA_ISSUER, issuer}, {CKA_ID, number(11)}, CERTIFICATES}, {10, 11}},
      {{{CKA_ISSUER, issuer}, {CKA_ID, number(99)}, KEYS}, {KEY + 99}},
      {{{CKA_ID, number(99) + "more"}, {CKA_CERTIFICATE_TYPE, "?"}}, {99}},
      {{{CKA_ID, number(0x100000063)}, KEYS}, {0x100000063 + KEY}},
      {{{CKA_ID, number(12)}, {CKA_ID, number(0)}, CERTIFICATES}, {0, 10, 11, 12, 13}}};
  for (const CK_ULONG other : {CKO_DATA, CKO_PUBLIC_KEY, CKO_SECRET_KEY, 0x100000001UL}) {
    EXPECT_EQ(find({{CKA_CLASS, number(other)}}), Handles());
  }
  for (std::size_t i = 0; i < searches.size(); ++i) {
    // A session closed in mid-search leaves nothing of it.
    run("C_FindObjectsInit 1 [81,&n,1,101,&n,1,11,&n,1] 3 = 0; C_CloseSession 1 = 0");
    EXPECT_THAT(find(searches[i].first), UnorderedElementsAreArray(searches[i].second)) << i;
  }
}

TEST_F(Search, TemplatesThatAreRefused) {
  // In the third the value is looked at first; the fifth keeps what it has got so far.
  run("class : 700000005; n : EEEE; C_FindObjectsInit 1 [0,&n,4] 1 = 13 %"
      "C_FindObjectsInit 1 [1] 1 = 13 % C_FindObjectsInit 1 [3] 1 = 13 %"
      "C_FindObjectsInit 1 [102,&n,0] 1 = 13 % C_FindObjectsInit 1 [81,&n,8,3,&n,1] 2 = 12 %"
      "C_FindObjectsInit 1 [180000102,&n,1] 1 = 12 %"
      "C_FindObjectsInit 1 [0,&class,8,82,&n,1] 2 = 12 % C_FindObjectsInit 1 [81,&n,8] 1 = 0;"
      "C_FindObjects 1 0 1 &n = 7; C_FindObjects 1 0 0 0 = 7; n ? EEEE",
      "; C_FindObjects 1 0 0 &n = 91;");
  const std::string attribute = "Tipo de atributo nao tratado em C_FindObjectsInit: ";
  EXPECT_THAT(log(), ElementsAre(attribute + "     0x3", attribute + "0x80000102",
                                 "Tipo de classe nao tratado em C_FindObjectsInit:      0x5",
                                 "unstamped: ", attribute + "    0x82"));
}
