#include "tools/monitor_receiver.h"

#include <fcntl.h>
#include <signal.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <vector>

#include "platform/monitor_channel.h"

namespace scadastore {
namespace {

volatile sig_atomic_t stopping = 0;

void RequestStop(int) { stopping = 1; }

bool PublishId(uint64_t id, bool create) {
  int fd = shm_open(kMonitorBlockName, O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0), 0600);
  if (fd < 0) return false;
  bool ok = !create || ftruncate(fd, kMonitorBlockSize) == 0;
  void* view = ok ? mmap(nullptr, kMonitorBlockSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)
                  : MAP_FAILED;
  if (view != MAP_FAILED) {
    std::memcpy(view, &id, sizeof id);
    munmap(view, kMonitorBlockSize);
  }
  close(fd);
  return view != MAP_FAILED;
}

}  // namespace

bool MonitorReceiver::Start(uint64_t id, std::string& error) {
  Stop();
  socket_path_ = MonitorSocketPath(id);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socket_path_.c_str(), socket_path_.size() + 1);
  unlink(socket_path_.c_str());
  listener_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (listener_ < 0 || bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener_, 16) != 0) {
    error = "cannot listen on " + socket_path_ + ": " + std::strerror(errno);
    Stop();
    return false;
  }
  if (!PublishId(id, true)) {
    error = std::string("cannot create the shared block ") + kMonitorBlockName + ": " +
            std::strerror(errno);
    Stop();
    return false;
  }
  id_ = id;
  return true;
}

int MonitorReceiver::Accept(int timeoutMs) {
  if (listener_ < 0) return -1;
  pollfd ready{listener_, POLLIN, 0};
  if (poll(&ready, 1, timeoutMs) <= 0) return -1;
  return accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
}

bool MonitorReceiver::Read(int peer, MonitorDelivery& delivery) {
  std::vector<char> packet(64 * 1024);
  pollfd incoming{peer, POLLIN, 0};
  ssize_t length = poll(&incoming, 1, 1000) > 0 ? recv(peer, packet.data(), packet.size(), 0) : -1;
  if (length < 8) return false;
  std::memcpy(&delivery.message, packet.data(), 4);
  std::memcpy(&delivery.wParam, packet.data() + 4, 4);
  delivery.text.assign(packet.data() + 8, strnlen(packet.data() + 8, length - 8));
  return true;
}

bool MonitorReceiver::Receive(int timeoutMs, MonitorDelivery& delivery) {
  int peer = Accept(timeoutMs);
  if (peer < 0) return false;
  bool received = Read(peer, delivery);
  if (received) send(peer, "", 1, MSG_NOSIGNAL);
  close(peer);
  return received;
}

void MonitorReceiver::Stop() {
  if (id_ != 0) {
    PublishId(0, false);
    shm_unlink(kMonitorBlockName);
    id_ = 0;
  }
  if (listener_ >= 0) {
    close(listener_);
    listener_ = -1;
  }
  if (!socket_path_.empty()) {
    unlink(socket_path_.c_str());
    socket_path_.clear();
  }
}

bool RunMonitor(const char* name, std::FILE* out, std::string& error) {
  struct sigaction action {};
  action.sa_handler = RequestStop;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  MonitorReceiver receiver;
  if (!receiver.Start(static_cast<uint64_t>(getpid()), error)) return false;
  std::fprintf(out, "%s: listening as %d\n", name, static_cast<int>(getpid()));
  std::fflush(out);
  while (!stopping) {
    MonitorDelivery delivery;
    if (!receiver.Receive(250, delivery)) continue;
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm local;
    localtime_r(&now.tv_sec, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    std::fprintf(out, "%s.%03ld [%u/%u] %s\n", stamp, now.tv_nsec / 1000000, delivery.message,
                 delivery.wParam, delivery.text.c_str());
    std::fflush(out);
  }
  return true;
}

}  // namespace scadastore
