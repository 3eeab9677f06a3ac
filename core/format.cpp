#include "core/format.h"

#include "platform/c_locale.h"

namespace scadastore {

int FormatBoundedV(char* buffer, uint32_t size, const char* format, va_list args) {
  if (buffer == nullptr || format == nullptr || size == 0 || size >= 0x80000000u) return -1;
  int length = FormatInCLocale(buffer, size, format, args);
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
