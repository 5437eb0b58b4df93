#include "n7utility/n7crypto/random_provider.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "n7utility/core/testing_internal.h"
#include "n7utility/platform/base/ConcurrentRun_test.h"

namespace n7crypto {
namespace {

using n7platform::test_support::RunConcurrently;

using n7core::test_support::thrown_error;

TEST(RandomProviderTest, DefaultProviderIsOneObjectThatNoHandleOwns) {
  const RandomProviderPtr first = get_default_random_provider();
  const RandomProviderPtr second = get_default_random_provider();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first.get(), second.get());
  EXPECT_EQ(first.use_count(), 0);
}

TEST(RandomProviderTest, NullBufferAndEmptySizeDoNothingAndNegativeSizeIsAnError) {
  IRandomProvider& provider = *get_default_random_provider();
  provider.generate_random(nullptr, 16);
  provider.generate_random(nullptr, -1);  // no buffer: the size is not looked at
  std::array<unsigned char, 4> untouched{};
  provider.generate_random(untouched.data(), 0);
  EXPECT_EQ(untouched, (std::array<unsigned char, 4>{}));
  const auto error = thrown_error([&] { provider.generate_random(untouched.data(), -1); });
  EXPECT_EQ(error.code, "error.n7crypto.randomProvider.arguments");
  EXPECT_EQ(error.message, "Invalid 'size' argument");
}

TEST(RandomProviderTest, ManyThreadsDrawAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kDraws = 500;
  std::vector<std::array<unsigned char, 16>> last(kThreads);
  RunConcurrently(kThreads, [&](int t) {
    const RandomProviderPtr provider = get_default_random_provider();
    auto& buffer = last[static_cast<std::size_t>(t)];
    for (int i = 0; i < kDraws; ++i) provider->generate_random(buffer.data(), 16);
  });
  std::sort(last.begin(), last.end());
  EXPECT_EQ(std::adjacent_find(last.begin(), last.end()), last.end());
}

}  // namespace
}  // namespace n7crypto
