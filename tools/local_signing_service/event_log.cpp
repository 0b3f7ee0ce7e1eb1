#include "event_log.h"

#include <array>
#include <chrono>
#include <ctime>

#include "json.h"
#include "printable.h"

namespace localservice {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

// Returns the time of day here, or with `asUtc` date and time in ISO 8601.
std::string now(bool asUtc) {
  const auto time = std::chrono::floor<milliseconds>(system_clock::now());
  const std::time_t seconds = system_clock::to_time_t(time);
  std::tm parts{};
  std::array<char, 32> text{};
  if (!asUtc) {
    localtime_r(&seconds, &parts);
    return {text.data(), std::strftime(text.data(), text.size(), "%T", &parts)};
  }
  gmtime_r(&seconds, &parts);
  const std::string fraction = std::to_string(1000 + time.time_since_epoch().count() % 1000);
  return std::string(text.data(), std::strftime(text.data(), text.size(), "%FT%T.", &parts)) +
         fraction.substr(1) + 'Z';
}

std::string jsonLine(const char* subject, std::size_t number, const std::string& event,
                     const EventLog::Fields& fields) {
  json::StringBuffer buffer;
  JsonWriter writer(buffer);
  writer.StartObject();
  member(writer, "time", now(true));
  if (number != 0) {
    member(writer, subject, number);
  }
  member(writer, "event", event);
  for (const auto& [name, value] : fields) {
    member(writer, name, tools::printable(value));
  }
  writer.EndObject();
  return buffer.GetString();
}

std::string textLine(const char* subject, std::size_t number, const std::string& event,
                     const EventLog::Fields& fields) {
  std::string line = now(false) + ' ';
  if (number != 0) {
    line += subject + (' ' + std::to_string(number)) + ": ";
  }
  line += event;
  for (const auto& [name, value] : fields) {
    line += std::string(", ") + name + ": " + tools::printable(value);
  }
  return line;
}

}  // namespace

void EventLog::tell(const char* subject, std::size_t number, const std::string& event,
                    const Fields& fields) {
  const std::string line =
      asJson_ ? jsonLine(subject, number, event, fields) : textLine(subject, number, event, fields);
  const std::lock_guard lock(mutex_);
  // A disk that was full may have room again.
  output_.clear();
  terminal_.clear();
  if (isAsking_) {
    terminal_ << '\n' << std::flush;
  }
  output_ << line << '\n' << std::flush;
  terminal_ << question_ << std::flush;
  isAsking_ = !question_.empty();
}

void EventLog::ask(const std::string& question) {
  const std::lock_guard lock(mutex_);
  question_ = question;
  if (!isAsking_) {
    terminal_ << question_ << std::flush;
    isAsking_ = !question_.empty();
  }
}

void EventLog::askAgain() {
  const std::lock_guard lock(mutex_);
  terminal_ << question_ << std::flush;
}

}  // namespace localservice
