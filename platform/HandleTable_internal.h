// A table of checked handles for the platform's objects that are not kernel objects (event
// sources, service manager and service handles): a closed or foreign handle is refused with
// ERROR_INVALID_HANDLE instead of touching freed memory, and an object stays alive while a call
// that found it is still using it, even when another thread closes its handle meanwhile.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "platform/KernelObjects.h"
#include "platform/SyncObjects.h"
#include "platform/thread_annotations.h"
#include "platform/windows_types.h"

namespace n7platform::internal {

template <typename T>
class HandleTable {
 public:
  // `tag` (1 to 7) goes into the low bits of every handle, so that tables hand out distinct values.
  explicit HandleTable(std::uintptr_t tag) : tag_(tag) {}
  HandleTable(const HandleTable&) = delete;
  HandleTable& operator=(const HandleTable&) = delete;

  // Enters `object` and returns its new handle. Handle values are never reused.
  void* Insert(std::shared_ptr<T> object) {
    CriticalSectionLock lock(section_);
    const std::uintptr_t value = (++count_ << 3) | tag_;
    objects_.emplace(value, std::move(object));
    return reinterpret_cast<void*>(value);  // NOLINT(performance-no-int-to-ptr): never dereferenced
  }

  // The object behind `handle`; null with ERROR_INVALID_HANDLE when there is none.
  std::shared_ptr<T> Find(const void* handle) {
    CriticalSectionLock lock(section_);
    const auto found = objects_.find(reinterpret_cast<std::uintptr_t>(handle));
    if (found != objects_.end()) return found->second;
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }

  // Removes `handle` and returns its object; null with ERROR_INVALID_HANDLE when there is none.
  std::shared_ptr<T> Remove(const void* handle) {
    CriticalSectionLock lock(section_);
    const auto found = objects_.find(reinterpret_cast<std::uintptr_t>(handle));
    if (found == objects_.end()) {
      SetLastError(ERROR_INVALID_HANDLE);
      return nullptr;
    }
    std::shared_ptr<T> object = std::move(found->second);
    objects_.erase(found);
    return object;
  }

 private:
  const std::uintptr_t tag_;
  CCriticalSection section_;
  std::uintptr_t count_ GUARDED_BY(section_) = 0;
  std::unordered_map<std::uintptr_t, std::shared_ptr<T>> objects_ GUARDED_BY(section_);
};

}  // namespace n7platform::internal
