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

inline unsigned char* BytesAt(void* base, size_t offset) {
  return static_cast<unsigned char*>(base) + offset;
}

}  // namespace scadastore
