#include "core/last_error.h"

#include <cstdarg>
#include <cstring>
#include <mutex>

#include "core/format.h"
#include "platform/monitor_channel.h"

namespace scadastore {
namespace {

// Process-wide as the interface says, so a status display may read another
// thread's failure; two failing threads never interleave their texts.
std::mutex text_lock;
char last_text[kLastErrorSize];
// The calling thread's HeldFailureTexts while one lives, else null.
thread_local HeldFailureTexts* held = nullptr;

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
  if (held)
    std::memcpy(held->text_, text, sizeof text);
  else
    Store(text);
}

void AnnounceFailure(const char* text) {
  if (held)
    held->announced_.emplace_back(text);
  else
    NotifyMonitorWindow(text);
}

HeldFailureTexts::HeldFailureTexts() { held = this; }

HeldFailureTexts::~HeldFailureTexts() { held = nullptr; }

void HeldFailureTexts::Publish() {
  held = nullptr;
  for (const std::string& text : announced_) NotifyMonitorWindow(text.c_str());
  if (text_[0] != '\0') Store(text_);
}

}  // namespace scadastore
