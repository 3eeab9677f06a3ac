#include "platform/system_calls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace scadastore {

constinit SystemCalls systemCalls = {
    .calloc = std::calloc,
    .realloc = std::realloc,
    .shm_open = ::shm_open,
    .fstat = ::fstat,
    .pread = ::pread,
    .socket = ::socket,
    .connect = ::connect,
    .getsockopt = ::getsockopt,
    .sendmsg = ::sendmsg,
    .recv = ::recv,
    .poll = ::poll,
    .close = ::close,
    .iconv_open = ::iconv_open,
    .iconv = ::iconv,
    .localtime_r = ::localtime_r,
};

}  // namespace scadastore
