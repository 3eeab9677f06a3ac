#include "platform/code_page.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/utf8_characters.h"

namespace scadastore {
namespace {

// The code page of a character-set name: the usual names, or "CP<number>";
// 0 when unknown.
UINT CodePageOf(const char* charset) {
  static const struct { const char* name; UINT codePage; } known[] = {
      {"UTF-8", CP_UTF8}, {"GBK", 936}, {"ISO-8859-1", 28591}, {"WINDOWS-1252", 1252}};
  for (const auto& entry : known)
    if (_stricmp(charset, entry.name) == 0) return entry.codePage;
  if (_strnicmp(charset, "CP", 2) == 0) return static_cast<UINT>(std::strtoul(charset + 2, nullptr, 10));
  return 0;
}

// One valid UTF-8 character into `out` in `codePage`; 0 when the code page lacks it.
size_t EncodeCharacter(UINT codePage, const unsigned char* utf8, size_t length, char* out,
                       size_t room) {
  if (codePage == CP_UTF8) {
    std::memcpy(out, utf8, length);
    return length;
  }
  wchar_t wide[2];
  int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, reinterpret_cast<LPCCH>(utf8),
                                  static_cast<int>(length), wide, 2);
  if (units <= 0) return 0;
  BOOL usedDefault = FALSE;
  int bytes = WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, wide, units, out,
                                  static_cast<int>(room), nullptr, &usedDefault);
  return bytes > 0 && !usedDefault ? static_cast<size_t>(bytes) : 0;
}

bool Convert(const char* source, UINT codePage, char* target, int capacity) {
  if (source == nullptr || target == nullptr || capacity <= 0 || !IsValidCodePage(codePage))
    return false;
  ConvertUtf8Characters(source, target, capacity,
                        [codePage](const unsigned char* utf8, size_t length, char* out,
                                   size_t room) {
                          return EncodeCharacter(codePage, utf8, length, out, room);
                        });
  return true;
}

}  // namespace

bool ToAnsi(const char* source, char* target, int capacity) {
  return Convert(source, GetACP(), target, capacity);
}

bool ConvertFromUtf8(const char* source, const char* charset, char* target, int capacity) {
  return charset != nullptr && Convert(source, CodePageOf(charset), target, capacity);
}

bool FromAnsi(std::string_view text, std::string& utf8) {
  const UINT codePage = GetACP();
  if (codePage == CP_UTF8 || text.empty()) {
    utf8.assign(text);
    return true;
  }
  const int length = static_cast<int>(text.size());
  const int units = MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text.data(), length, nullptr, 0);
  if (units <= 0) return false;
  std::wstring wide(static_cast<size_t>(units), L'\0');
  MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text.data(), length, wide.data(), units);
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
  if (bytes <= 0) return false;
  utf8.assign(static_cast<size_t>(bytes), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, utf8.data(), bytes, nullptr, nullptr);
  return true;
}

}  // namespace scadastore
