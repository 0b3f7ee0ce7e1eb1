#pragma once

#include <pthread.h>

#include <mutex>

namespace brivasign::standard {

// What std::scoped_lock locks. Not std::mutex, which brings along all of what macOS's C++ library
// reports its failures with.
class Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  ~Mutex() { pthread_mutex_destroy(&mutex_); }

  void lock() { pthread_mutex_lock(&mutex_); }
  void unlock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace brivasign::standard
