// The files of a spool directory: an append-only journal flushed to the
// device on request, and the directory's lock, which the system releases
// when the process ends however it ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace scadastore {

class SpoolFile {
 public:
  SpoolFile() = default;
  ~SpoolFile() { Close(); }
  SpoolFile(const SpoolFile&) = delete;
  SpoolFile& operator=(const SpoolFile&) = delete;

  // Opens read-write, created when missing. False with the system's reason.
  bool Open(const std::string& path, std::string& error);
  void Close();
  bool IsOpen() const { return handle_ != kClosed; }
  uint64_t Size() const;
  // Reads exactly `size` bytes at `offset`.
  bool ReadAt(uint64_t offset, void* data, size_t size) const;
  // Appends at the end; a short write (a full disk) is cut back off.
  bool Append(const void* data, size_t size, std::string& error);
  // Flushes the file's data to the device.
  bool Sync(std::string& error);
  bool Truncate(uint64_t size, std::string& error);

 private:
  static constexpr intptr_t kClosed = -1;
  intptr_t handle_ = kClosed;
};

// Holds the lock of a directory (its file "lock") for the life of the object.
class DirectoryLock {
 public:
  DirectoryLock() = default;
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;
  // Creates the directory if needed and takes its lock without waiting.
  // False with the reason when another process holds it or it cannot be made.
  bool Take(const std::string& directory, std::string& error);

 private:
  intptr_t handle_ = -1;
};

// Replaces `to` by `from` in one step that survives a crash (rename, then
// the directory flushed).
bool ReplaceSpoolFile(const std::string& from, const std::string& to, std::string& error);

}  // namespace scadastore
