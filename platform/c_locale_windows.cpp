#include "platform/c_locale.h"

#include <locale.h>
#include <stdio.h>

namespace scadastore {
namespace {

_locale_t CLocale() {
  static _locale_t locale = _create_locale(LC_ALL, "C");
  return locale;
}

}  // namespace

int FormatInCLocale(char* buffer, size_t size, const char* format, va_list args) {
  // -1 when the text is cut; no terminator when it fills the buffer exactly.
  return _vsnprintf_l(buffer, size, format, CLocale(), args);
}

}  // namespace scadastore
