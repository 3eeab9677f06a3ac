#include "platform/monitor_channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <vector>

namespace scadastore {
namespace {

constexpr int kAnswerTimeoutMs = 5000;

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// The receiver id published in the block, 0 when there is none.
uint64_t PublishedReceiver() {
  FileDescriptor block(shm_open(kMonitorBlockName, O_RDWR | O_CLOEXEC, 0));
  if (block.get() < 0) return 0;
  struct stat status;
  if (fstat(block.get(), &status) != 0 || status.st_size < static_cast<off_t>(sizeof(uint64_t)))
    return 0;
  size_t length = std::min<size_t>(static_cast<size_t>(status.st_size), kMonitorBlockSize);
  void* view = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, block.get(), 0);
  if (view == MAP_FAILED) return 0;
  uint64_t id;
  std::memcpy(&id, view, sizeof id);
  munmap(view, length);
  return id;
}

}  // namespace

void NotifyMonitorWindow(const char* text) {
  uint64_t receiver = PublishedReceiver();
  if (receiver == 0) return;

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string path = MonitorSocketPath(receiver);
  if (path.size() >= sizeof address.sun_path) return;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);

  FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (socket.get() < 0) return;
  if (connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return;

  size_t textSize = std::strlen(text) + 1;
  std::vector<char> packet(8 + textSize);
  std::memcpy(packet.data(), &kMonitorMessage, 4);
  std::memcpy(packet.data() + 4, &kMonitorWParam, 4);
  std::memcpy(packet.data() + 8, text, textSize);
  if (send(socket.get(), packet.data(), packet.size(), MSG_NOSIGNAL) < 0) return;

  // Delivery is synchronous: the receiver has copied the text once it answers.
  pollfd answer{socket.get(), POLLIN, 0};
  if (poll(&answer, 1, kAnswerTimeoutMs) > 0) {
    char byte;
    recv(socket.get(), &byte, 1, MSG_DONTWAIT);
  }
}

}  // namespace scadastore
