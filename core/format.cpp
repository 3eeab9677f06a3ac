#include "core/format.h"

#include <locale.h>

#include <cstdio>

namespace scadastore {
namespace {

// Statement text is formatted in the "C" locale: a double always gets a point.
locale_t CLocale() {
  static locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return locale;
}

}  // namespace

int FormatBoundedV(char* buffer, uint32_t size, const char* format, va_list args) {
  if (buffer == nullptr || format == nullptr || size == 0 || size >= 0x80000000u) return -1;
  locale_t previous = uselocale(CLocale());
  int length = std::vsnprintf(buffer, size, format, args);
  uselocale(previous);
  buffer[size - 1] = '\0';
  if (length < 0 || static_cast<uint32_t>(length) > size - 1) return -1;
  return length;
}

int FormatBounded(char* buffer, uint32_t size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int result = FormatBoundedV(buffer, size, format, args);
  va_end(args);
  return result;
}

}  // namespace scadastore
