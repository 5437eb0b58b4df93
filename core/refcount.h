// Intrusive reference counting: RefCounted<AtomicRefCount> as a base, RefCountPtr as the owner.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace n7core {

// A thread-safe counter for RefCounted.
class AtomicRefCount {
 public:
  void increment() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
  // True when the count reaches zero: the caller then destroys the object.
  bool decrement() noexcept { return count_.fetch_sub(1, std::memory_order_acq_rel) == 1; }
  std::uint32_t count() const noexcept { return count_.load(std::memory_order_acquire); }

 private:
  std::atomic<std::uint32_t> count_{0};
};

// Base of reference-counted objects; a new object has a count of 0 until a RefCountPtr owns it.
template <typename Counter>
class RefCounted {
 public:
  void increment() const noexcept { counter_.increment(); }
  bool decrement() const noexcept { return counter_.decrement(); }
  std::uint32_t ref_count() const noexcept { return counter_.count(); }

 protected:
  RefCounted() = default;
  RefCounted(const RefCounted&) noexcept {}  // a copy starts with its own count
  RefCounted& operator=(const RefCounted&) noexcept { return *this; }
  ~RefCounted() = default;

 private:
  mutable Counter counter_;
};

// Owns one reference to a RefCounted object and deletes it with the last reference. T must have
// a virtual destructor or be final if it is deleted through a base.
template <typename T>
class RefCountPtr {
 public:
  RefCountPtr() noexcept = default;
  explicit RefCountPtr(T* object) noexcept : object_(object) {
    if (object_ != nullptr) object_->increment();
  }
  RefCountPtr(const RefCountPtr& other) noexcept : RefCountPtr(other.object_) {}
  RefCountPtr(RefCountPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <typename U>
  RefCountPtr(const RefCountPtr<U>& other) noexcept : RefCountPtr(other.get()) {}  // NOLINT
  ~RefCountPtr() { reset(); }

  RefCountPtr& operator=(RefCountPtr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  void reset() noexcept {
    if (object_ != nullptr && object_->decrement()) delete object_;
    object_ = nullptr;
  }

  T* get() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  T* operator->() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  T* object_ = nullptr;
};

}  // namespace n7core
