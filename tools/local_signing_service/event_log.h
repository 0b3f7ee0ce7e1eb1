#pragma once

#include <cstddef>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace localservice {

// What the service tells: one flushed line per event, with its time. Any thread may use it.
class EventLog {
 public:
  using Fields = std::vector<std::pair<const char*, std::string>>;

  // Lines go to `output`: for people, or with `asJson` each a JSON object. A question to a person
  // goes to `terminal`. Both must outlive the log.
  EventLog(std::ostream& output, std::ostream& terminal, bool asJson)
      : output_(output), terminal_(terminal), asJson_(asJson) {}

  // Tells that `event` has happened now to what `subject` ("request", "connection") and `number`
  // name; 0 names nothing. Whatever the fields hold is made safe for a terminal.
  void tell(const char* subject, std::size_t number, const std::string& event,
            const Fields& fields = {});

  // Has `question` stand on the terminal's last line, whatever is told meanwhile; "" ends it. In
  // the place of another it comes with the next event.
  void ask(const std::string& question);

  // Has the question stand on the last line again when a person has ended that.
  void askAgain();

 private:
  std::ostream& output_;
  std::ostream& terminal_;
  const bool asJson_;
  std::mutex mutex_;
  std::string question_;
  bool isAsking_ = false;  // the last line of the terminal is a question
};

}  // namespace localservice
