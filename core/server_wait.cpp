#include "core/server_wait.h"

#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "platform/process.h"

namespace scadastore {

SocketList OpenedBetween(const SocketList& before, const SocketList& now) {
  SocketList opened;
  std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                      std::back_inserter(opened),
                      [](const auto& a, const auto& b) { return a.first < b.first; });
  return opened;
}

// One thread for the process, started by the first limit. A socket is shut
// down only while its limit is registered, that is while the call that owns
// the connection still waits in the driver, so a descriptor that was closed
// and reused is never touched.
class Watchdog {
 public:
  static Watchdog* Instance() {
    // Never destroyed: the thread may outlive static destruction at exit. A
    // child that the host forked has no thread of its parent's: it starts
    // its own watchdog and never touches the inherited one.
    static std::mutex guard;
    static Watchdog* watchdog = nullptr;
    static unsigned long owner = 0;
    std::lock_guard lock(guard);
    if (watchdog == nullptr || owner != CurrentProcessId()) {
      watchdog = new Watchdog;
      owner = CurrentProcessId();
    }
    return watchdog;
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
  // A connect's limit knows no socket yet: it cuts the one opened since it
  // began. When other threads of the host opened sockets meanwhile, the
  // connect's own cannot be told apart and none is touched.
  static void Cut(const ServerWaitLimit& limit) {
    if (limit.socket_ >= 0) return ShutdownSocket(limit.socket_);
    const SocketList opened = OpenedBetween(limit.before_, OpenSockets());
    if (opened.size() == 1) ShutdownSocket(opened.front().second);
  }

  void Run() {
    std::unique_lock lock(mutex_);
    for (;;) {
      std::chrono::steady_clock::time_point next{};
      const auto now = std::chrono::steady_clock::now();
      for (ServerWaitLimit* limit : limits_) {
        if (limit->expired_) continue;
        if (limit->deadline_ <= now) {
          Cut(*limit);
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
  watchdog_ = Watchdog::Instance();
  watchdog_->Add(this);
}

ServerWaitLimit::ServerWaitLimit(SocketList before, int seconds)
    : socket_(kNoSocket),
      before_(std::move(before)),
      deadline_(std::chrono::steady_clock::now() + std::chrono::seconds(seconds)) {
  if (seconds <= 0) return;
  watchdog_ = Watchdog::Instance();
  watchdog_->Add(this);
}

ServerWaitLimit::~ServerWaitLimit() {
  if (watchdog_) watchdog_->Remove(this);
}

bool ServerWaitLimit::expired() const { return watchdog_ && watchdog_->Expired(this); }

}  // namespace scadastore
