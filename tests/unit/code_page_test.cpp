#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <cstring>
#include <string>

#include "platform/code_page.h"
#include "platform/system_calls.h"

namespace scadastore {
namespace {

// Missing and invalid characters become question marks; a character is never
// split; the C locale passes UTF-8 through.
TEST(CodePage, ConvertsWholeCharactersOrQuestionMarks) {
  char target[16] = {};
  ConvertFromUtf8("a\xE4\xB8\xAD" "b", "ISO-8859-1", target, sizeof target);
  EXPECT_STREQ(target, "a?b");
  ConvertFromUtf8("a\xFF" "b\xC3", "UTF-8", target, sizeof target);
  EXPECT_STREQ(target, "a?b?");
  // Three two-byte characters into room for four bytes: two fit, the third does not.
  std::memset(target, 0x55, sizeof target);
  ConvertFromUtf8("\xC3\xA9\xC3\xA9\xC3\xA9", "UTF-8", target, 5);
  EXPECT_STREQ(target, "\xC3\xA9\xC3\xA9");
  ConvertFromUtf8("\xE4\xB8\xAD\xE4\xB8\xAD\xE4\xB8\xAD", "GBK", target, 5);
  EXPECT_STREQ(target, "\xD6\xD0\xD6\xD0");
  ToAnsi("caf\xC3\xA9", target, sizeof target);
  EXPECT_STREQ(target, "caf\xC3\xA9");
  EXPECT_FALSE(ToAnsi(nullptr, target, sizeof target));
}

TEST(CodePage, FailingConverterNeverLeavesAnUnterminatedTarget) {
  char target[8];
  std::memset(target, 0x55, sizeof target);
  {
    SystemCallOverride noConverter(systemCalls.iconv_open, +[](const char*, const char*) {
      errno = EMFILE;
      return reinterpret_cast<iconv_t>(-1);
    });
    EXPECT_FALSE(ConvertFromUtf8("abc", "GBK", target, sizeof target));
    EXPECT_EQ(target[0], 0x55);
  }
  {
    SystemCallOverride failing(systemCalls.iconv,
                               +[](iconv_t, char**, size_t*, char**, size_t*) {
                                 errno = EBADF;
                                 return static_cast<size_t>(-1);
                               });
    EXPECT_TRUE(ConvertFromUtf8("a\xE4\xB8\xAD", "GBK", target, sizeof target));
    EXPECT_STREQ(target, "??");
  }
  EXPECT_TRUE(ConvertFromUtf8("a\xE4\xB8\xAD", "GBK", target, sizeof target));  // restored
  EXPECT_STREQ(target, "a\xD6\xD0");
}

// Texts on their way in: a GBK host's texts become UTF-8; one that is not
// GBK is refused rather than stored altered.
TEST(CodePage, HostTextsBecomeUtf8) {
  std::string utf8;
  ASSERT_TRUE(FromAnsi("\xbf\x5c\xff", utf8));  // not UTF-8: passed on as it stands
  EXPECT_EQ(utf8, "\xbf\x5c\xff");
  ASSERT_NE(std::setlocale(LC_CTYPE, "zh_CN.GBK"), nullptr);
  EXPECT_TRUE(FromAnsi("\xD6\xD0\xCE\xC4 \xbf\x5c", utf8));
  EXPECT_EQ(utf8, "\xE4\xB8\xAD\xE6\x96\x87 \xE7\xB8\x97");
  EXPECT_FALSE(FromAnsi("\xbf\x27", utf8));
  EXPECT_FALSE(FromAnsi("ab\xbf", utf8));
  std::setlocale(LC_CTYPE, "C");
}

}  // namespace
}  // namespace scadastore
