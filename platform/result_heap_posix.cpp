#include "platform/result_heap.h"

namespace scadastore {

ResultBlock AllocateResultBlock(size_t bytes) {
  return ResultBlock(static_cast<unsigned char*>(std::calloc(bytes == 0 ? 1 : bytes, 1)));
}

}  // namespace scadastore
