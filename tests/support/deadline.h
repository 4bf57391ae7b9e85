// A watchdog for tests whose threads could deadlock: if the scope it guards
// has not ended within its limit, it says so and ends the process with a
// failure, since threads stuck on each other's locks can be neither joined
// nor abandoned. A hang becomes a failure instead of a stalled run.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace tsw {

class Deadline {
 public:
  Deadline(std::chrono::milliseconds limit, std::string what)
      : m_What(std::move(what)), m_Watch([this, limit] { Watch(limit); }) {}
  ~Deadline() {
    {
      std::lock_guard<std::mutex> lock(m_Lock);
      m_Done = true;
    }
    m_Changed.notify_all();
    m_Watch.join();
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

 private:
  void Watch(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_Lock);
    if (m_Changed.wait_for(lock, limit, [this] { return m_Done; })) return;
    std::fprintf(stderr, "Deadline of %lld ms passed: %s is stuck (a deadlock?)\n",
                 static_cast<long long>(limit.count()), m_What.c_str());
    std::fflush(stderr);
    std::_Exit(3);
  }

  std::string m_What;
  std::mutex m_Lock;
  std::condition_variable m_Changed;
  bool m_Done = false;  // m_Lock
  std::thread m_Watch;  // last: it starts once the rest stands
};

}  // namespace tsw
