#include "terminal.h"

#include <iostream>
#include <string>
#include <thread>

namespace localservice {

void decideOnTerminal(SigningService& service, EventLog& log) {
  std::thread([&] {
    for (std::string typed; std::getline(std::cin, typed);) {
      if (typed == "y" || typed == "n") {
        service.decide(0, typed == "y");
      } else {
        log.askAgain();
      }
    }
    log.tell("", 0, "refusing", {{"reason", "standard input has ended"}});
    service.refuseAll();
  }).detach();
}

}  // namespace localservice
