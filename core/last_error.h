// The process-wide text of the last failure, read through dbGetLastError,
// and the announcements of driver failures to the monitor.
#pragma once

#include <string>
#include <vector>

namespace scadastore {

constexpr unsigned kLastErrorSize = 1024;

// A copy of the last failure's text, taken under the lock that its writers
// hold: the copy belongs to the calling thread and stays whole until that
// thread asks again, whatever other threads write meanwhile.
const char* LastErrorCopy();

// Writes "[<family><number><serial>] <message>" into the last-error text,
// e.g. SetCodedError("alm", 1, 1, "invalid parameter") gives "[alm101] invalid parameter".
void SetCodedError(const char* family, int number, int serial, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Sends a driver failure's text to the monitor, or holds it back while a
// HeldFailureTexts lives on the calling thread.
void AnnounceFailure(const char* text);

// While one lives, the texts its thread writes and announces are held back:
// Publish() writes the last one to the process-wide text and sends the
// announcements, so an attempt that is tried again leaves no trace.
class HeldFailureTexts {
 public:
  HeldFailureTexts();
  ~HeldFailureTexts();
  HeldFailureTexts(const HeldFailureTexts&) = delete;
  HeldFailureTexts& operator=(const HeldFailureTexts&) = delete;
  void Publish();

 private:
  friend void SetCodedError(const char*, int, int, const char*, ...);
  friend void AnnounceFailure(const char*);
  char text_[kLastErrorSize] = {};
  std::vector<std::string> announced_;
};

}  // namespace scadastore
