#include "platform/code_page.h"

#include <iconv.h>
#include <langinfo.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "platform/system_calls.h"

namespace scadastore {
namespace {

// Length of the valid UTF-8 sequence at `s`, 0 when it is invalid.
size_t Utf8SequenceLength(const unsigned char* s) {
  unsigned char lead = s[0];
  size_t length;
  uint32_t codePoint;
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) { length = 2; codePoint = lead & 0x1F; }
  else if (lead >= 0xE0 && lead <= 0xEF) { length = 3; codePoint = lead & 0x0F; }
  else if (lead >= 0xF0 && lead <= 0xF4) { length = 4; codePoint = lead & 0x07; }
  else return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((s[i] & 0xC0) != 0x80) return 0;
    codePoint = (codePoint << 6) | (s[i] & 0x3F);
  }
  if ((length == 3 && (codePoint < 0x800 || (codePoint >= 0xD800 && codePoint <= 0xDFFF))) ||
      (length == 4 && (codePoint < 0x10000 || codePoint > 0x10FFFF)))
    return 0;
  return length;
}

// The narrow character set of the process; plain ASCII is taken as UTF-8.
const char* TargetCharset() {
  const char* codeset = nl_langinfo(CODESET);
  for (const char* ascii : {"", "ANSI_X3.4-1968", "ASCII", "US-ASCII"})
    if (std::strcmp(codeset, ascii) == 0) return "UTF-8";
  return codeset;
}

class Converter {
 public:
  explicit Converter(const char* charset)
      : cd_(std::strcmp(charset, "UTF-8") == 0 ? reinterpret_cast<iconv_t>(-1)
                                                 : systemCalls.iconv_open(charset, "UTF-8")) {}
  ~Converter() {
    if (valid()) iconv_close(cd_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  bool valid() const { return cd_ != reinterpret_cast<iconv_t>(-1); }

  // One character into `out`; the number of bytes written, 0 when the target lacks it.
  size_t Convert(const unsigned char* utf8, size_t length, char* out, size_t room) {
    iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    char* in = const_cast<char*>(reinterpret_cast<const char*>(utf8));
    char* cursor = out;
    size_t inLeft = length, outLeft = room;
    if (systemCalls.iconv(cd_, &in, &inLeft, &cursor, &outLeft) == static_cast<size_t>(-1)) return 0;
    return static_cast<size_t>(cursor - out);
  }

 private:
  iconv_t cd_;
};

}  // namespace

bool ToAnsi(const char* source, char* target, int capacity) {
  return ConvertFromUtf8(source, TargetCharset(), target, capacity);
}

bool ConvertFromUtf8(const char* source, const char* charset, char* target, int capacity) {
  if (source == nullptr || target == nullptr || capacity <= 0) return false;
  Converter converter(charset);
  const bool passThrough = std::strcmp(charset, "UTF-8") == 0;
  if (!passThrough && !converter.valid()) return false;

  const size_t limit = static_cast<size_t>(capacity) - 1;
  size_t written = 0;
  const unsigned char* s = reinterpret_cast<const unsigned char*>(source);
  while (*s != '\0') {
    size_t length = Utf8SequenceLength(s);
    char encoded[16];
    size_t encodedLength;
    if (length == 0) {
      encoded[0] = '?';
      encodedLength = 1;
      length = 1;
    } else if (passThrough) {
      std::memcpy(encoded, s, length);
      encodedLength = length;
    } else {
      encodedLength = converter.Convert(s, length, encoded, sizeof encoded);
      if (encodedLength == 0) {
        encoded[0] = '?';
        encodedLength = 1;
      }
    }
    if (written + encodedLength > limit) break;  // never split a character
    std::memcpy(target + written, encoded, encodedLength);
    written += encodedLength;
    s += length;
  }
  target[written] = '\0';
  return true;
}

}  // namespace scadastore
