#include "terminal.h"

#include <iostream>
#include <string>
#include <thread>

namespace localservice {

void decideOnTerminal(SigningService& service) {
  std::thread([&service] {
    for (std::string typed; std::getline(std::cin, typed);) {
      if (typed == "y" || typed == "n") {
        service.decide(0, typed == "y");
      }
    }
    service.refuseAll();
  }).detach();
}

}  // namespace localservice
