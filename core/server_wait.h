// A bound on how long one ODBC call may wait for the server. Drivers bound
// their connect, but a statement sent to a server that stopped answering (a
// frozen process, a host gone without a reset) would wait for ever: while a
// ServerWaitLimit lives, a watchdog thread shuts its socket down once the
// limit has passed, so that the driver's blocking read fails.
#pragma once

#include <chrono>

#include "platform/connection_socket.h"

namespace scadastore {

class Watchdog;

// The sockets of `now` that `before` did not list.
SocketList OpenedBetween(const SocketList& before, const SocketList& now);

class ServerWaitLimit {
 public:
  // No limit when `seconds` is 0 or the socket is not known.
  ServerWaitLimit(int socket, int seconds);
  // A connect: the one socket opened in the process after `before` is shut
  // down once the limit has passed (none when several were opened).
  ServerWaitLimit(SocketList before, int seconds);
  ~ServerWaitLimit();
  ServerWaitLimit(const ServerWaitLimit&) = delete;
  ServerWaitLimit& operator=(const ServerWaitLimit&) = delete;

  // True once the watchdog has cut the wait.
  bool expired() const;

 private:
  friend class Watchdog;
  int socket_;
  SocketList before_;
  std::chrono::steady_clock::time_point deadline_;
  Watchdog* watchdog_ = nullptr;
  bool expired_ = false;
};

}  // namespace scadastore
