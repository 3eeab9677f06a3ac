#include "platform/connection_socket.h"

namespace scadastore {

// Windows offers no list of a process's own sockets, so a connection's socket
// is never known here: connections run without the statement bound and are
// not pooled (see the README).
SocketList OpenSockets() { return {}; }

int SocketOpenedSince(const SocketList&) { return kUnknownSocket; }

bool SocketHasInput(int) { return true; }

void ShutdownSocket(int) {}

}  // namespace scadastore
