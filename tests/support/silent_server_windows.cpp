#include "support/silent_server.h"

#include <winsock2.h>

namespace scadastore::testing {

SilentServer::SilentServer(int port) {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
  SOCKET s = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  socket_ = static_cast<intptr_t>(s);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<u_short>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  listening_ = s != INVALID_SOCKET &&
               bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
               listen(s, 8) == 0;
}

SilentServer::~SilentServer() {
  closesocket(static_cast<SOCKET>(socket_));
  WSACleanup();
}

}  // namespace scadastore::testing
