// Byte-wise access to fields of the caller's packed records, which may be unaligned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace scadastore {

template <class T>
T LoadField(const void* base, size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const unsigned char*>(base) + offset, sizeof value);
  return value;
}

template <class T>
void StoreField(void* base, size_t offset, T value) {
  std::memcpy(static_cast<unsigned char*>(base) + offset, &value, sizeof value);
}

// A text field holds a text only when a NUL ends it inside its width: a full
// field would be stored whole and read back one byte short.
inline bool Terminated(const void* base, size_t offset, size_t width) {
  return std::memchr(static_cast<const unsigned char*>(base) + offset, 0, width) != nullptr;
}

// True when every whole record of `records` (size bytes) passes writable(record).
template <class Writable>
bool EveryRecord(const void* records, size_t size, size_t recordSize, Writable&& writable) {
  const auto* bytes = static_cast<const unsigned char*>(records);
  for (size_t at = 0; recordSize != 0 && at + recordSize <= size; at += recordSize)
    if (!writable(bytes + at)) return false;
  return true;
}

inline unsigned char* BytesAt(void* base, size_t offset) {
  return static_cast<unsigned char*>(base) + offset;
}

}  // namespace scadastore
