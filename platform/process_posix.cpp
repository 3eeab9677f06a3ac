#include "platform/process.h"

#include <unistd.h>

namespace scadastore {

unsigned long CurrentProcessId() { return static_cast<unsigned long>(getpid()); }

}  // namespace scadastore
