// Conversion between driver UTF-8 and the process's narrow character set.
#pragma once

#include <string>
#include <string_view>

namespace scadastore {

// Converts NUL-terminated UTF-8 into `target` in the LC_CTYPE character set
// (UTF-8 under the C locale). Missing or invalid characters become '?'. At
// most capacity - 1 bytes are written, never splitting a character, and the
// text is terminated. False with `target` untouched when nothing converts.
bool ToAnsi(const char* source, char* target, int capacity);

// The same into an explicit iconv character set.
bool ConvertFromUtf8(const char* source, const char* charset, char* target, int capacity);

// Converts a text in the LC_CTYPE character set into UTF-8 (unchanged when
// that set is UTF-8 or plain ASCII). False when the text is not valid in it:
// a value is refused rather than stored altered.
bool FromAnsi(std::string_view text, std::string& utf8);

}  // namespace scadastore
