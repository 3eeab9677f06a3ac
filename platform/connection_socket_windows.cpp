#include "platform/connection_socket.h"

// clang-format off: winsock2.h must come before windows.h
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
// clang-format on

#include <algorithm>

namespace scadastore {
namespace {

// Started once and never cleaned up: the host may use Winsock too.
bool WinsockStarted() {
  static const bool started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
  }();
  return started;
}

// Windows lists no process's sockets, but every socket is a kernel handle of
// the process, and handle values are multiples of 4 taken from a table whose
// freed entries are reused. So the values are probed upwards until as many
// valid handles were seen as the process holds, or until a run of invalid
// values: a long one when a handle was closed meanwhile; a short one where the
// count is not known (Wine answers 0), since there a new handle takes the
// lowest free value and so lies before the first gap.
constexpr ULONG_PTR kInvalidRunWithCount = 16384;
constexpr ULONG_PTR kInvalidRunWithoutCount = 64;

// The local port tells a socket from an earlier one that had the same handle.
uint64_t Identity(SOCKET socket) {
  sockaddr_storage address{};
  int length = sizeof address;
  unsigned port = 0;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0)
    port = ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);  // same place in v6
  return (static_cast<uint64_t>(socket) << 16) | port;
}

}  // namespace

SocketList OpenSockets() {
  SocketList sockets;
  if (!WinsockStarted()) return sockets;
  DWORD handles = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  const ULONG_PTR run = handles == 0 ? kInvalidRunWithoutCount : kInvalidRunWithCount;
  DWORD seen = 0;
  for (ULONG_PTR value = 4, lastValid = 0;
       (handles == 0 || seen < handles) && value <= lastValid + 4 * run; value += 4) {
    DWORD flags = 0;
    if (!GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) continue;
    ++seen;
    lastValid = value;
    // Other handles answer WSAENOTSOCK.
    int type = 0;
    int length = sizeof type;
    const SOCKET socket = static_cast<SOCKET>(value);
    if (getsockopt(socket, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length) == 0)
      sockets.emplace_back(Identity(socket), static_cast<int>(value));
  }
  std::sort(sockets.begin(), sockets.end());
  return sockets;
}

bool SocketHasInput(int socket) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(static_cast<SOCKET>(socket), &readable);
  timeval now{0, 0};
  // An error (the socket is gone) counts as input too: the session is not used.
  return select(0, &readable, nullptr, nullptr, &now) != 0;
}

void ShutdownSocket(int socket) {
  const SOCKET handle = static_cast<SOCKET>(socket);
  shutdown(handle, SD_BOTH);
  // shutdown fails later calls; a recv already waiting in another thread
  // returns only when its I/O is cancelled.
  CancelIoEx(reinterpret_cast<HANDLE>(handle), nullptr);
}

std::string PeerAddress(int socket) {
  sockaddr_storage peer{};
  int length = sizeof peer;
  char host[NI_MAXHOST], port[NI_MAXSERV];
  if (socket < 0 ||
      getpeername(static_cast<SOCKET>(socket), reinterpret_cast<sockaddr*>(&peer), &length) != 0 ||
      getnameinfo(reinterpret_cast<sockaddr*>(&peer), length, host, sizeof host, port,
                  sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0)
    return "";
  return std::string(host) + ':' + port;
}

}  // namespace scadastore
