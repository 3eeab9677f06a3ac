#include "platform/local_time.h"

#include "platform/system_calls.h"

namespace scadastore {

bool ToLocalTime(int64_t seconds, std::tm& out) {
  std::time_t t = static_cast<std::time_t>(seconds);
  return systemCalls.localtime_r(&t, &out) != nullptr;
}

}  // namespace scadastore
