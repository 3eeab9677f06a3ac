#include "platform/code_page.h"

#include <iconv.h>
#include <langinfo.h>

#include <cstring>
#include <initializer_list>

#include "platform/system_calls.h"
#include "platform/utf8_characters.h"

namespace scadastore {
namespace {

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
  // ASCII is the same in every narrow character set: such a text, or the
  // part of it that fits, is copied as it is.
  if (source != nullptr && target != nullptr && capacity > 0) {
    const auto room = static_cast<size_t>(capacity) - 1;
    size_t length = 0;
    while (length < room && static_cast<unsigned char>(source[length]) - 1u < 0x7Fu) ++length;
    if (length == room || source[length] == '\0') {
      std::memcpy(target, source, length);
      target[length] = '\0';
      return true;
    }
  }
  return ConvertFromUtf8(source, TargetCharset(), target, capacity);
}

bool ConvertFromUtf8(const char* source, const char* charset, char* target, int capacity) {
  if (source == nullptr || target == nullptr || capacity <= 0) return false;
  Converter converter(charset);
  const bool passThrough = std::strcmp(charset, "UTF-8") == 0;
  if (!passThrough && !converter.valid()) return false;

  ConvertUtf8Characters(source, target, capacity,
                        [&](const unsigned char* utf8, size_t length, char* out, size_t room) {
                          if (!passThrough) return converter.Convert(utf8, length, out, room);
                          std::memcpy(out, utf8, length);
                          return length;
                        });
  return true;
}

bool FromAnsi(std::string_view text, std::string& utf8) {
  const char* charset = TargetCharset();
  if (std::strcmp(charset, "UTF-8") == 0) {
    utf8.assign(text);
    return true;
  }
  iconv_t cd = systemCalls.iconv_open("UTF-8", charset);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  // A character takes at most 4 bytes in UTF-8 and at least 1 in the source.
  utf8.assign(text.size() * 4, '\0');
  char* in = const_cast<char*>(text.data());
  char* out = utf8.data();
  size_t inLeft = text.size(), outLeft = utf8.size();
  const bool converted = systemCalls.iconv(cd, &in, &inLeft, &out, &outLeft) != static_cast<size_t>(-1) &&
                         systemCalls.iconv(cd, nullptr, nullptr, &out, &outLeft) != static_cast<size_t>(-1);
  iconv_close(cd);
  utf8.resize(static_cast<size_t>(out - utf8.data()));
  return converted;
}

}  // namespace scadastore
