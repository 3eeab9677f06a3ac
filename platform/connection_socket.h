// The socket through which a driver talks to its server, found from outside
// the driver (ODBC does not hand it out): the one socket that appeared in the
// process while the connect ran. With it the library notices a session that
// the server has closed and cuts a wait on a server that stopped answering.
// Descriptors are ints on every platform: Windows socket handles are small.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace scadastore {

// The connection has no socket (a file database), or its socket is not
// known: it could not be told apart from sockets that other threads opened
// meanwhile, or the driver's sockets are not the platform's own.
inline constexpr int kNoSocket = -1;
inline constexpr int kUnknownSocket = -2;

// The process's open sockets: (identity, descriptor), sorted by identity.
using SocketList = std::vector<std::pair<uint64_t, int>>;
SocketList OpenSockets();

// True when the peer has sent data or closed: an idle session never should.
bool SocketHasInput(int socket);

// Makes every wait on the socket, present and future, fail at once.
void ShutdownSocket(int socket);

// The numeric "address:port" of the socket's peer, or "" when it has none.
std::string PeerAddress(int socket);

}  // namespace scadastore
