#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "record/text_table.h"

namespace scadastore::record {
namespace {

using Names = std::vector<std::string>;
using K = CellKind;
using Append = TextTableBuilder::AppendResult;

TEST(TimeColumnList, CutsAtSemicolonsAndClassifiesColumnsByExactName) {
  EXPECT_EQ(CutTimeColumnList(nullptr), Names{});
  EXPECT_EQ(CutTimeColumnList(""), Names{});
  for (const char* list : {"a;;b", ";a;b;"})
    EXPECT_EQ(CutTimeColumnList(list), (Names{"a", "b"})) << list;
  std::string longest(63, 'x'), tooLong(64, 'y');
  EXPECT_EQ(CutTimeColumnList((longest + ";" + tooLong + ";c").c_str()), (Names{longest, "c"}));

  std::string twenty;
  for (int i = 1; i <= 20; ++i) twenty += "c" + std::to_string(i) + (i % 5 == 0 ? ";;" : ";");
  Names kept = CutTimeColumnList(twenty.c_str());
  ASSERT_EQ(kept.size(), 16u);
  EXPECT_EQ(kept.back(), "c16");

  EXPECT_EQ(ClassifyColumns({"id", "time", "ms", "modify", "a", "ID", "Time"}, {}),
            (std::vector<K>{K::Skipped, K::DateTime, K::Skipped, K::Skipped, K::Text, K::Text, K::Text}));
  // Each listed name takes the first column of its name that no earlier equal
  // name has taken; case matters; unmatched names are ignored.
  EXPECT_EQ(ClassifyColumns({"t", "u", "t", "T"}, {"t", "x"}),
            (std::vector<K>{K::DateTime, K::Text, K::Text, K::Text}));
  EXPECT_EQ(ClassifyColumns({"t", "u", "t"}, {"t", "u", "t"}),
            (std::vector<K>{K::DateTime, K::DateTime, K::DateTime}));
}

TEST(TextTableBuilder, DoublesTheTextBlockKeepingEveryByteUpToItsLimit) {
  TextTableBuilder builder;
  ASSERT_TRUE(builder.AllocateOffsets(1, 4));
  ASSERT_TRUE(builder.AllocateText(1));
  EXPECT_EQ(builder.text_capacity(), 1024u);
  // A header of 4 x 3 bytes and four cells of 256 bytes need 1036 bytes.
  Names pieces = {"h1", "h2", "h3", "h4"};
  for (char c : std::string("abcd")) pieces.push_back(std::string(255, c));
  std::string expected;
  for (const std::string& piece : pieces) {
    ASSERT_EQ(builder.Append(piece), Append::Appended);
    expected += piece + '\0';
  }
  EXPECT_EQ(builder.text_capacity(), 2048u);
  ASSERT_EQ(builder.text_length(), expected.size());
  EXPECT_EQ(std::string(builder.text(), builder.text_capacity()),
            expected + std::string(2048 - expected.size(), '\0'));
  const uint32_t offsets[] = {0, 3, 6, 9, 12, 268, 524, 780};
  EXPECT_EQ(std::memcmp(builder.offsets(), offsets, sizeof offsets), 0);

  TextTableBuilder limited(1500);
  ASSERT_TRUE(limited.AllocateOffsets(1, 8));
  ASSERT_TRUE(limited.AllocateText(1));
  std::string cell(255, 'x');
  for (int i = 0; i < 5; ++i) ASSERT_EQ(limited.Append(cell), Append::Appended);
  EXPECT_EQ(limited.Append(cell), Append::TooLarge);
  EXPECT_EQ(limited.text_length(), 5 * 256u);
  // 2^30 + 1 offsets of 4 bytes pass a 32-bit size: refused, never a wrapped small block.
  if (sizeof(size_t) == 4) {
    EXPECT_FALSE(TextTableBuilder().AllocateOffsets(0x40000000u, 1));
  }
}

}  // namespace
}  // namespace scadastore::record
