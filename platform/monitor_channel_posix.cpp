#include "platform/monitor_channel.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "platform/system_calls.h"

namespace scadastore {
namespace {

using Clock = std::chrono::steady_clock;

// The whole announcement (connect, send, answer) ends within this time.
constexpr std::chrono::milliseconds kAnnouncementLimit{5000};

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) systemCalls.close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// The receiver id published in the block, 0 when there is none. The block is
// read with pread, never mapped, so a block that shrinks meanwhile cannot
// raise SIGBUS; O_NONBLOCK keeps a FIFO put in its place from blocking the
// open. Only a regular file of our own user counts.
uint64_t PublishedReceiver() {
  FileDescriptor block(systemCalls.shm_open(
      kMonitorBlockName, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC, 0));
  if (block.get() < 0) return 0;
  struct stat status;
  if (systemCalls.fstat(block.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_uid != geteuid())
    return 0;
  uint64_t id = 0;
  if (systemCalls.pread(block.get(), &id, sizeof id, 0) != sizeof id) return 0;
  return id;
}

// Milliseconds left until `deadline`, at least 0.
int RemainingMs(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Waits for `events` on the socket until `deadline`.
bool WaitFor(int fd, short events, Clock::time_point deadline) {
  pollfd ready{fd, events, 0};
  int result;
  do {
    result = systemCalls.poll(&ready, 1, RemainingMs(deadline));
  } while (result < 0 && errno == EINTR && Clock::now() < deadline);
  return result > 0 && (ready.revents & events) != 0;
}

// Connects without blocking: a receiver that listens but never accepts (full
// backlog, stopped monitor) refuses at once or times out with the deadline.
bool ConnectBefore(int fd, const sockaddr_un& address, Clock::time_point deadline) {
  if (systemCalls.connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return true;
  if (errno != EINPROGRESS || !WaitFor(fd, POLLOUT, deadline)) return false;
  int error = 0;
  socklen_t length = sizeof error;
  return systemCalls.getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
}

// The texts may carry data: only a receiver of our own user gets them.
bool PeerIsOwnUser(int fd) {
  ucred peer{};
  socklen_t length = sizeof peer;
  return systemCalls.getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
         length == sizeof peer && peer.uid == geteuid();
}

}  // namespace

void NotifyMonitorWindow(const char* text) {
  const auto deadline = Clock::now() + kAnnouncementLimit;
  uint64_t receiver = PublishedReceiver();
  if (receiver == 0) return;

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  int pathLength = std::snprintf(address.sun_path, sizeof address.sun_path, "%s%llu",
                                 kMonitorSocketPrefix, static_cast<unsigned long long>(receiver));
  if (pathLength < 0 || static_cast<size_t>(pathLength) >= sizeof address.sun_path) return;

  FileDescriptor socket(
      systemCalls.socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (socket.get() < 0 || !ConnectBefore(socket.get(), address, deadline) ||
      !PeerIsOwnUser(socket.get()))
    return;

  // One packet, header and text, without copying the text.
  uint32_t header[2] = {kMonitorMessage, kMonitorWParam};
  iovec parts[2] = {{header, sizeof header}, {const_cast<char*>(text), std::strlen(text) + 1}};
  msghdr packet{};
  packet.msg_iov = parts;
  packet.msg_iovlen = 2;
  while (systemCalls.sendmsg(socket.get(), &packet, MSG_NOSIGNAL) < 0) {
    if ((errno != EAGAIN && errno != EINTR) || !WaitFor(socket.get(), POLLOUT, deadline)) return;
  }

  // Delivery is synchronous: the receiver has copied the text once it answers.
  if (WaitFor(socket.get(), POLLIN, deadline)) {
    char byte;
    systemCalls.recv(socket.get(), &byte, 1, MSG_DONTWAIT);
  }
}

}  // namespace scadastore
