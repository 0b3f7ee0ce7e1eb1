#include "stop_pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>

namespace localservice {

FileDescriptor::~FileDescriptor() {
  if (number_ >= 0) {
    ::close(number_);
  }
}

void configureDescriptor(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags < 0 || ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) < 0 ||
      ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot configure a descriptor");
  }
}

StopPipe::StopPipe() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
  }
  readEnd_ = FileDescriptor(ends[0]);
  writeEnd_ = FileDescriptor(ends[1]);
  configureDescriptor(readEnd_.get());
  configureDescriptor(writeEnd_.get());
}

void StopPipe::stop() const noexcept {
  // The code that a signal handler interrupts must find errno as it was.
  const int savedError = errno;
  // Nobody drains the pipe, so a write that fails finds it full: the order stands already.
  [[maybe_unused]] const auto written = ::write(writeEnd_.get(), "", 1);
  errno = savedError;
}

StopPipe::Event StopPipe::wait(int descriptor, short events, Clock::time_point deadline) const {
  std::array<pollfd, 2> watched{{{descriptor, events, 0}, {readEnd_.get(), POLLIN, 0}}};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const auto timeout = static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
    const int ready = ::poll(watched.data(), watched.size(), timeout);
    if (ready < 0 && errno != EINTR && errno != EAGAIN) {
      throw std::system_error(errno, std::generic_category(), "cannot wait for a socket");
    }
    if (ready > 0) {
      return watched[1].revents != 0 ? Event::STOPPED : Event::READY;
    }
    if (Clock::now() >= deadline) {
      return Event::EXPIRED;
    }
  }
}

}  // namespace localservice
