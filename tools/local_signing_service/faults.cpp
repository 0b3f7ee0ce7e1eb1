#include "faults.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "http_request.h"
#include "private_key.h"

namespace localservice {
namespace {

Handler replyInTurn(const std::vector<std::filesystem::path>& files, EventLog& log) {
  std::vector<std::string> replies;
  replies.reserve(files.size());
  std::transform(files.begin(), files.end(), std::back_inserter(replies), readFile);
  return [files, replies, &log, turn = std::size_t{0}](const std::string& request,
                                                       std::size_t connection) mutable {
    const std::size_t index = std::min(turn++, replies.size() - 1);
    log.tell("connection", connection, "answered",
             {{"line", requestLine(request)}, {"file", files[index].string()}});
    return Reply{replies[index]};
  };
}

}  // namespace

Handler withFaults(Handler handler, const Faults& faults, EventLog& log) {
  if (!faults.replyFiles.empty()) {
    handler = replyInTurn(faults.replyFiles, log);
  }
  return
      [handler = std::move(handler), byteDelay = faults.byteDelay, closeAfter = faults.closeAfter,
       ending = faults.ending](const std::string& request, std::size_t connection) {
        Reply reply = handler(request, connection);
        reply.byteDelay = byteDelay;
        reply.closeAfter = closeAfter;
        reply.ending = ending;
        return reply;
      };
}

}  // namespace localservice
