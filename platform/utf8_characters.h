// The character walk shared by the code-page converters of each platform.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace scadastore {

// Length of the valid UTF-8 sequence at `s`, 0 when it is invalid.
inline size_t Utf8SequenceLength(const unsigned char* s) {
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

// Converts NUL-terminated UTF-8 character by character into `target`:
// encode(utf8, length, out, room) writes one valid character and returns the
// bytes written, 0 when the target lacks it. Missing and invalid characters
// become '?'; at most capacity - 1 bytes are written, never splitting a
// character, and the text is terminated.
template <typename Encode>
void ConvertUtf8Characters(const char* source, char* target, int capacity, Encode encode) {
  const size_t limit = static_cast<size_t>(capacity) - 1;
  size_t written = 0;
  const unsigned char* s = reinterpret_cast<const unsigned char*>(source);
  while (*s != '\0') {
    size_t length = Utf8SequenceLength(s);
    char encoded[16];
    size_t encodedLength = length == 0 ? 0 : encode(s, length, encoded, sizeof encoded);
    if (encodedLength == 0) {
      encoded[0] = '?';
      encodedLength = 1;
      if (length == 0) length = 1;
    }
    if (written + encodedLength > limit) break;
    std::memcpy(target + written, encoded, encodedLength);
    written += encodedLength;
    s += length;
  }
  target[written] = '\0';
}

}  // namespace scadastore
