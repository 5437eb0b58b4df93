#include "n7utility/platform/system/LocalMemory.h"

#include <cstdlib>

#include "n7utility/platform/kernel/KernelObjects.h"

HLOCAL LocalAlloc(UINT flags, std::size_t bytes) {
  if ((flags & ~LPTR) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  // A block of 0 bytes is still a distinct block that LocalFree takes back.
  const std::size_t size = bytes != 0 ? bytes : 1;
  void* block = (flags & LMEM_ZEROINIT) != 0 ? std::calloc(1, size) : std::malloc(size);
  if (block == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return block;
}

HLOCAL LocalFree(HLOCAL memory) {
  std::free(memory);
  return nullptr;
}
