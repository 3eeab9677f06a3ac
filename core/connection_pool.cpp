#include "core/connection_pool.h"

#include "core/odbc_api.h"
#include "platform/connection_socket.h"

namespace scadastore {

void Discard(PooledConnection& pooled) {
  // A failed disconnect leaves nothing to retry: the handles are freed either way.
  if (pooled.connection) Odbc().Disconnect(pooled.connection.get());
  pooled.connection.Free();
  pooled.environment.Free();
}

ConnectionPool& ConnectionPool::Instance() {
  // Never destroyed: connections left at exit end with the process.
  static ConnectionPool* pool = new ConnectionPool;
  return *pool;
}

std::optional<PooledConnection> ConnectionPool::Take(const std::string& login) {
  for (;;) {
    std::optional<PooledConnection> taken;
    {
      std::lock_guard lock(mutex_);
      for (auto it = idle_.rbegin(); it != idle_.rend(); ++it) {
        if (it->login != login) continue;
        taken = std::move(it->connection);
        idle_.erase(std::next(it).base());
        break;
      }
    }
    if (!taken || taken->socket < 0 || !SocketHasInput(taken->socket)) return taken;
    Discard(*taken);  // the server ended the session (terminated, restarted)
  }
}

void ConnectionPool::Put(const std::string& login, PooledConnection connection) {
  {
    std::lock_guard lock(mutex_);
    if (idle_.size() < kMaxIdle) {
      idle_.push_back({login, std::move(connection)});
      return;
    }
  }
  Discard(connection);
}

void ConnectionPool::Clear() {
  std::vector<Idle> idle;
  {
    std::lock_guard lock(mutex_);
    idle.swap(idle_);
  }
  for (Idle& entry : idle) Discard(entry.connection);
}

}  // namespace scadastore
