#include "n7utility/n7crypto/key.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "n7utility/core/error.h"
#include "n7utility/core/safe_cast.h"
#include "n7utility/n7crypto/key_internal.h"
#include "n7utility/n7crypto/wipe.h"
#include "n7utility/platform/base/WindowsTypes.h"

namespace n7crypto {
namespace impl {
namespace {

std::atomic<ReleaseObserver> release_observer{nullptr};

}  // namespace

void set_release_observer(ReleaseObserver observer) noexcept { release_observer.store(observer); }

unsigned char* allocate_zeroed(std::size_t size) {
  if (size == 0) return nullptr;
  // calloc: the memory is plain bytes, freed by wipe_and_free with std::free.
  void* memory = std::calloc(size, 1);  // NOLINT(cppcoreguidelines-no-malloc)
  if (memory == nullptr) {
    n7core::throw_winerror(
        n7core::SourceLocation("n7crypto::impl::allocate_zeroed()", "n7crypto/key", __LINE__),
        ERROR_OUTOFMEMORY, true);
  }
  return static_cast<unsigned char*>(memory);
}

void wipe_and_free(unsigned char* data, std::size_t size) noexcept {
  if (data == nullptr) return;
  n7crypto::wipe(data, size);
  if (const ReleaseObserver observer = release_observer.load()) observer(data, size);
  std::free(data);  // NOLINT(cppcoreguidelines-no-malloc)
}

}  // namespace impl

namespace {

// Capacities are whole multiples of 8 bytes.
std::uint32_t capacity_for(std::size_t size) {
  return n7core::safe_cast<std::uint32_t>((size + 7) / 8 * 8);
}

}  // namespace

Key::Key(std::size_t size)
    : capacity_(capacity_for(size)),
      size_(static_cast<std::uint32_t>(size)),
      data_(impl::allocate_zeroed(capacity_)) {}

Key::Key(Key&& other) noexcept
    : capacity_(std::exchange(other.capacity_, 0)),
      size_(std::exchange(other.size_, 0)),
      data_(std::exchange(other.data_, nullptr)) {}

Key& Key::operator=(Key&& other) noexcept {
  if (this != &other) {
    release();
    capacity_ = std::exchange(other.capacity_, 0);
    size_ = std::exchange(other.size_, 0);
    data_ = std::exchange(other.data_, nullptr);
  }
  return *this;
}

Key::~Key() { release(); }

void Key::resize(std::size_t size) {
  const std::uint32_t capacity = capacity_for(size);
  if (capacity > capacity_) {
    unsigned char* grown = impl::allocate_zeroed(capacity);
    if (size_ != 0) std::memcpy(grown, data_, size_);
    impl::wipe_and_free(data_, capacity_);
    data_ = grown;
    capacity_ = capacity;
  } else if (size < size_) {
    n7crypto::wipe(data_ + size, size_ - size);
  }
  size_ = static_cast<std::uint32_t>(size);
}

void Key::release() noexcept {
  impl::wipe_and_free(data_, capacity_);
  capacity_ = 0;
  size_ = 0;
  data_ = nullptr;
}

}  // namespace n7crypto
