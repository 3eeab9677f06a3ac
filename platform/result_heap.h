// Blocks handed to the caller, from the heap the caller releases them to:
// malloc/free on POSIX, the process heap (HeapFree) on Windows.
#pragma once

#include <cstddef>
#include <memory>

namespace scadastore {

// Releases a block of AllocateResultBlock, as the caller does; null is ignored.
void FreeResultBlock(void* block) noexcept;

struct FreeBlock {
  void operator()(void* block) const noexcept { FreeResultBlock(block); }
};

// Owns a block until it is handed out with release().
using ResultBlock = std::unique_ptr<unsigned char[], FreeBlock>;

// A zero-filled block of `bytes` bytes, or null when it cannot be allocated.
ResultBlock AllocateResultBlock(size_t bytes);

// Grows or shrinks `block` to `bytes` bytes, keeping its leading bytes (what
// it gains is not zeroed); false, with `block` as it was, when that fails.
bool ResizeResultBlock(ResultBlock& block, size_t bytes);

}  // namespace scadastore
