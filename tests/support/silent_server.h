// A server on 127.0.0.1 that accepts connections and never answers.
#pragma once

#include <cstdint>

namespace scadastore::testing {

class SilentServer {
 public:
  explicit SilentServer(int port);
  ~SilentServer();
  SilentServer(const SilentServer&) = delete;
  SilentServer& operator=(const SilentServer&) = delete;
  bool listening() const { return listening_; }

 private:
  intptr_t socket_;
  bool listening_ = false;
};

}  // namespace scadastore::testing
