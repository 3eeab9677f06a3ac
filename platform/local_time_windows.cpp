#include "platform/local_time.h"

#include <time.h>

namespace scadastore {

bool ToLocalTime(int64_t seconds, std::tm& out) {
  // The C runtime keeps the result per thread.
  __time64_t time = seconds;
  const std::tm* local = _localtime64(&time);
  if (local == nullptr) return false;
  out = *local;
  return true;
}

}  // namespace scadastore
