// The one table of checked handles behind every handle the platform layer hands out: kernel
// objects, event sources, service manager and service handles, registry keys. A closed, stale or
// foreign handle is refused instead of touching freed memory, an object stays alive while a call
// that found it is still using it (even when another thread closes its handle meanwhile), and
// finding a handle takes no lock.
//
// A handle is a tag bit, a 31-bit generation, the table's number and a slot index. The tag bit
// makes it a non-canonical address, so it can never be mistaken for a pointer (and a pointer never
// for it); the table's number keeps the tables' handles apart; the generation changes each time a
// slot is freed, so a closed handle stays invalid after its slot is reused.
//
// Each slot has one atomic word holding its generation, whether the handle is open, whether the
// slot holds an object, and how many calls are using it (pins). A call pins the slot, then checks
// the generation and the open bit; a slot whose handle was closed keeps its object until the last
// pin goes, and the thread that drops it frees the slot. Slots sit on their own cache lines, so
// calls on different handles share nothing written. Only creating and freeing handles takes the
// table's lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace n7platform::internal {

// The tables, one number each (up to 127).
enum class HandleKind : std::uint32_t {
  kKernelObject = 0,
  kEventSource = 1,
  kServiceControl = 2,
  kRegistryKey = 3,
};

template <typename T>
class HandleTable {
 public:
  struct alignas(64) Slot {
    std::atomic<std::uint64_t> word{std::uint64_t{1} << 32};
    // Written only while the slot holds nothing, or by the one thread that frees it.
    std::shared_ptr<T> object;
    std::uint32_t index = 0;  // the slot's own index, set once
  };

  // A pinned slot's object, unpinned when this goes.
  class Ref {
   public:
    Ref() = default;
    Ref(HandleTable* table, Slot* slot) : table_(table), slot_(slot) {}
    Ref(Ref&& other) noexcept : table_(other.table_), slot_(std::exchange(other.slot_, nullptr)) {}
    Ref& operator=(Ref&& other) noexcept {
      if (this != &other) {
        Reset();
        table_ = other.table_;
        slot_ = std::exchange(other.slot_, nullptr);
      }
      return *this;
    }
    ~Ref() { Reset(); }

    T* get() const { return slot_ != nullptr ? slot_->object.get() : nullptr; }
    T* operator->() const { return get(); }
    explicit operator bool() const { return slot_ != nullptr; }
    std::shared_ptr<T> Share() const { return slot_ != nullptr ? slot_->object : nullptr; }
    void Reset() {
      if (slot_ != nullptr) table_->Unpin(std::exchange(slot_, nullptr));
    }

   private:
    HandleTable* table_ = nullptr;
    Slot* slot_ = nullptr;
  };

  explicit HandleTable(HandleKind kind) : kind_(static_cast<std::uint32_t>(kind)) {}
  HandleTable(const HandleTable&) = delete;
  HandleTable& operator=(const HandleTable&) = delete;

  // Enters `object` and returns its new handle; null when the table is full.
  void* Insert(std::shared_ptr<T> object) {
    Slot* slot = TakeFreeSlot();
    if (slot == nullptr) return nullptr;
    slot->object = std::move(object);
    // Pins of late finders of the slot's previous handle may still be counted; they are kept.
    const std::uint64_t word = slot->word.fetch_or(kOpen | kHolding, std::memory_order_acq_rel);
    live_.fetch_add(1, std::memory_order_relaxed);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is a number, never dereferenced
    return reinterpret_cast<void*>(kHandleTag | (word & ~std::uint64_t{0xFFFF'FFFF}) |
                                   (kind_ << kKindShift) | slot->index);
  }

  // Pins the slot of `handle` if the handle is open; null otherwise.
  Slot* Pin(const void* handle) {
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    if ((value & kHandleTag) == 0 || ((value >> kKindShift) & 0xFF) != kind_) return nullptr;
    const auto index = static_cast<std::uint32_t>(value) & (kMaxHandles - 1);
    Slot* chunk = chunks_[index >> kChunkBits].load(std::memory_order_acquire);
    if (chunk == nullptr) return nullptr;
    Slot* slot = &chunk[index & (kChunkSize - 1)];
    const std::uint64_t word = slot->word.fetch_add(1, std::memory_order_acquire);
    if (GenerationOf(word) == GenerationOf(value) && (word & kOpen) != 0) return slot;
    Unpin(slot);
    return nullptr;
  }

  void Unpin(Slot* slot) {
    const std::uint64_t word = slot->word.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if ((word & (kPinMask | kOpen | kHolding)) == kHolding) Free(slot, word);
  }

  // The object of `handle`, pinned while the Ref lives; empty when the handle is not open.
  Ref Find(const void* handle) { return {this, Pin(handle)}; }

  // The object of `handle` as a shared pointer, for holders that outlive the call; null when the
  // handle is not open.
  std::shared_ptr<T> Share(const void* handle) { return Find(handle).Share(); }

  // Closes `handle`; its object goes when the last call using it is done. The object, or null when
  // the handle was not open (or another thread closed it first).
  std::shared_ptr<T> Remove(const void* handle) {
    Slot* slot = Pin(handle);
    if (slot == nullptr) return nullptr;
    std::shared_ptr<T> object;
    if ((slot->word.fetch_and(~kOpen, std::memory_order_acq_rel) & kOpen) != 0) {
      live_.fetch_sub(1, std::memory_order_relaxed);
      object = slot->object;
    }
    Unpin(slot);
    return object;
  }

  // Closes every open handle of the table; each object goes when the calls using it are done.
  void RemoveAll() {
    std::uint32_t used = 0;
    {
      const std::lock_guard lock(free_mutex_);
      used = used_;
    }
    for (std::uint32_t index = 0; index < used; ++index) {
      Slot* slot =
          &chunks_[index >> kChunkBits].load(std::memory_order_acquire)[index & (kChunkSize - 1)];
      slot->word.fetch_add(1, std::memory_order_acquire);
      if ((slot->word.fetch_and(~kOpen, std::memory_order_acq_rel) & kOpen) != 0) {
        live_.fetch_sub(1, std::memory_order_relaxed);
      }
      Unpin(slot);
    }
  }

  // Whether the slot, pinned by the caller, still belongs to `handle` and the handle is open.
  static bool StillOpen(const Slot* slot, const void* handle) {
    const std::uint64_t word = slot->word.load(std::memory_order_acquire);
    return (word & kOpen) != 0 &&
           GenerationOf(word) == GenerationOf(reinterpret_cast<std::uintptr_t>(handle));
  }

  std::size_t LiveCount() const { return live_.load(std::memory_order_relaxed); }

 private:
  static constexpr std::uint64_t kHandleTag = std::uint64_t{1} << 63;
  static constexpr std::uint32_t kGenerationMask = 0x7FFF'FFFFu;
  // Roughly the per-process limit of the system the interface comes from.
  static constexpr std::uint32_t kMaxHandles = 1u << 24;
  static constexpr std::uint32_t kKindShift = 24;
  static constexpr std::uint32_t kChunkBits = 10;
  static constexpr std::uint32_t kChunkSize = 1u << kChunkBits;
  static constexpr std::uint32_t kChunks = kMaxHandles / kChunkSize;
  // The slot word: generation in the high half, then the open and holding bits, then the pins.
  static constexpr std::uint64_t kOpen = std::uint64_t{1} << 31;
  static constexpr std::uint64_t kHolding = std::uint64_t{1} << 30;
  static constexpr std::uint64_t kPinMask = kHolding - 1;

  static std::uint32_t GenerationOf(std::uint64_t word) {
    return static_cast<std::uint32_t>(word >> 32) & kGenerationMask;
  }

  // The last pin of a closed handle went: whoever wins the exchange drops the object.
  void Free(Slot* slot, std::uint64_t word) {
    std::uint32_t generation = GenerationOf(word);
    generation = generation == kGenerationMask ? 1 : generation + 1;
    if (!slot->word.compare_exchange_strong(word, std::uint64_t{generation} << 32,
                                            std::memory_order_acq_rel)) {
      return;  // a late finder pinned it meanwhile; its unpin frees it
    }
    const std::shared_ptr<T> object = std::move(slot->object);
    const std::lock_guard lock(free_mutex_);
    free_.push_back(slot);
  }

  Slot* TakeFreeSlot() {
    const std::lock_guard lock(free_mutex_);
    if (!free_.empty()) {
      Slot* slot = free_.back();
      free_.pop_back();
      return slot;
    }
    if (used_ == kMaxHandles) return nullptr;
    if (used_ % kChunkSize == 0) {
      auto* chunk = new Slot[kChunkSize];
      for (std::uint32_t i = 0; i < kChunkSize; ++i) chunk[i].index = used_ + i;
      chunks_[used_ >> kChunkBits].store(chunk, std::memory_order_release);
    }
    Slot* chunk = chunks_[used_ >> kChunkBits].load(std::memory_order_relaxed);
    return &chunk[used_++ & (kChunkSize - 1)];
  }

  const std::uint64_t kind_;
  std::atomic<Slot*> chunks_[kChunks] = {};
  std::atomic<std::size_t> live_{0};
  std::mutex free_mutex_;  // taken to create and free handles, never to find one
  std::vector<Slot*> free_;
  std::uint32_t used_ = 0;
};

}  // namespace n7platform::internal
