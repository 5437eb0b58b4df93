#include "n7utility/n7crypto/key.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "n7utility/core/testing_internal.h"
#include "n7utility/n7crypto/key_internal.h"

namespace n7crypto {
namespace {

struct Release {
  const unsigned char* data;
  std::size_t size;
  bool wiped;
};

std::vector<Release>& releases() {
  static std::vector<Release> seen;
  return seen;
}

void record_release(const unsigned char* data, std::size_t size) {
  releases().push_back({data, size, std::all_of(data, data + size, [](auto b) { return b == 0; })});
}

bool all_zero(const unsigned char* data, std::size_t from, std::size_t to) {
  return std::all_of(data + from, data + to, [](unsigned char b) { return b == 0; });
}

void fill_counting(Key& key) {
  for (std::size_t i = 0; i < key.size(); ++i) key.data()[i] = static_cast<unsigned char>(i + 1);
}

// Every test watches the buffers released while it runs.
class KeyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    releases().clear();
    impl::set_release_observer(record_release);
  }
  void TearDown() override { impl::set_release_observer(nullptr); }
};

TEST_F(KeyTest, CapacityIsTheSizeRoundedUpToEightAndEveryByteStartsZero) {
  const Key empty;
  EXPECT_EQ(empty.size(), 0u);
  EXPECT_EQ(empty.capacity(), 0u);
  EXPECT_EQ(empty.data(), nullptr);
  EXPECT_EQ(Key(0).data(), nullptr);
  for (const auto& [size, capacity] :
       {std::pair<std::size_t, std::size_t>{1, 8}, {5, 8}, {8, 8}, {9, 16}, {20, 24}, {32, 32}}) {
    const Key key(size);
    EXPECT_EQ(key.size(), size);
    EXPECT_EQ(key.capacity(), capacity);
    EXPECT_TRUE(all_zero(key.data(), 0, capacity)) << size;
  }
}

TEST_F(KeyTest, ShrinkingZeroesTheBytesGivenUpAndGrowingKeepsTheRest) {
  Key key(5);
  fill_counting(key);
  const unsigned char* const first_buffer = key.data();
  key.resize(3);
  EXPECT_EQ(key.size(), 3u);
  EXPECT_EQ(key.data(), first_buffer);
  EXPECT_TRUE(all_zero(key.data(), 3, 8));
  key.resize(8);  // within the capacity: same buffer, the regained bytes are zero
  EXPECT_EQ(key.data(), first_buffer);
  EXPECT_TRUE(all_zero(key.data(), 3, 8));
  EXPECT_TRUE(releases().empty());

  key.resize(9);
  EXPECT_EQ(key.size(), 9u);
  EXPECT_EQ(key.capacity(), 16u);
  EXPECT_EQ(key.data()[0], 1);
  EXPECT_EQ(key.data()[2], 3);
  EXPECT_TRUE(all_zero(key.data(), 3, 16));
  ASSERT_EQ(releases().size(), 1u);
  EXPECT_EQ(releases()[0].data, first_buffer);
  EXPECT_EQ(releases()[0].size, 8u);
  EXPECT_TRUE(releases()[0].wiped);
}

TEST_F(KeyTest, MovingTransfersTheBufferAndLeavesTheSourceEmpty) {
  Key source(12);
  fill_counting(source);
  const unsigned char* const buffer = source.data();
  Key target(std::move(source));
  EXPECT_EQ(target.data(), buffer);
  EXPECT_EQ(target.size(), 12u);
  EXPECT_EQ(target.capacity(), 16u);
  // NOLINTBEGIN(bugprone-use-after-move,clang-analyzer-cplusplus.Move): a moved-from Key is empty
  // by contract
  EXPECT_EQ(source.data(), nullptr);
  EXPECT_EQ(source.size(), 0u);
  EXPECT_EQ(source.capacity(), 0u);
  // NOLINTEND(bugprone-use-after-move,clang-analyzer-cplusplus.Move)

  Key assigned(3);
  const unsigned char* const replaced = assigned.data();
  assigned = std::move(target);
  EXPECT_EQ(assigned.data(), buffer);
  ASSERT_EQ(releases().size(), 1u);
  EXPECT_EQ(releases()[0].data, replaced);
  EXPECT_TRUE(releases()[0].wiped);
}

TEST_F(KeyTest, EveryReleasedBufferIsWipedFirst) {
  const unsigned char* buffer = nullptr;
  {
    Key key(20);
    fill_counting(key);
    buffer = key.data();
  }
  ASSERT_EQ(releases().size(), 1u);
  EXPECT_EQ(releases()[0].data, buffer);
  EXPECT_EQ(releases()[0].size, 24u);
  EXPECT_TRUE(releases()[0].wiped);
  { const Key empty; }
  EXPECT_EQ(releases().size(), 1u);  // nothing allocated, nothing released
}

TEST_F(KeyTest, SizeBeyondThirtyTwoBitsIsAClearError) {
  const auto error = n7core::test_support::thrown_error([] { Key key(std::size_t{1} << 32); });
  EXPECT_EQ(error.code, "error.n7core.safeCast.valueTruncated");
  Key key(1);
  EXPECT_EQ(n7core::test_support::thrown_error([&] { key.resize(std::size_t{1} << 33); }).code,
            "error.n7core.safeCast.valueTruncated");
  EXPECT_EQ(key.size(), 1u);
}

}  // namespace
}  // namespace n7crypto
