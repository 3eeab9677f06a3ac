// Delivery of database error texts to a monitor process, if one listens.
//
// The monitor publishes a receiver id (uint64, host order) in the first 8
// bytes of the POSIX shared-memory object "/message_mem" and listens on the
// SOCK_SEQPACKET socket "/tmp/message_mem.<id>". A delivery is one packet:
// uint32 message 6119, uint32 wParam 21, then the text and its NUL; the
// receiver answers one byte. Anything missing means silence.
//
// On Windows the monitor creates the file mapping "message_mem" and puts a
// window handle at its start; a delivery is SendMessage(6119, 21, address of
// the text), and the monitor reads the text from the sender's memory.
#pragma once

#include <cstdint>
#include <string>

namespace scadastore {

constexpr const char* kMonitorBlockName = "/message_mem";
constexpr uint32_t kMonitorBlockSize = 32768;
constexpr uint32_t kMonitorMessage = 6119;
constexpr uint32_t kMonitorWParam = 21;

constexpr const char* kMonitorSocketPrefix = "/tmp/message_mem.";

// Sends the text to the published receiver and waits for its answer: 5
// seconds at most in all. Silent, and harmless to the caller, whatever the
// block and the receiver do. A block or receiver of another user is ignored.
void NotifyMonitorWindow(const char* text);

inline std::string MonitorSocketPath(uint64_t receiverId) {
  return kMonitorSocketPrefix + std::to_string(receiverId);
}

}  // namespace scadastore
