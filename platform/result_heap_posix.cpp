#include "platform/result_heap.h"

#include <cstdlib>

#include "platform/system_calls.h"

namespace scadastore {

ResultBlock AllocateResultBlock(size_t bytes) {
  return ResultBlock(static_cast<unsigned char*>(systemCalls.calloc(bytes == 0 ? 1 : bytes, 1)));
}

bool ResizeResultBlock(ResultBlock& block, size_t bytes) {
  void* resized = std::realloc(block.get(), bytes == 0 ? 1 : bytes);
  if (!resized) return false;
  block.release();
  block.reset(static_cast<unsigned char*>(resized));
  return true;
}

void FreeResultBlock(void* block) noexcept { std::free(block); }

}  // namespace scadastore
