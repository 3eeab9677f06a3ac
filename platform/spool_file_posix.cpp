#include "platform/spool_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace scadastore {
namespace {

int Fd(intptr_t handle) { return static_cast<int>(handle); }

bool Failed(std::string& error, const char* what) {
  error = std::string(what) + ": " + std::strerror(errno);
  return false;
}

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

bool SpoolFile::Open(const std::string& path, std::string& error) {
  Close();
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return Failed(error, path.c_str());
  handle_ = fd;
  return true;
}

void SpoolFile::Close() {
  if (handle_ != kClosed) ::close(Fd(handle_));
  handle_ = kClosed;
}

uint64_t SpoolFile::Size() const {
  struct stat status {};
  return ::fstat(Fd(handle_), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

bool SpoolFile::ReadAt(uint64_t offset, void* data, size_t size) const {
  auto* bytes = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t got = ::pread(Fd(handle_), bytes, size, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    bytes += got;
    size -= static_cast<size_t>(got);
    offset += static_cast<uint64_t>(got);
  }
  return true;
}

bool SpoolFile::Append(const void* data, size_t size, std::string& error) {
  const uint64_t start = Size();
  const auto* bytes = static_cast<const char*>(data);
  size_t done = 0;
  while (done < size) {
    const ssize_t wrote =
        ::pwrite(Fd(handle_), bytes + done, size - done, static_cast<off_t>(start + done));
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) {
      if (wrote == 0) errno = ENOSPC;
      Failed(error, "write");
      // Best effort: a frame cut short is also dropped when the journal is read.
      [[maybe_unused]] const int cut = ::ftruncate(Fd(handle_), static_cast<off_t>(start));
      return false;
    }
    done += static_cast<size_t>(wrote);
  }
  return true;
}

bool SpoolFile::Sync(std::string& error) {
  return ::fdatasync(Fd(handle_)) == 0 || Failed(error, "fdatasync");
}

bool SpoolFile::Truncate(uint64_t size, std::string& error) {
  return ::ftruncate(Fd(handle_), static_cast<off_t>(size)) == 0 || Failed(error, "truncate");
}

DirectoryLock::~DirectoryLock() {
  if (handle_ >= 0) ::close(Fd(handle_));
}

bool DirectoryLock::Take(const std::string& directory, std::string& error) {
  if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST)
    return Failed(error, directory.c_str());
  const std::string path = directory + "/lock";
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return Failed(error, path.c_str());
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    ::close(fd);
    error = directory + " is in use by another process";
    return false;
  }
  handle_ = fd;
  return true;
}

bool ReplaceSpoolFile(const std::string& from, const std::string& to, std::string& error) {
  if (::rename(from.c_str(), to.c_str()) != 0) return Failed(error, "rename");
  const int directory = ::open(DirectoryOf(to).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return Failed(error, "open directory");
  const bool synced = ::fsync(directory) == 0 || Failed(error, "fsync directory");
  ::close(directory);
  return synced;
}

}  // namespace scadastore
