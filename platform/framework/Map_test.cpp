#include "n7utility/platform/framework/Map.h"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "n7utility/platform/framework/Archive_test.h"

namespace {

using IntToText = CMap<int, int, CString, const CString&>;
using Bytes = std::vector<BYTE>;

std::vector<int> KeysInOrder(const IntToText& map) {
  std::vector<int> keys;
  for (POSITION position = map.GetStartPosition(); position != nullptr;) {
    int key = 0;
    CString value;
    map.GetNextAssoc(position, key, value);
    keys.push_back(key);
  }
  return keys;
}

IntToText& Filled(IntToText& map, const std::vector<int>& keys) {
  for (const int key : keys) map[key] = CString(std::to_wstring(key));
  return map;
}

TEST(HashKeyTest, IntegersAreScrambled) {
  EXPECT_EQ(HashKey<int>(0), 0u);
  EXPECT_EQ(HashKey<int>(1), 16807u);
  EXPECT_EQ(HashKey<int>(127773), 2147480811u);  // negative before the correction
  EXPECT_EQ(HashKey<int>(-1), 2147466840u);
  EXPECT_EQ(HashKey<int>(INT_MIN), 2147466840u);
  EXPECT_EQ(HashKey<int>(INT_MAX), 0u);
  EXPECT_EQ(HashKey<DWORD>(0xFFFFFFFFu), 2147466840u);  // taken as -1
}

// With 17 buckets, 1, 18 and 35 share bucket 11, 2 is in bucket 5 and 0 in bucket 0; a chain
// gives its newest entry first.
TEST(MapTest, IterationFollowsBucketsAndNewestFirstChains) {
  IntToText map;
  Filled(map, {1, 2, 18, 0, 35});
  EXPECT_EQ(map.GetHashTableSize(), 17u);
  EXPECT_EQ(KeysInOrder(map), std::vector<int>({0, 2, 35, 18, 1}));

  std::vector<int> by_pairs;
  for (const IntToText::CPair* pair = map.PGetFirstAssoc(); pair != nullptr;
       pair = map.PGetNextAssoc(pair)) {
    by_pairs.push_back(pair->key);
  }
  EXPECT_EQ(by_pairs, KeysInOrder(map));

  // Removing from the middle of a chain keeps the rest in order.
  EXPECT_TRUE(map.RemoveKey(18));
  EXPECT_FALSE(map.RemoveKey(18));
  EXPECT_EQ(KeysInOrder(map), std::vector<int>({0, 2, 35, 1}));
}

// 16807 is 7^5: with 7 buckets every small key lands in bucket 0, newest first.
TEST(MapTest, BucketCountIsSetOnAnEmptyMapOnly) {
  IntToText map;
  map.InitHashTable(7);
  Filled(map, {3, 1, 4, 5});
  EXPECT_EQ(map.GetHashTableSize(), 7u);
  EXPECT_EQ(KeysInOrder(map), std::vector<int>({5, 4, 1, 3}));
  map.InitHashTable(31);
  map.InitHashTable(0);
  EXPECT_EQ(map.GetHashTableSize(), 7u);
  map.RemoveAll();
  EXPECT_EQ(map.GetHashTableSize(), 7u);
  map.InitHashTable(31, FALSE);
  EXPECT_EQ(map.GetHashTableSize(), 31u);
}

TEST(MapTest, LookupSetAtAndRemoval) {
  IntToText map;
  EXPECT_TRUE(map.IsEmpty());
  EXPECT_EQ(map.GetStartPosition(), nullptr);
  CString value = L"untouched";
  EXPECT_FALSE(map.Lookup(1, value));
  EXPECT_FALSE(map.RemoveKey(1));
  EXPECT_EQ(value, L"untouched");

  map.SetAt(1, L"one");
  map.SetAt(-7, L"minus seven");
  map.SetAt(1, L"uno");
  EXPECT_EQ(map.GetCount(), 2);
  EXPECT_TRUE(map.Lookup(1, value));
  EXPECT_EQ(value, L"uno");
  EXPECT_EQ(map[5], L"");  // added with an empty value
  EXPECT_EQ(map.GetCount(), 3);
  map.PLookup(5)->value = L"five";
  EXPECT_EQ(map[5], L"five");
  EXPECT_EQ(map.PLookup(6), nullptr);
  EXPECT_EQ(map.GetStartPosition(), BEFORE_START_POSITION);

  // Emptying the map entry by entry releases it; it works as new afterwards.
  EXPECT_TRUE(map.RemoveKey(1));
  EXPECT_TRUE(map.RemoveKey(-7));
  EXPECT_TRUE(map.RemoveKey(5));
  EXPECT_TRUE(map.IsEmpty());
  EXPECT_EQ(map.PGetFirstAssoc(), nullptr);
  POSITION position = BEFORE_START_POSITION;
  int key = 0;
  map.GetNextAssoc(position, key, value);
  EXPECT_EQ(position, nullptr);
  map[9] = L"nine";
  EXPECT_EQ(KeysInOrder(map), std::vector<int>({9}));
}

// Values with a count of live copies: every entry made is destroyed exactly once, through
// removals, block reuse and RemoveAll.
struct Counted {
  Counted() { ++live; }
  Counted(const Counted&) { ++live; }
  Counted& operator=(const Counted&) = default;
  ~Counted() { --live; }
  static inline int live = 0;
};

TEST(MapTest, EntriesAreRecycledAndDestroyedOnce) {
  {
    CMap<int, int, Counted, const Counted&> map(3);
    for (int round = 0; round < 5; ++round) {
      for (int key = 0; key < 25; ++key) map[key];
      for (int key = 0; key < 25; key += 2) map.RemoveKey(key);
      EXPECT_EQ(map.GetCount(), 12);
      EXPECT_EQ(Counted::live, 12);
      for (int key = 100; key < 110; ++key) map[key];
      map.RemoveAll();
      EXPECT_EQ(Counted::live, 0);
    }
    map[1];
  }
  EXPECT_EQ(Counted::live, 0);
}

TEST(MapTest, SerializesCountThenPairsInIterationOrder) {
  IntToText map;
  map.SetAt(1, L"a");
  map.SetAt(2, L"bc");
  const Bytes bytes = n7platform::test_support::Stored([&](CArchive& ar) { map.Serialize(ar); });
  const Bytes expected = {2, 0,                                             // count
                          2, 0, 0, 0, 0xFF, 0xFE, 0xFF, 2, 'b', 0, 'c', 0,  // bucket 5
                          1, 0, 0, 0, 0xFF, 0xFE, 0xFF, 1, 'a', 0};         // bucket 11
  EXPECT_EQ(bytes, expected);

  IntToText loaded;
  loaded.SetAt(3, L"kept");
  n7platform::test_support::Loaded(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
  EXPECT_EQ(KeysInOrder(loaded), std::vector<int>({2, 1, 3}));  // 3 is in bucket 16
  EXPECT_EQ(loaded[2], L"bc");

  // A count that promises more than the archive holds: the pairs before the end are kept.
  IntToText partial;
  const Bytes truncated(bytes.begin(), bytes.end() - 1);
  EXPECT_EQ(n7platform::test_support::ArchiveErrorOf(truncated,
                                                     [&](CArchive& ar) { partial.Serialize(ar); }),
            CArchiveException::endOfFile);
  EXPECT_EQ(KeysInOrder(partial), std::vector<int>({2}));
}

TEST(MapTest, PlainDataIsSerializedBitByBit) {
  struct Point {
    short x;
    short y;
  };
  CMap<DWORD, DWORD, Point, const Point&> map;
  map.SetAt(0x01020304, Point{5, -1});
  const Bytes bytes = n7platform::test_support::Stored([&](CArchive& ar) { map.Serialize(ar); });
  EXPECT_EQ(bytes, Bytes({1, 0, 4, 3, 2, 1, 5, 0, 0xFF, 0xFF}));
  CMap<DWORD, DWORD, Point, const Point&> loaded;
  n7platform::test_support::Loaded(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
  EXPECT_EQ(loaded[0x01020304].y, -1);
}

}  // namespace
