#include "core/time_index.h"

#include <cstdint>
#include <cstdio>

namespace scadastore {
namespace {

constexpr size_t kPrefixLimit = 40;

// FNV-1a: stable across platforms, builds and releases, as an index name must be.
uint32_t NameHash(std::string_view text) {
  uint32_t hash = 2166136261u;
  for (unsigned char byte : text) hash = (hash ^ byte) * 16777619u;
  return hash;
}

bool IsPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

std::string TimeIndexName(std::string_view table) {
  std::string name;
  for (char c : table) {
    if (name.size() == kPrefixLimit) break;
    if (IsPlain(c)) name += c;
  }
  char suffix[16];
  std::snprintf(suffix, sizeof suffix, "time_%08x", NameHash(table));
  return name.empty() ? suffix : name + "_" + suffix;
}

}  // namespace scadastore
