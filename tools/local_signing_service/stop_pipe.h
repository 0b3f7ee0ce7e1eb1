#pragma once

#include <chrono>
#include <utility>

namespace localservice {

// Owns an open file descriptor; -1 stands for none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int number = -1) noexcept : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor();

  [[nodiscard]] int get() const noexcept { return number_; }

 private:
  int number_;
};

// Makes `descriptor` non-blocking and closed on exec; throws std::system_error.
void configureDescriptor(int descriptor);

// Lets one thread wait for sockets while any thread, or a signal handler, can end all its waiting
// for good. A pipe carries the order, because a flag could be set just before the wait begins.
class StopPipe {
 public:
  enum class Event { READY, EXPIRED, STOPPED };
  using Clock = std::chrono::steady_clock;

  StopPipe();  // throws std::system_error

  void stop() const noexcept;

  // Waits until `descriptor` (-1: none) is ready for the poll() `events` or broken, until
  // `deadline`, or until stop(), whichever is first; stop() wins over the others.
  [[nodiscard]] Event wait(int descriptor, short events, Clock::time_point deadline) const;

 private:
  FileDescriptor readEnd_;
  FileDescriptor writeEnd_;
};

}  // namespace localservice
