#include "support/silent_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace scadastore::testing {

SilentServer::SilentServer(int port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  int fd = static_cast<int>(socket_);
  int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  listening_ = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
               listen(fd, 8) == 0;
}

SilentServer::~SilentServer() { close(static_cast<int>(socket_)); }

}  // namespace scadastore::testing
