#include "platform/result_heap.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace scadastore {

ResultBlock AllocateResultBlock(size_t bytes) {
  return ResultBlock(static_cast<unsigned char*>(
      HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes == 0 ? 1 : bytes)));
}

void FreeResultBlock(void* block) noexcept {
  if (block != nullptr) HeapFree(GetProcessHeap(), 0, block);
}

}  // namespace scadastore
