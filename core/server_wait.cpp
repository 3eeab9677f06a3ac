#include "core/server_wait.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/connection_socket.h"

namespace scadastore {

// One thread for the process, started by the first limit. A socket is shut
// down only while its limit is registered, that is while the call that owns
// the connection still waits in the driver, so a descriptor that was closed
// and reused is never touched.
class Watchdog {
 public:
  static Watchdog& Instance() {
    // Never destroyed: the thread may outlive static destruction at exit.
    static Watchdog* watchdog = new Watchdog;
    return *watchdog;
  }

  void Add(ServerWaitLimit* limit) {
    std::lock_guard lock(mutex_);
    if (!started_) {
      std::thread([this] { Run(); }).detach();
      started_ = true;
    }
    limits_.push_back(limit);
    changed_.notify_one();
  }

  void Remove(ServerWaitLimit* limit) {
    std::lock_guard lock(mutex_);
    limits_.erase(std::find(limits_.begin(), limits_.end(), limit));
  }

  bool Expired(const ServerWaitLimit* limit) {
    std::lock_guard lock(mutex_);
    return limit->expired_;
  }

 private:
  void Run() {
    std::unique_lock lock(mutex_);
    for (;;) {
      std::chrono::steady_clock::time_point next{};
      const auto now = std::chrono::steady_clock::now();
      for (ServerWaitLimit* limit : limits_) {
        if (limit->expired_) continue;
        if (limit->deadline_ <= now) {
          ShutdownSocket(limit->socket_);
          limit->expired_ = true;
        } else {
          if (next == decltype(next){} || limit->deadline_ < next) next = limit->deadline_;
        }
      }
      if (next == decltype(next){})
        changed_.wait(lock);
      else
        changed_.wait_until(lock, next);
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<ServerWaitLimit*> limits_;
  bool started_ = false;
};

ServerWaitLimit::ServerWaitLimit(int socket, int seconds)
    : socket_(socket),
      deadline_(std::chrono::steady_clock::now() + std::chrono::seconds(seconds)) {
  if (socket < 0 || seconds <= 0) return;
  Watchdog::Instance().Add(this);
  watched_ = true;
}

ServerWaitLimit::~ServerWaitLimit() {
  if (watched_) Watchdog::Instance().Remove(this);
}

bool ServerWaitLimit::expired() const {
  return watched_ && Watchdog::Instance().Expired(this);
}

}  // namespace scadastore
