#include "support/module_test.h"

#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

ModuleTest::ModuleTest(const char* modulePath) {
  std::string name = (std::filesystem::temp_directory_path() / "home-XXXXXX").string();
  home = mkdtemp(name.data());
  folder = home / "Library/Application Support/Orvix";
  std::filesystem::create_directories(folder / "certificados");
  setenv("HOME", home.c_str(), 1);
  load(modulePath);
}

ModuleTest::~ModuleTest() {
#ifndef __SANITIZE_THREAD__  // which calls the library's exit handlers at the process's end alone
  dlclose(library);
#endif
  std::filesystem::remove_all(home);
}

void ModuleTest::load(const char* path) {
  if (library != nullptr) dlclose(library);
  EXPECT_EQ(dlopen(path, RTLD_NOW | RTLD_NOLOAD), nullptr) << "it has not been unloaded";
  library = dlopen(path, RTLD_NOW);
  if (library == nullptr) throw std::runtime_error(dlerror());
  reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"))(&p11);
}

CK_ULONG ModuleTest::valueOf(const std::string& word) {
  if (word.starts_with('&')) return reinterpret_cast<CK_ULONG>(&numbers[word.substr(1)]);
  if (word.starts_with('[')) {
    std::vector<CK_ULONG>& structure = structures.emplace_back();
    std::istringstream words(word.substr(1, word.size() - 2));
    for (std::string each; std::getline(words, each, ',');) structure.push_back(valueOf(each));
    structure.resize(std::max(structure.size(), std::size_t{3}));
    return reinterpret_cast<CK_ULONG>(structure.data());
  }
  const auto pointer = pointers.find(word);
  if (pointer != pointers.end()) return reinterpret_cast<CK_ULONG>(pointer->second);
  const auto named = numbers.find(word);
  return named != numbers.end() ? named->second : std::stoul(word, nullptr, 16);
}

CK_ULONG& ModuleTest::wordAt(const std::string& name) {
  const std::size_t bracket = name.find('[');
  if (bracket == std::string::npos || name.find(' ') < bracket) return numbers[name];
  auto* const structure = reinterpret_cast<CK_ULONG*>(numbers.at(name.substr(0, bracket)));
  return structure[std::stoul(name.substr(bracket + 1))];
}

std::function<CK_RV()> ModuleTest::prepared(const std::string& text) {
  // Each argument is one machine word on the platforms served, so one type calls all functions.
  using AnyFunction =
      CK_RV (*)(CK_ULONG, CK_ULONG, CK_ULONG, CK_ULONG, CK_ULONG, CK_ULONG, CK_ULONG, CK_ULONG);
  std::istringstream words(text);
  std::string name;
  words >> name;
  std::array<CK_ULONG, 8> a = {};
  std::string word;
  for (std::size_t i = 0; words >> word; ++i) a.at(i) = valueOf(word);
  const std::map<std::string, void*> table = {
#define CK_FUNCTION_ENTRY(name, arguments) {#name, reinterpret_cast<void*>(p11->name)},
#include "../include/pkcs11f.h"
#undef CK_FUNCTION_ENTRY
  };
  void* const exported = dlsym(library, name.c_str());
  const auto function =
      reinterpret_cast<AnyFunction>(exported != nullptr ? exported : table.at(name));
  return [=] { return std::apply(function, a); };
}

void ModuleTest::run(const std::string& script, const std::string& inserted) {
  static const std::regex STATEMENT(R"(\s*(.*\S)\s*([=:?])\s*(\S+)\s*)");
  std::istringstream statements(std::regex_replace(script, std::regex("%"), inserted));
  for (std::string statement; std::getline(statements, statement, ';');) {
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(statement, parts, STATEMENT)) << statement;
    const CK_ULONG value = valueOf(parts[3]);
    CK_ULONG& named = wordAt(parts[1]);
    if (parts[2] == ":") named = value;
    const CK_ULONG found = parts[2] == "=" ? call(parts[1]) : named;
    EXPECT_EQ(found, value) << statement << " in " << script;
  }
}

CK_STATE ModuleTest::state(CK_SESSION_HANDLE session) const {
  CK_SESSION_INFO info = {};
  EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_OK);
  EXPECT_EQ(info.slotID, 1U);
  EXPECT_EQ(info.flags, info.state < 2 ? 0x4U : 0x6U);
  return info.state;
}

std::string ModuleTest::value(CK_OBJECT_HANDLE handle, CK_ATTRIBUTE_TYPE type,
                              CK_SESSION_HANDLE session) const {
  CK_ATTRIBUTE attribute = {type, nullptr, 0xEEEE};
  EXPECT_EQ(p11->C_GetAttributeValue(session, handle, &attribute, 1), CKR_OK) << std::hex << type;
  std::string bytes(attribute.ulValueLen + 1, '\xEE');
  attribute.pValue = bytes.data();
  EXPECT_EQ(p11->C_GetAttributeValue(session, handle, &attribute, 1), CKR_OK) << std::hex << type;
  EXPECT_EQ(bytes.back(), '\xEE') << std::hex << type;
  bytes.resize(attribute.ulValueLen);
  return bytes;
}

std::vector<CK_OBJECT_HANDLE> ModuleTest::find(const Attributes& filter, CK_ULONG room,
                                               CK_SESSION_HANDLE session) const {
  std::vector<CK_OBJECT_HANDLE> all;
  std::vector<CK_OBJECT_HANDLE> some(room + 1);
  CK_ULONG count = room;
  EXPECT_EQ(p11->C_FindObjectsInit(session, entries(filter).data(), filter.size()), CKR_OK);
  // One that never ends is found out by its size.
  for (bool isLast = false; count > 0 && all.size() < 1'000'000; isLast = count != room) {
    EXPECT_EQ(p11->C_FindObjects(session, some.data(), room, &count), CKR_OK);
    if (isLast) {
      EXPECT_EQ(count, 0U) << "there was room for these before";
      break;
    }
    all.insert(all.end(), some.begin(), some.begin() + static_cast<std::ptrdiff_t>(count));
  }
  EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OK);
  return all;
}

std::string ModuleTest::filled(std::size_t length, const std::string& text) {
  std::string bytes(300, '\xEE');
  pointers["info"] = bytes.data();
  run(text + " = 0");
  return bytes.substr(0, length);
}

std::string ModuleTest::read(const std::string& name) const {
  std::ostringstream content;
  content << std::ifstream(folder / name, std::ios::binary).rdbuf();
  return content.str();
}

void ModuleTest::write(const std::string& name, const std::string& content) const {
  std::ofstream(folder / name, std::ios::binary) << content;
}

std::vector<std::string> ModuleTest::log() const {
  static const std::regex STAMP(R"(\d{4}-[01]\d-[0-3]\d [0-2]\d:[0-5]\d:[0-6]\d \[2\.1\.2\] )");
  static const std::regex QUEUED(R"([0-9A-F]+:error:.*)");
  constexpr std::size_t STAMP_LENGTH = 28;
  std::vector<std::string> messages;
  std::istringstream lines(read("orvix.log"));
  for (std::string line; std::getline(lines, line);) {
    const bool isStamped = std::regex_match(line.substr(0, STAMP_LENGTH), STAMP);
    messages.push_back(isStamped                        ? line.substr(STAMP_LENGTH)
                       : std::regex_match(line, QUEUED) ? "<tls>"
                                                        : "unstamped: " + line);
  }
  return messages;
}

std::string ModuleTest::certificate(const std::string& arguments,
                                    const std::string& resigning) const {
  std::string options = " -subj '/CN=Example Holder' " + arguments;
  if (arguments.find("-set_serial") == std::string::npos) options += " -set_serial 0x1234";
  if (arguments.find("-newkey") == std::string::npos) options += " -key " USER_KEY;
  const std::string command = "cd " + home.string() + "; { openssl req -x509 -sha256" + options +
                              " | openssl x509 " + resigning + " -out made.pem && " +
                              "openssl x509 -in made.pem -outform DER -out made.der; } 2>made.log";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return read("../../../made.der");
}

std::string ModuleTest::issuedBy(const std::string& commonName) const {
  EXPECT_NE(certificate("-subj '/CN=" + commonName + "'"), "");
  std::filesystem::rename(home / "made.pem", home / "ca.pem");
  return " -CA " + (home / "ca.pem").string() + " -CAkey " USER_KEY " ";
}

std::vector<CK_ATTRIBUTE> entries(const Attributes& attributes) {
  std::vector<CK_ATTRIBUTE> list;
  list.reserve(attributes.size() + 1);  // then it is never null
  for (const auto& [type, value] : attributes) {
    list.push_back({type, const_cast<char*>(value.data()), value.size()});
  }
  return list;
}

std::string padded(std::string text, std::size_t width, char fill) {
  text.resize(width, fill);
  return text;
}

std::string name(const std::string& commonName) {
  const auto length = [&](std::size_t around) { return char(commonName.size() + around); };
  return std::string{'0', length(11), '1', length(9), '0', length(7)} + "\6\3U\4\3\f" + length(0) +
         commonName;
}

std::pair<std::string, int> output(const std::string& command) {
  std::FILE* const pipe = popen(command.c_str(), "r");
  std::string text;
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  const int status = pclose(pipe);
  return {text, WEXITSTATUS(status)};
}

std::string number(CK_ULONG value) { return {reinterpret_cast<const char*>(&value), sizeof value}; }
