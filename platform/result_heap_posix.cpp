#include "platform/result_heap.h"

#include <cstdlib>

#include "platform/system_calls.h"

namespace scadastore {

ResultBlock AllocateResultBlock(size_t bytes) {
  return ResultBlock(static_cast<unsigned char*>(systemCalls.calloc(bytes == 0 ? 1 : bytes, 1)));
}

void FreeResultBlock(void* block) noexcept { std::free(block); }

}  // namespace scadastore
