#include <tuple>

#include "support/service_test.h"

using AttributeQuery = ServiceTest;

TEST_F(AttributeQuery, CertificateAndKeyAnswerFromOneFile) {
  const std::string file = certificate(issuedBy("CA") + "-set_serial 0x9234") + "more";
  write("certificados/10.cer", file);
  const std::string integerOf257Bytes("\2\x82\1\1\0", 5);
  const std::string modulus = file.substr(file.find(integerOf257Bytes) + 5, 256);
  const std::string yes(1, '\1');
  const std::string no(1, '\0');
  using Row = Attributes::value_type;
  for (const auto& [type, certificate] :
       {Row{CKA_CLASS, number(CKO_CERTIFICATE)}, Row{CKA_TOKEN, yes}, Row{CKA_PRIVATE, no},
        Row{CKA_LABEL, "(37428) Example Holder"}, Row{CKA_VALUE, file},
        Row{CKA_CERTIFICATE_TYPE, number(CKC_X_509)}, Row{CKA_ISSUER, name("CA")},
        Row{CKA_SERIAL_NUMBER, "\x92\x34"}, Row{CKA_KEY_TYPE, number(CKK_RSA)},
        Row{CKA_SUBJECT, name("Example Holder")}, Row{CKA_ID, number(10)}, Row{CKA_SENSITIVE, yes},
        Row{CKA_MODULUS, modulus}, Row{CKA_EXTRACTABLE, no}, Row{CKA_ALWAYS_AUTHENTICATE, no}}) {
    EXPECT_EQ(value(10, type), certificate) << type;
    const std::string key = type == CKA_CLASS     ? number(CKO_PRIVATE_KEY)
                            : type == CKA_PRIVATE ? yes
                                                  : certificate;
    EXPECT_EQ(type == CKA_VALUE ? key : value(KEY + 10, type), key) << type;
  }
  std::string room(file.size(), '\xEE');
  CK_ATTRIBUTE attribute = {CKA_VALUE, room.data(), 3};
  EXPECT_EQ(p11->C_GetAttributeValue(1, KEY + 10, &attribute, 1), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 3U) << "a key has no value and says nothing of it";
  attribute.ulValueLen = file.size() - 1;
  EXPECT_EQ(p11->C_GetAttributeValue(1, 10, &attribute, 1), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attribute.ulValueLen, file.size());
  EXPECT_EQ(room, std::string(file.size(), '\xEE'));
}

TEST_F(AttributeQuery, UnusualCertificates) {
  using Row = std::tuple<std::string, std::string, std::string>;  // arguments, label, serial number
  for (const auto& [arguments, label, serial] :
       {Row{"-set_serial 0", "(0) Example Holder", std::string(1, '\0')},
        Row{"-set_serial -128", "(-128) Example Holder", "\x80"},
        Row{"-subj /O=Nobody", "(4660) ", "\x12\x34"},
        Row{"-subj /CN=First/CN=Second", "(4660) First", "\x12\x34"},
        Row{"-set_serial 0xFFFFFFFFFFFFFFFFFF -utf8 -subj /CN=Jo\xC3\xA3o",
            "(4722366482869645213695) Jo\xC3\xA3o", std::string(9, '\xFF')}}) {
    write("certificados/0.cer", certificate(arguments));
    EXPECT_EQ(value(0, CKA_LABEL), label);
    EXPECT_EQ(value(0, CKA_SERIAL_NUMBER), serial);
  }
  // A byte of the subject; the signature is nobody's matter.
  const std::string utf8 = certificate("-utf8 -subj /CN=Andr\xC3\xA9");
  const std::size_t at = utf8.rfind("Andr");
  for (const auto& [place, byte, label] :
       {std::tuple(at + 3, '\0', "(4660) And"),
        std::tuple(at - 2, '\x14', "(4660) Andr\xC3\xA9"),     // T61String
        std::tuple(at - 2, '\x1E', "(4660) Andr\xC3\xA9")}) {  // BMPString
    write("certificados/0.cer", std::string(utf8).replace(place, 1, 1, byte));
    EXPECT_EQ(value(0, CKA_LABEL), label);
  }
  write("certificados/0.cer", certificate("-newkey rsa:1024 -nodes -keyout /dev/null"));
  const std::string modulus = value(0, CKA_MODULUS);
  EXPECT_EQ(modulus.size(), 256U);
  EXPECT_EQ(modulus.substr(131), std::string(125, '\0')) << "nothing lies behind a 1024-bit key";
}

TEST_F(AttributeQuery, TheLastFailureCountsAndStopsNothing) {
  write("certificados/10.cer", certificate());
  std::string room(8, '\xEE');
  pointers["R"] = room.data();
  // The length of the last one is not read.
  run("class : 63; list : [108,R,5,3,R,7,0,&class,0]; C_GetAttributeValue 1 A list 3 = 150;"
      "list[2] ? 5; list[5] ? 15; class ? 1;"
      "class : 63; list : [3,R,7,108,R,5,0,&class,0]; C_GetAttributeValue 1 A list 3 = 12;"
      "list[2] ? 15; list[5] ? 5; class ? 1");
  EXPECT_EQ(room, std::string(8, '\xEE'));
  for (const char* type : {"86", "105", "110", "122", "170", "100000000"}) {
    run("list : [%,0,5]; C_GetAttributeValue 1 A list 1 = 12; list[2] ? 5", type);
  }
}

TEST_F(AttributeQuery, HandlesWithoutACertificate) {
  write("certificados/10.cer", certificate());
  write("certificados/11.cer", "-----BEGIN CERTIFICATE-----");
  write("certificados/12.cer", "");
  std::filesystem::create_directory(folder / "certificados/13.cer");
  for (const char* handle : {"0", "B", "C", "D", "8000000C", "10000000A", "FFFFFFFFFFFFFFFB"}) {
    run("n : 63; list : [0,&n,77]; C_GetAttributeValue 1 % list 1 = 30; list[2] ? 77; n ? 63",
        handle);
  }
  EXPECT_EQ(log(), std::vector<std::string>());
}
