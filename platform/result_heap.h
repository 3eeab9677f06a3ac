// Blocks handed to the caller: malloc'ed, released by the caller with free.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace scadastore {

struct FreeBlock {
  void operator()(void* block) const noexcept { std::free(block); }
};

// Owns a block until it is handed out with release().
using ResultBlock = std::unique_ptr<unsigned char[], FreeBlock>;

// A zero-filled block of `bytes` bytes, or null when it cannot be allocated.
ResultBlock AllocateResultBlock(size_t bytes);

}  // namespace scadastore
