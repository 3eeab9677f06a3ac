// Bounded formatting: every statement and error text of the library is built here.
#pragma once

#include <cstdarg>
#include <cstdint>

namespace scadastore {

// Writes at most size - 1 characters and always terminates buffer[size - 1].
// Returns the length when the whole text fit, else -1 (the text is cut).
// Returns -1 and writes nothing for a null buffer or format, size 0 or size >= 2^31.
// Numbers are formatted in the "C" locale whatever the host's locale.
int FormatBounded(char* buffer, uint32_t size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
int FormatBoundedV(char* buffer, uint32_t size, const char* format, va_list args);

}  // namespace scadastore
