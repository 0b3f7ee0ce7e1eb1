#include "brivasign_check/report.h"

#include <algorithm>
#include <array>
#include <ostream>

#include "brivasign_check/printable.h"
#include "log/version.h"
#include "service/json.h"
// The library's settings come before the rest of it.
#include <rapidjson/ostreamwrapper.h>
#include <rapidjson/prettywriter.h>

namespace diagnosis {
namespace {

struct StatusName {
  const char* text;
  const char* json;
};

StatusName nameOf(Status status) {
  constexpr std::array<StatusName, 3> NAMES = {
      {{"ok   ", "ok"}, {"note ", "note"}, {"WRONG", "wrong"}}};
  return NAMES[static_cast<std::size_t>(status)];
}

}  // namespace

bool Report::isWell() const {
  return std::none_of(findings.begin(), findings.end(),
                      [](const Finding& finding) { return finding.status == Status::WRONG; });
}

void writeText(const Report& report, std::ostream& out) {
  out << "brivasign-check " << brivasign::MODULE_VERSION << '\n';
  for (const Finding& finding : report.findings) {
    out << nameOf(finding.status).text << ' ' << printable(finding.subject) << ": "
        << printable(finding.message) << '\n';
    for (const auto& [name, value] : finding.facts) {
      out << "        " << name << ": " << printable(value) << '\n';
    }
    if (!finding.advice.empty()) out << "      what to do: " << finding.advice << '\n';
  }
  for (const std::string& line : report.logLines) out << "      | " << printable(line) << '\n';
  out << (report.isWell() ? "all is well\n" : "something is wrong: see the lines marked WRONG\n");
}

void writeJson(const Report& report, std::ostream& out) {
  rapidjson::OStreamWrapper stream(out);
  rapidjson::PrettyWriter<rapidjson::OStreamWrapper> writer(stream);
  const auto member = [&writer](const std::string& name, const std::string& value) {
    writer.Key(name.c_str());
    writer.String(printable(value).c_str());
  };
  writer.StartObject();
  member("version", brivasign::MODULE_VERSION);
  member("result", report.isWell() ? "ok" : "wrong");
  writer.Key("findings");
  writer.StartArray();
  for (const Finding& finding : report.findings) {
    writer.StartObject();
    member("status", nameOf(finding.status).json);
    member("subject", finding.subject);
    member("message", finding.message);
    member("advice", finding.advice);
    writer.Key("facts");
    writer.StartObject();
    for (const auto& [name, value] : finding.facts) member(name, value);
    writer.EndObject();
    writer.EndObject();
  }
  writer.EndArray();
  writer.Key("log");
  writer.StartArray();
  for (const std::string& line : report.logLines) writer.String(printable(line).c_str());
  writer.EndArray();
  writer.EndObject();
  out << '\n';
}

}  // namespace diagnosis
