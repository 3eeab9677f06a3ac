#include "platform/result_heap.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace scadastore {

ResultBlock AllocateResultBlock(size_t bytes) {
  return ResultBlock(static_cast<unsigned char*>(
      HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes == 0 ? 1 : bytes)));
}

bool ResizeResultBlock(ResultBlock& block, size_t bytes) {
  void* resized = HeapReAlloc(GetProcessHeap(), 0, block.get(), bytes == 0 ? 1 : bytes);
  if (!resized) return false;
  block.release();
  block.reset(static_cast<unsigned char*>(resized));
  return true;
}

void FreeResultBlock(void* block) noexcept {
  if (block != nullptr) HeapFree(GetProcessHeap(), 0, block);
}

}  // namespace scadastore
