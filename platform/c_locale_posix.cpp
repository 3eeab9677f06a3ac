#include "platform/c_locale.h"

#include <locale.h>

#include <cstdio>

namespace scadastore {
namespace {

locale_t CLocale() {
  static locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return locale;
}

}  // namespace

int FormatInCLocale(char* buffer, size_t size, const char* format, va_list args) {
  locale_t previous = uselocale(CLocale());
  int length = std::vsnprintf(buffer, size, format, args);
  uselocale(previous);
  return length;
}

}  // namespace scadastore
