// The shown texts and the query conditions; the databases run the statements
// in every dialect (tests/integration).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "alarm/alarm_statements.h"
#include "support/alarm_query.h"

namespace scadastore::alarm {
namespace {

using testing::AlarmLists;
using testing::Point;
constexpr DbKind Bracket = 1;

// The lists' own conditions run on the databases (fixed_record_test); here
// the level byte, the unsigned types, and which list decides.
TEST(AlarmStatements, QueryConditionsAndListPrecedence) {
  const std::string range =
      "select * from [alarm] where ([arisetime] >= 100) and ([arisetime] <= 200)";
  const std::string order = " order by [id] asc";
  const std::string station = range + " and ([station] = 's1')" + order;
  const std::string tags =
      range + " and ([station] = 's1') and (([tag] = 't1') or ([tag] = 't2') or ([tag] = 't3'))" +
      order;
  // Every list is filled, so each condition proves it found its own list.
  const AlarmLists all{{1, 2}, {"s1"}, {"t1", "t2", "t3"}, {Point("p", "q", 1)}};
  auto query = [](uint32_t filter, const AlarmLists& lists = {}) {
    return QueryStatement(Bracket, "alarm",
                          testing::AlarmQueryBytes(100, 200, filter, lists).data())
        .text;
  };
  const std::pair<std::string, std::string> cases[] = {
      {query(8, {.types = {-1}}), range + " and ([alarmtype] = 4294967295)" + order},
      {query(0xFF00), range + " and ([alarmlevel] >= 255)" + order},
      // Bits beyond the level byte and the list bits are not read.
      {query(0xFFFF0301, {.types = {1}}), range + " and ([alarmlevel] >= 3)" + order},
      // The first set bit in the order 8, 2, 4, 16 decides, even over an empty list.
      {query(8 | 2 | 4 | 16, all), range + " and (([alarmtype] = 1) or ([alarmtype] = 2))" + order},
      {query(2 | 4 | 16, all), station},
      {query(4 | 16, all), tags},
      {query(8 | 2, {.stations = {"a", "b"}}), range + order},
      {query(4 | 16, {.stations = {"a", "b"}, .tags = {"t"}, .points = {Point("a", "t", 1)}}),
       range + order},
      {query(4, {.stations = {"a"}}), range + order},
  };
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << i;
}

}  // namespace
}  // namespace scadastore::alarm
