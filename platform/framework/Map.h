// The framework's hash map, CMap<KEY, ARG_KEY, VALUE, ARG_VALUE>, with its exact placement and
// iteration order.
//
// The table has 17 buckets unless InitHashTable says otherwise; it is allocated when the first
// entry arrives. A key's hash is HashKey<ARG_KEY>(key); its bucket is the hash modulo the bucket
// count. Each bucket is a chain with the newest entry first, and each entry keeps its full hash,
// which is compared before the keys are (CompareElements, operator== by default). Iteration walks
// the buckets in ascending order, each chain from its newest entry. Entries are allocated in blocks
// (10 by default) and recycled; when the last entry goes, the table and the blocks are released.
//
// HashKey for integers (and anything convertible to a 32-bit signed value) is the framework's
// scrambler: with k the key as a signed 32-bit value, q = k / 127773 and r = k % 127773
// (truncating), r = 16807 r - 2836 q, plus 2147483647 if negative. Pointers are hashed the same way
// after folding their 64 bits into 32 (high half xor low half). Other key types provide their own
// HashKey specialisation.
//
// Where the framework only asserts, this map is defined: InitHashTable on a map that holds entries
// (or with size 0) changes nothing; GetNextAssoc with a null position, or on an empty map, sets the
// position to null and leaves its outputs alone. A map loaded by Serialize from a malformed archive
// keeps the pairs read before the archive's error.
//
// A map is used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/Object.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/Archive.h"
#include "n7utility/platform/framework/CString.h"

using INT_PTR = std::intptr_t;

// An iteration position: opaque, null at the end.
struct N7Position {};
using POSITION = N7Position*;
// The position before the first entry, as GetStartPosition gives it for a non-empty map.
// NOLINTNEXTLINE(performance-no-int-to-ptr): the framework's sentinel value
#define BEFORE_START_POSITION (reinterpret_cast<POSITION>(-1L))

namespace n7platform {

// The framework's scrambler of a 32-bit key (see above); never negative.
inline UINT ScrambleHash(LONG key) {
  // |16807 r| and |2836 q| stay below 2^31 and have the same sign as each other's terms, so the
  // difference cannot overflow.
  LONG scrambled = 16807 * (key % 127773) - 2836 * (key / 127773);
  if (scrambled < 0) scrambled += 2147483647;
  return static_cast<UINT>(scrambled);
}

}  // namespace n7platform

template <typename ARG_KEY>
inline UINT HashKey(ARG_KEY key) {
  using Key = std::remove_cvref_t<ARG_KEY>;
  if constexpr (std::is_pointer_v<Key>) {
    const auto bits = reinterpret_cast<std::uintptr_t>(key);
    return n7platform::ScrambleHash(static_cast<LONG>(static_cast<DWORD>(bits ^ (bits >> 32))));
  } else {
    return n7platform::ScrambleHash(static_cast<LONG>(key));
  }
}

template <typename TYPE, typename ARG_TYPE>
inline BOOL CompareElements(const TYPE* element1, const ARG_TYPE* element2) {
  return *element1 == *element2 ? TRUE : FALSE;
}

// Stores or loads `count` elements: through the archive's operators where the type has them
// (numbers, CString, pointers to CObject classes), otherwise bit by bit for plain data. Other types
// (pointers to anything else, classes that manage resources) cannot be archived: that throws
// CArchiveException(genericException).
template <typename TYPE>
void SerializeElements(CArchive& ar, TYPE* elements, INT_PTR count) {
  using Pointee = std::remove_cv_t<std::remove_pointer_t<TYPE>>;
  constexpr bool kPointer = std::is_pointer_v<TYPE>;
  constexpr bool kOperators = requires(TYPE & element) { ar << element, ar >> element; };
  constexpr bool kViaOperators = kPointer ? std::is_base_of_v<CObject, Pointee> : kOperators;
  constexpr bool kBitwise = !kPointer && !kOperators && std::is_trivially_copyable_v<TYPE>;
  for (INT_PTR i = 0; i < count; ++i) {
    TYPE& element = elements[i];
    if constexpr (kViaOperators) {
      if (ar.IsStoring()) {
        ar << element;
      } else {
        ar >> element;
      }
    } else if constexpr (kBitwise) {
      if (ar.IsStoring()) {
        ar.Write(&element, sizeof element);
      } else if (ar.Read(&element, sizeof element) != sizeof element) {
        AfxThrowArchiveException(CArchiveException::endOfFile);
      }
    } else {
      AfxThrowArchiveException(CArchiveException::genericException);
    }
  }
}

template <typename KEY, typename ARG_KEY, typename VALUE, typename ARG_VALUE>
class CMap : public CObject {
 public:
  // An entry: its key and value.
  class CPair {
   public:
    const KEY key;
    VALUE value;

   protected:
    explicit CPair(ARG_KEY key_value) : key(key_value), value() {}
  };

 protected:
  class CAssoc : public CPair {
    friend class CMap;

   public:
    explicit CAssoc(ARG_KEY key_value) : CPair(key_value) {}

   private:
    CAssoc* pNext = nullptr;
    UINT nHashValue = 0;
  };

 public:
  static constexpr UINT kDefaultHashTableSize = 17;

  // `block_size`: how many entries each allocation holds (at least 1).
  explicit CMap(INT_PTR block_size = 10) : m_nBlockSize(block_size > 0 ? block_size : 1) {}
  ~CMap() override { RemoveAll(); }

  INT_PTR GetCount() const { return m_nCount; }
  INT_PTR GetSize() const { return m_nCount; }
  BOOL IsEmpty() const { return m_nCount == 0 ? TRUE : FALSE; }

  // TRUE and the value in `value` when the key is there; `value` is untouched otherwise.
  BOOL Lookup(ARG_KEY key, VALUE& value) const {
    const CAssoc* assoc = Find(key);
    if (assoc == nullptr) return FALSE;
    value = assoc->value;
    return TRUE;
  }
  const CPair* PLookup(ARG_KEY key) const { return Find(key); }
  CPair* PLookup(ARG_KEY key) { return Find(key); }

  // The value of the key, added with a default value when the key is not there.
  VALUE& operator[](ARG_KEY key) {
    UINT bucket = 0;
    UINT hash = 0;
    CAssoc* assoc = GetAssocAt(key, bucket, hash);
    if (assoc != nullptr) return assoc->value;
    if (m_pHashTable == nullptr) InitHashTable(m_nHashTableSize);
    assoc = NewAssoc(key);
    assoc->nHashValue = hash;
    assoc->pNext = m_pHashTable[bucket];
    m_pHashTable[bucket] = assoc;
    return assoc->value;
  }
  void SetAt(ARG_KEY key, ARG_VALUE new_value) { (*this)[key] = new_value; }

  BOOL RemoveKey(ARG_KEY key) {
    if (m_pHashTable == nullptr) return FALSE;
    const UINT hash = HashKey<ARG_KEY>(key);
    for (CAssoc** link = &m_pHashTable[hash % m_nHashTableSize]; *link != nullptr;
         link = &(*link)->pNext) {
      CAssoc* assoc = *link;
      if (assoc->nHashValue == hash && CompareElements(&assoc->key, &key)) {
        *link = assoc->pNext;
        FreeAssoc(assoc);
        return TRUE;
      }
    }
    return FALSE;
  }

  // Removes every entry and releases the table and the blocks; the bucket count stays.
  void RemoveAll() {
    if (m_pHashTable != nullptr) {
      for (UINT bucket = 0; bucket < m_nHashTableSize; ++bucket) {
        for (CAssoc* assoc = m_pHashTable[bucket]; assoc != nullptr;) {
          CAssoc* next = assoc->pNext;
          assoc->~CAssoc();
          assoc = next;
        }
      }
      m_pHashTable.reset();
    }
    m_nCount = 0;
    m_freeList.clear();
    m_blocks.clear();
  }

  // Null for an empty map, else BEFORE_START_POSITION.
  POSITION GetStartPosition() const { return m_nCount == 0 ? nullptr : BEFORE_START_POSITION; }
  // The entry at `position` into `key` and `value`; `position` moves to the next entry, or null.
  void GetNextAssoc(POSITION& position, KEY& key, VALUE& value) const {
    CAssoc* assoc =
        position == BEFORE_START_POSITION ? FirstAssoc() : reinterpret_cast<CAssoc*>(position);
    if (assoc == nullptr) {
      position = nullptr;
      return;
    }
    position = reinterpret_cast<POSITION>(NextAssoc(assoc));
    key = assoc->key;
    value = assoc->value;
  }
  const CPair* PGetFirstAssoc() const { return FirstAssoc(); }
  CPair* PGetFirstAssoc() { return FirstAssoc(); }
  const CPair* PGetNextAssoc(const CPair* pair) const { return NextAssoc(AssocOf(pair)); }
  CPair* PGetNextAssoc(const CPair* pair) { return NextAssoc(AssocOf(pair)); }

  UINT GetHashTableSize() const { return m_nHashTableSize; }
  // Sets the bucket count of an empty map; with `allocate_now` the table is made at once.
  void InitHashTable(UINT hash_size, BOOL allocate_now = TRUE) {
    if (m_nCount != 0 || hash_size == 0) return;
    m_pHashTable.reset();
    if (allocate_now) m_pHashTable = std::make_unique<CAssoc*[]>(hash_size);
    m_nHashTableSize = hash_size;
  }

  // The count, then each key and its value in iteration order. Loading adds the pairs read with
  // SetAt.
  void Serialize(CArchive& ar) override {
    CObject::Serialize(ar);
    if (ar.IsStoring()) {
      ar.WriteCount(static_cast<DWORD>(m_nCount));
      for (CAssoc* assoc = FirstAssoc(); assoc != nullptr; assoc = NextAssoc(assoc)) {
        // Storing reads the key; SerializeElements serves both directions.
        SerializeElements<KEY>(ar, const_cast<KEY*>(&assoc->key), 1);
        SerializeElements<VALUE>(ar, &assoc->value, 1);
      }
      return;
    }
    for (DWORD remaining = ar.ReadCount(); remaining > 0; --remaining) {
      KEY key{};
      VALUE value{};
      SerializeElements<KEY>(ar, &key, 1);
      SerializeElements<VALUE>(ar, &value, 1);
      SetAt(key, value);
    }
  }

 protected:
  // A new entry for `key` with a default value, not yet in a chain.
  CAssoc* NewAssoc(ARG_KEY key) {
    if (m_freeList.empty()) AddBlock();
    void* slot = m_freeList.back();
    CAssoc* assoc = ::new (slot) CAssoc(key);
    m_freeList.pop_back();
    ++m_nCount;
    return assoc;
  }
  // Destroys an entry already out of its chain; the last one releases table and blocks.
  void FreeAssoc(CAssoc* assoc) {
    assoc->~CAssoc();
    m_freeList.push_back(assoc);
    if (--m_nCount == 0) RemoveAll();
  }
  // The entry of `key` or null; `bucket` and `hash` are set either way.
  CAssoc* GetAssocAt(ARG_KEY key, UINT& bucket, UINT& hash) const {
    hash = HashKey<ARG_KEY>(key);
    bucket = hash % m_nHashTableSize;
    if (m_pHashTable == nullptr) return nullptr;
    for (CAssoc* assoc = m_pHashTable[bucket]; assoc != nullptr; assoc = assoc->pNext) {
      if (assoc->nHashValue == hash && CompareElements(&assoc->key, &key)) return assoc;
    }
    return nullptr;
  }

  std::unique_ptr<CAssoc*[]> m_pHashTable;
  UINT m_nHashTableSize = kDefaultHashTableSize;
  INT_PTR m_nCount = 0;
  INT_PTR m_nBlockSize;

 private:
  static_assert(alignof(CAssoc) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

  CAssoc* Find(ARG_KEY key) const {
    UINT bucket = 0;
    UINT hash = 0;
    return GetAssocAt(key, bucket, hash);
  }
  static CAssoc* AssocOf(const CPair* pair) {
    return static_cast<CAssoc*>(const_cast<CPair*>(pair));
  }
  CAssoc* FirstInBucketsFrom(UINT bucket) const {
    if (m_pHashTable == nullptr) return nullptr;
    for (; bucket < m_nHashTableSize; ++bucket) {
      if (m_pHashTable[bucket] != nullptr) return m_pHashTable[bucket];
    }
    return nullptr;
  }
  CAssoc* FirstAssoc() const { return FirstInBucketsFrom(0); }
  CAssoc* NextAssoc(const CAssoc* assoc) const {
    if (assoc == nullptr) return nullptr;
    if (assoc->pNext != nullptr) return assoc->pNext;
    return FirstInBucketsFrom(assoc->nHashValue % m_nHashTableSize + 1);
  }
  // A block of m_nBlockSize entries' storage, its slots put on the free list so that the first
  // slot is used first.
  void AddBlock() {
    const auto slots = static_cast<std::size_t>(m_nBlockSize);
    m_freeList.reserve(m_freeList.size() + slots);
    auto block = std::make_unique<std::byte[]>(slots * sizeof(CAssoc));
    for (std::size_t i = slots; i > 0; --i) m_freeList.push_back(&block[(i - 1) * sizeof(CAssoc)]);
    m_blocks.push_back(std::move(block));
  }

  std::vector<void*> m_freeList;  // storage for entries, the next one to use last
  std::vector<std::unique_ptr<std::byte[]>> m_blocks;
};

// The map from int to text that the library exports.
extern template class N7_EXPORT CMap<int, int, CString, const CString&>;
