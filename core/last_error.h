// The process-wide text of the last failure, read through dbGetLastError.
#pragma once

namespace scadastore {

constexpr unsigned kLastErrorSize = 1024;

char* LastErrorText();

// Writes "[<family><number><serial>] <message>" into the last-error text,
// e.g. SetCodedError("alm", 1, 1, "invalid parameter") gives "[alm101] invalid parameter".
void SetCodedError(const char* family, int number, int serial, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace scadastore
