// The local heap of Win32: blocks that system functions allocate for their caller
// (FormatMessageW with FORMAT_MESSAGE_ALLOCATE_BUFFER) and that the caller frees with LocalFree.
#pragma once

#include <cstddef>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

using HLOCAL = HANDLE;

inline constexpr UINT LMEM_FIXED = 0x0000u;
inline constexpr UINT LMEM_ZEROINIT = 0x0040u;
inline constexpr UINT LPTR = LMEM_FIXED | LMEM_ZEROINIT;

// Allocates `bytes` bytes (fixed memory; the handle is the block's address). LMEM_ZEROINIT
// clears them. Returns null with ERROR_NOT_ENOUGH_MEMORY when there is no memory; other flags
// (movable memory) give null with ERROR_INVALID_PARAMETER.
N7_EXPORT HLOCAL LocalAlloc(UINT flags, std::size_t bytes);

// Frees a block from LocalAlloc; null is allowed. Returns null.
N7_EXPORT HLOCAL LocalFree(HLOCAL memory);
