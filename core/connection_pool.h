// Connections kept between calls when the settings ask for pooling. A
// connection goes back only after a call that ran nothing but the library's
// own statements without a failure (so it carries no transaction and no
// session setting of a caller), and is handed out again only while its server
// has not closed it.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/odbc_handle.h"

namespace scadastore {

struct PooledConnection {
  OdbcHandle environment{SQL_HANDLE_ENV};
  OdbcHandle connection{SQL_HANDLE_DBC};
  int socket = -1;  // see platform/connection_socket.h
  std::string server;  // the address of the server reached, see PeerAddress
};

// Disconnects and frees a connection that is not kept.
void Discard(PooledConnection& pooled);

class ConnectionPool {
 public:
  static constexpr size_t kMaxIdle = 16;

  static ConnectionPool& Instance();

  // An idle connection made with `login`, or nothing. Connections found
  // closed by their server are discarded on the way.
  std::optional<PooledConnection> Take(const std::string& login);
  // Keeps the connection for a later call with the same login.
  void Put(const std::string& login, PooledConnection connection);
  // Disconnects every idle connection.
  void Clear();

 private:
  struct Idle {
    std::string login;
    PooledConnection connection;
  };
  std::mutex mutex_;
  std::vector<Idle> idle_;
};

}  // namespace scadastore
