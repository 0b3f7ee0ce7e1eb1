#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#define USER_KEY LOCAL_PKI "/users/1001.key"

// The handle of a certificate's private key lies so far above its own.
constexpr CK_ULONG KEY = 0x80000000;

// Attributes as a consumer writes them: type and bytes.
using Attributes = std::vector<std::pair<CK_ATTRIBUTE_TYPE, std::string>>;
std::vector<CK_ATTRIBUTE> entries(const Attributes& attributes);

// A fresh copy of the module, loaded as a consumer does, in a home of its own.
class ModuleTest : public ::testing::Test {
 protected:
  explicit ModuleTest(const char* modulePath = LOCAL_MODULE);
  ~ModuleTest() override;

  // Loads the module at `path`, unloading the one there is.
  void load(const char* path);

  // The call of a function of the module by its text: its name, which it exports or has in its
  // table alone, and its arguments, each a hexadecimal number, the name of a pointer or of a
  // number,
  // "&" and the name of a number, or such words in brackets, with commas, for where they lie in
  // memory: mechanisms, attributes and the like. At least three do, the rest of them 0.
  std::function<CK_RV()> prepared(const std::string& text);
  CK_RV call(const std::string& text) { return prepared(text)(); }

  // Goes through statements separated by semicolons: a call, "=" and its expected result; a number,
  // ":" and what it becomes; a number, or a word of what lies in memory as "name[index]", "?" and
  // what it must be. "%" stands for `inserted`.
  void run(const std::string& script, const std::string& inserted = "");

  void openSession() { run("C_Initialize = 0; C_OpenSession 1 6 0 0 &session = 0; session ? 1"); }

  [[nodiscard]] CK_STATE state(CK_SESSION_HANDLE session = 1) const;

  // The value of one attribute, asked for as consumers do: first its length, then its bytes.
  [[nodiscard]] std::string value(CK_OBJECT_HANDLE handle, CK_ATTRIBUTE_TYPE type,
                                  CK_SESSION_HANDLE session = 1) const;

  // Handles of all objects that `filter` matches, in the order in which they are found, asked for
  // `room` at a time.
  [[nodiscard]] std::vector<CK_OBJECT_HANDLE> find(const Attributes& filter = {},
                                                   CK_ULONG room = 1'000,
                                                   CK_SESSION_HANDLE session = 1) const;

  // The first `length` bytes of what the call `text` makes of a structure "info" of 0xEE bytes.
  std::string filled(std::size_t length, const std::string& text);

  // The content of a file of the product folder, "" when there is none.
  [[nodiscard]] std::string read(const std::string& name) const;
  void write(const std::string& name, const std::string& content) const;

  // The messages of the log without their time stamps, which are checked; a line of the TLS
  // library's queue is "<tls>".
  [[nodiscard]] std::vector<std::string> log() const;

  // A new certificate in DER, made by `openssl req -x509` with `arguments`; by default self-signed
  // with the key of user 1001, serial number 0x1234 and the name "Example Holder". `resigning` are
  // arguments of an `openssl x509` that follows. It stays in the file made.pem of the home.
  [[nodiscard]] std::string certificate(const std::string& arguments = "",
                                        const std::string& resigning = "") const;
  // Arguments for one that a new CA of this common name issues.
  [[nodiscard]] std::string issuedBy(const std::string& commonName) const;

  void* library = nullptr;
  CK_FUNCTION_LIST_PTR p11 = nullptr;
  std::map<std::string, void*> pointers;
  std::map<std::string, CK_ULONG> numbers;
  std::filesystem::path home;
  std::filesystem::path folder;  // the product folder

 private:
  CK_ULONG valueOf(const std::string& word);
  CK_ULONG& wordAt(const std::string& name);

  std::list<std::vector<CK_ULONG>> structures;
};

// `text` and as much of `fill` as makes it `width` bytes long.
std::string padded(std::string text, std::size_t width, char fill = '\0');

// The DER encoding of a distinguished name of one common name.
std::string name(const std::string& commonName);

// What a command of the shell prints, and its exit status.
std::pair<std::string, int> output(const std::string& command);

// The eight native bytes of `value`.
std::string number(CK_ULONG value);
