#include "platform/spool_file.h"

#include <windows.h>

#include <cstring>
#include <string_view>

namespace scadastore {
namespace {

HANDLE Handle(intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

// "what: the system's text (code)". `what` is a view so that nothing is
// allocated between the failed call and GetLastError.
bool Failed(std::string& error, std::string_view what) {
  const DWORD code = GetLastError();
  char text[256] = "";
  DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                nullptr, code, 0, text, sizeof text, nullptr);
  while (length > 0 && std::strchr("\r\n. ", text[length - 1])) --length;
  error.assign(what);
  error += ": " + (length > 0 ? std::string(text, length) : "system error") + " (" +
           std::to_string(code) + ")";
  return false;
}

HANDLE OpenShared(const std::string& path) {
  return CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                     OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

bool SpoolFile::Open(const std::string& path, std::string& error) {
  Close();
  const HANDLE file = OpenShared(path);
  if (file == INVALID_HANDLE_VALUE) return Failed(error, path);
  handle_ = reinterpret_cast<intptr_t>(file);
  return true;
}

void SpoolFile::Close() {
  if (handle_ != kClosed) CloseHandle(Handle(handle_));
  handle_ = kClosed;
}

uint64_t SpoolFile::Size() const {
  LARGE_INTEGER size{};
  return GetFileSizeEx(Handle(handle_), &size) ? static_cast<uint64_t>(size.QuadPart) : 0;
}

bool SpoolFile::ReadAt(uint64_t offset, void* data, size_t size) const {
  auto* bytes = static_cast<char*>(data);
  while (size > 0) {
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD got = 0;
    const DWORD want = size > 0x40000000 ? 0x40000000 : static_cast<DWORD>(size);
    if (!ReadFile(Handle(handle_), bytes, want, &got, &at) || got == 0) return false;
    bytes += got;
    size -= got;
    offset += got;
  }
  return true;
}

bool SpoolFile::Append(const void* data, size_t size, std::string& error) {
  const uint64_t start = Size();
  const auto* bytes = static_cast<const char*>(data);
  size_t done = 0;
  while (done < size) {
    OVERLAPPED at{};
    const uint64_t offset = start + done;
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD wrote = 0;
    const size_t left = size - done;
    const DWORD want = left > 0x40000000 ? 0x40000000 : static_cast<DWORD>(left);
    if (!WriteFile(Handle(handle_), bytes + done, want, &wrote, &at) || wrote == 0) {
      Failed(error, "write");
      std::string ignored;
      Truncate(start, ignored);
      return false;
    }
    done += wrote;
  }
  return true;
}

bool SpoolFile::Sync(std::string& error) {
  return FlushFileBuffers(Handle(handle_)) || Failed(error, "FlushFileBuffers");
}

bool SpoolFile::Truncate(uint64_t size, std::string& error) {
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
  return SetFileInformationByHandle(Handle(handle_), FileEndOfFileInfo, &end, sizeof end) ||
         Failed(error, "truncate");
}

DirectoryLock::~DirectoryLock() {
  if (handle_ != -1) CloseHandle(Handle(handle_));
}

bool DirectoryLock::Take(const std::string& directory, std::string& error) {
  if (!CreateDirectoryA(directory.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
    return Failed(error, directory);
  const std::string path = directory + "/lock";
  const HANDLE file = OpenShared(path);
  if (file == INVALID_HANDLE_VALUE) return Failed(error, path);
  OVERLAPPED at{};
  if (!LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &at)) {
    CloseHandle(file);
    error = directory + " is in use by another process";
    return false;
  }
  handle_ = reinterpret_cast<intptr_t>(file);
  return true;
}

bool ReplaceSpoolFile(const std::string& from, const std::string& to, std::string& error) {
  return MoveFileExA(from.c_str(), to.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) ||
         Failed(error, "rename");
}

}  // namespace scadastore
