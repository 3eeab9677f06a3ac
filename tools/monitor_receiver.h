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
  enum class Reply {
    Answer,   // copy the text, then answer: the normal receiver
    Silent,   // copy the text, never answer; the sender gives up after its time-out
    HangUp,   // close the connection before reading anything
  };
  // Waits up to timeoutMs for one delivery.
  bool Receive(int timeoutMs, MonitorDelivery& delivery, Reply reply = Reply::Answer);
  // Publishes 0 and removes the block and the socket.
  void Stop();

 private:
  void CloseSilentPeer();

  int listener_ = -1;
  int silent_peer_ = -1;  // a connection held open without an answer
  uint64_t id_ = 0;
  std::string socket_path_;
};

// Publishes this process (its pid) as the receiver and prints each delivery
// with a local time stamp to `out` until SIGINT or SIGTERM. False with `error`
// set when it cannot start.
bool RunMonitor(const char* name, std::FILE* out, std::string& error);

}  // namespace scadastore
