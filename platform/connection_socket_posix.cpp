#include "platform/connection_socket.h"

#include <dirent.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace scadastore {

SocketList OpenSockets() {
  SocketList sockets;
  DIR* directory = opendir("/proc/self/fd");
  if (directory == nullptr) return sockets;
  const int own = dirfd(directory);
  while (const dirent* entry = readdir(directory)) {
    char* end = nullptr;
    const long fd = std::strtol(entry->d_name, &end, 10);
    if (*end != '\0' || end == entry->d_name || fd == own) continue;
    char target[64];
    const ssize_t length = readlinkat(own, entry->d_name, target, sizeof target - 1);
    if (length <= 0) continue;
    target[length] = '\0';
    unsigned long long inode = 0;
    if (std::sscanf(target, "socket:[%llu]", &inode) == 1)
      sockets.emplace_back(inode, static_cast<int>(fd));
  }
  closedir(directory);
  std::sort(sockets.begin(), sockets.end());
  return sockets;
}

bool SocketHasInput(int socket) {
  pollfd watched{socket, POLLIN, 0};
  return poll(&watched, 1, 0) != 0;
}

void ShutdownSocket(int socket) { shutdown(socket, SHUT_RDWR); }

std::string PeerAddress(int socket) {
  sockaddr_storage peer{};
  socklen_t length = sizeof peer;
  char host[NI_MAXHOST], port[NI_MAXSERV];
  if (socket < 0 || getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &length) != 0 ||
      getnameinfo(reinterpret_cast<sockaddr*>(&peer), length, host, sizeof host, port,
                  sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0)
    return "";
  return std::string(host) + ':' + port;
}

}  // namespace scadastore
