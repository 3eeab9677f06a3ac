#include "platform/process.h"

#include <windows.h>

namespace scadastore {

unsigned long CurrentProcessId() { return GetCurrentProcessId(); }

}  // namespace scadastore
