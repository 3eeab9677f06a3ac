// The receiving side of the monitor channel: owns "/message_mem" and the
// socket "/tmp/message_mem.<id>", and takes deliveries one at a time.
#pragma once

#include <cstdint>
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
  // Waits up to timeoutMs for one delivery. With answer false the sender is
  // left waiting for its answer (until it gives up).
  bool Receive(int timeoutMs, MonitorDelivery& delivery, bool answer = true);
  // Publishes 0 and removes the block and the socket.
  void Stop();

 private:
  int listener_ = -1;
  uint64_t id_ = 0;
  std::string socket_path_;
};

}  // namespace scadastore
