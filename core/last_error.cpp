#include "core/last_error.h"

#include <cstdarg>
#include <cstring>
#include <mutex>

#include "core/format.h"

namespace scadastore {
namespace {

// Process-wide as the interface says, so a status display may read another
// thread's failure; two failing threads never interleave their texts.
std::mutex text_lock;
char last_text[kLastErrorSize];
// The calling thread's held text while a HeldErrorText lives, else null.
thread_local char* held_text = nullptr;

void Store(const char* text) {
  std::lock_guard lock(text_lock);
  std::memcpy(last_text, text, kLastErrorSize);
}

}  // namespace

const char* LastErrorCopy() {
  thread_local char copy[kLastErrorSize];
  std::lock_guard lock(text_lock);
  std::memcpy(copy, last_text, sizeof copy);
  return copy;
}

void SetCodedError(const char* family, int number, int serial, const char* format, ...) {
  char message[kLastErrorSize];
  va_list args;
  va_start(args, format);
  FormatBoundedV(message, sizeof message, format, args);
  va_end(args);
  char text[kLastErrorSize];
  FormatBounded(text, sizeof text, "[%s%d%02d] %s", family, number, serial, message);
  if (held_text)
    std::memcpy(held_text, text, sizeof text);
  else
    Store(text);
}

HeldErrorText::HeldErrorText() {
  static thread_local char text[kLastErrorSize];
  text[0] = '\0';
  held_text = text;
}

HeldErrorText::~HeldErrorText() { held_text = nullptr; }

void HeldErrorText::Publish() {
  if (held_text && held_text[0] != '\0') Store(held_text);
  held_text = nullptr;
}

}  // namespace scadastore
