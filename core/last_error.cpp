#include "core/last_error.h"

#include <cstdarg>
#include <cstdio>

#include "core/format.h"

namespace scadastore {

char* LastErrorText() {
  static char text[kLastErrorSize];
  return text;
}

void SetCodedError(const char* family, int number, int serial, const char* format, ...) {
  char message[kLastErrorSize];
  va_list args;
  va_start(args, format);
  FormatBoundedV(message, sizeof message, format, args);
  va_end(args);
  FormatBounded(LastErrorText(), kLastErrorSize, "[%s%d%02d] %s", family, number, serial,
                message);
}

}  // namespace scadastore
