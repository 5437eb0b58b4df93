// Holds a process-wide object that is constructed on first use and never destroyed.
//
// The library's process-wide services (the scheduler, the kernel-object table, the trace manager)
// are used by threads that run until the process ends, after static destructors have started;
// destroying them would pull the floor from under those threads.
#pragma once

#include <new>
#include <type_traits>
#include <utility>

namespace n7platform {

template <typename T>
class NoDestructor {
 public:
  template <typename... Args>
  explicit NoDestructor(Args&&... args) {
    new (storage_) T(std::forward<Args>(args)...);
  }
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;
  ~NoDestructor() = default;

  T* get() { return std::launder(reinterpret_cast<T*>(storage_)); }
  T& operator*() { return *get(); }
  T* operator->() { return get(); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace n7platform
