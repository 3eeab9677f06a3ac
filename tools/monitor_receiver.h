// The receiving side of the monitor channel: owns "/message_mem" and the
// socket "/tmp/message_mem.<id>", and takes deliveries one at a time.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace scadastore {

struct MonitorDelivery {
  uint32_t message = 0;
  uint32_t wParam = 0;
  std::string text;
};

class MonitorReceiver {
 public:
  MonitorReceiver() = default;
  ~MonitorReceiver() { Stop(); }
  MonitorReceiver(const MonitorReceiver&) = delete;
  MonitorReceiver& operator=(const MonitorReceiver&) = delete;

  // Creates the block (mode 0600, 32768 bytes), listens and publishes `id`.
  bool Start(uint64_t id, std::string& error);
  // Waits up to timeoutMs for one delivery, copies it and answers.
  bool Receive(int timeoutMs, MonitorDelivery& delivery);
  // The parts of Receive: the next connection (-1 when none came within
  // timeoutMs; the caller closes it) and the delivery read from it.
  int Accept(int timeoutMs);
  static bool Read(int peer, MonitorDelivery& delivery);
  // Publishes 0 and removes the block and the socket.
  void Stop();

 private:
  int listener_ = -1;
  uint64_t id_ = 0;
  std::string socket_path_;
};

// Publishes this process (its pid) as the receiver and prints each delivery
// with a local time stamp to `out` until SIGINT or SIGTERM. False with `error`
// set when it cannot start.
bool RunMonitor(const char* name, std::FILE* out, std::string& error);

}  // namespace scadastore
