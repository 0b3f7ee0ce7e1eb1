#include "brivasign_check/report.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>

#include "printable.h"
#include "service/json.h"
// The library's settings come before the rest of it.
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

namespace diagnosis {
namespace {

// Grows when a field or a code changes its meaning or goes, not when one is added.
constexpr std::int64_t SCHEMA_VERSION = 1;

constexpr const char* PRIVACY_NOTICE =
    "names in certificates may hold a tax number; paths and the log name users and applications";

struct StatusName {
  const char* text;
  const char* json;
};

StatusName nameOf(Status status) {
  constexpr std::array<StatusName, 3> NAMES = {
      {{"ok   ", "ok"}, {"note ", "note"}, {"WRONG", "wrong"}}};
  return NAMES[static_cast<std::size_t>(status)];
}

// Returns `name`, in lower camel case or with hyphens, as words.
std::string words(const std::string& name) {
  std::string text;
  for (const char c : name) {
    const bool isCapital = std::isupper(static_cast<unsigned char>(c)) != 0;
    if (isCapital || c == '-') text += ' ';
    if (c != '-') text += isCapital ? static_cast<char>(std::tolower(c)) : c;
  }
  return text;
}

// Returns what `finding` is about.
std::string subjectOf(const Finding& finding) {
  const std::string area = words(finding.code.substr(0, finding.code.find('.')));
  return finding.entry.empty() ? area : area + " " + tools::printable(finding.entry);
}

std::string textOf(const std::string& value) { return tools::printable(value); }
std::string textOf(bool value) { return value ? "yes" : "no"; }
std::string textOf(std::int64_t value) { return std::to_string(value); }

std::string linesOf(const Facts& facts) {
  std::ostringstream lines;
  for (const auto& [name, value] : facts) {
    lines << "        " << words(name) << ": "
          << std::visit([](const auto& held) { return textOf(held); }, value) << '\n';
  }
  return lines.str();
}

class Writer : public rapidjson::PrettyWriter<rapidjson::StringBuffer> {
 public:
  using PrettyWriter::PrettyWriter;

  void value(const std::string& text) { String(tools::printable(text).c_str()); }
  void value(bool flag) { Bool(flag); }
  void value(std::int64_t number) { Int64(number); }

  // Writes `facts` as members of the object that is open.
  void members(const Facts& facts) {
    for (const auto& [name, held] : facts) {
      Key(name.c_str());
      std::visit([this](const auto& content) { value(content); }, held);
    }
  }
};

}  // namespace

bool Report::isWell() const {
  return std::none_of(findings.begin(), findings.end(),
                      [](const Finding& finding) { return finding.status == Status::WRONG; });
}

std::string textOf(const Report& report) {
  std::ostringstream text;
  text << report.program << '\n' << linesOf(report.run);
  for (const Finding& finding : report.findings) {
    text << nameOf(finding.status).text << ' ' << subjectOf(finding) << ": "
         << tools::printable(finding.message) << '\n'
         << linesOf(finding.facts);
    if (!finding.advice.empty())
      text << "      what to do: " << tools::printable(finding.advice) << '\n';
  }
  for (const std::string& line : report.logLines)
    text << "      | " << tools::printable(line) << '\n';
  text << "before you pass this on: " << PRIVACY_NOTICE << '\n'
       << (report.isWell() ? "nothing is wrong\n"
                           : "something is wrong: see the lines marked WRONG\n");
  return text.str();
}

std::string jsonOf(const Report& report) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  writer.StartObject();
  writer.members({{"schemaVersion", SCHEMA_VERSION}, {"program", report.program}});
  writer.members(report.run);
  writer.members({{"privacyNotice", PRIVACY_NOTICE}, {"result", report.isWell() ? "ok" : "wrong"}});
  writer.Key("findings");
  writer.StartArray();
  for (const Finding& finding : report.findings) {
    writer.StartObject();
    writer.members({{"status", nameOf(finding.status).json},
                    {"code", finding.code},
                    {"entry", finding.entry},
                    {"message", finding.message},
                    {"advice", finding.advice}});
    writer.Key("facts");
    writer.StartObject();
    writer.members(finding.facts);
    writer.EndObject();
    writer.EndObject();
  }
  writer.EndArray();
  writer.Key("log");
  writer.StartArray();
  for (const std::string& line : report.logLines) writer.value(line);
  writer.EndArray();
  writer.EndObject();
  return buffer.GetString() + std::string("\n");
}

}  // namespace diagnosis
