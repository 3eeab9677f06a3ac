// Formatting in the "C" locale, whatever the process's locale: a double
// always gets a point.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace scadastore {

// vsnprintf into `buffer` of `size` bytes (size > 0). Returns the full
// length of the text, or a negative value when it is cut or fails; the
// buffer may then lack its terminator.
int FormatInCLocale(char* buffer, size_t size, const char* format, va_list args);

}  // namespace scadastore
