// AlarmQuery blocks as a caller lays them out: the head, then its lists.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scadastore.h"

namespace scadastore::testing {

struct AlarmLists {
  std::vector<int32_t> types = {};
  std::vector<std::string> stations = {}, tags = {};
  std::vector<PointKey> points = {};
};

inline PointKey Point(const std::string& station, const std::string& tag, uint16_t tagtype) {
  PointKey point{};
  station.copy(point.station, sizeof point.station);  // a NUL only when shorter
  tag.copy(point.tag, sizeof point.tag);
  point.tagtype = tagtype;
  return point;
}

// Names longer than 32 bytes are cut there, without a NUL.
inline std::string AlarmQueryBytes(uint32_t start, uint32_t end, uint32_t filter,
                                   const AlarmLists& lists = {}) {
  const AlarmQuery head{start, end, 0, filter, uint32_t(lists.types.size()),
                        uint32_t(lists.stations.size()), uint32_t(lists.tags.size()),
                        uint32_t(lists.points.size())};
  std::string bytes(reinterpret_cast<const char*>(&head), sizeof head);
  bytes.append(reinterpret_cast<const char*>(lists.types.data()), 4 * lists.types.size());
  for (const auto* names : {&lists.stations, &lists.tags})
    for (const std::string& name : *names) bytes += (name + std::string(32, '\0')).substr(0, 32);
  bytes.append(reinterpret_cast<const char*>(lists.points.data()),
               sizeof(PointKey) * lists.points.size());
  return bytes;
}

}  // namespace scadastore::testing
