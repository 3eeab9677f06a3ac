// The system calls of platform/ that can fail, reached through one table so
// that tests can make any of them fail (or misbehave) and check that the host
// is left unharmed.
#pragma once

#include <iconv.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <type_traits>

namespace scadastore {

struct SystemCalls {
  void* (*calloc)(size_t count, size_t size);
  void* (*realloc)(void* block, size_t size);
  int (*shm_open)(const char* name, int flags, mode_t mode);
  int (*fstat)(int fd, struct stat* status);
  ssize_t (*pread)(int fd, void* buffer, size_t count, off_t offset);
  int (*socket)(int domain, int type, int protocol);
  int (*connect)(int fd, const sockaddr* address, socklen_t length);
  int (*getsockopt)(int fd, int level, int name, void* value, socklen_t* length);
  ssize_t (*sendmsg)(int fd, const msghdr* message, int flags);
  ssize_t (*recv)(int fd, void* buffer, size_t length, int flags);
  int (*poll)(pollfd* fds, nfds_t count, int timeoutMs);
  int (*close)(int fd);
  iconv_t (*iconv_open)(const char* to, const char* from);
  size_t (*iconv)(iconv_t cd, char** in, size_t* inLeft, char** out, size_t* outLeft);
  tm* (*localtime_r)(const time_t* seconds, tm* out);
};

// The table in use; it holds the real calls unless a test replaced one.
extern SystemCalls systemCalls;

// Replaces one entry of the table for its lifetime (tests only):
//   SystemCallOverride noSocket(systemCalls.socket, [](int, int, int) { errno = EMFILE; return -1; });
template <typename Call>
class SystemCallOverride {
 public:
  SystemCallOverride(Call& entry, std::type_identity_t<Call> replacement)
      : entry_(entry), real_(entry) {
    entry_ = replacement;
  }
  ~SystemCallOverride() { entry_ = real_; }
  SystemCallOverride(const SystemCallOverride&) = delete;
  SystemCallOverride& operator=(const SystemCallOverride&) = delete;

 private:
  Call& entry_;
  Call real_;
};

}  // namespace scadastore
