// The process-wide text of the last failure, read through dbGetLastError.
#pragma once

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

// While one lives, the texts its thread writes are held back: the last one
// reaches the process-wide text only through Publish(), so a call that fails
// on a first try and succeeds on the next leaves no text behind.
class HeldErrorText {
 public:
  HeldErrorText();
  ~HeldErrorText();
  HeldErrorText(const HeldErrorText&) = delete;
  HeldErrorText& operator=(const HeldErrorText&) = delete;
  void Publish();
};

}  // namespace scadastore
