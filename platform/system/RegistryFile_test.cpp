#include <gtest/gtest.h>

#include <string>

#include "n7utility/platform/system/RegistryFile_internal.h"

namespace n7platform::internal {
namespace {

SavedKey Sample() {
  SavedKey root;
  root.name = "Root";
  root.class_name = "class";
  root.last_write = 0x01D9'0000'1234'5678ull;
  root.security = {1, 0, 0, 0x80};
  root.values.push_back(SavedValue{"Name", 1, {'a', 0, 0, 0, 0, 0, 0, 0}});
  root.values.push_back(SavedValue{"", 3, {}});
  SavedKey& child = root.subkeys.emplace_back();
  child.name = "Child";
  child.values.push_back(SavedValue{"n", 4, {7, 0, 0, 0}});
  child.subkeys.emplace_back().name = "Grandchild";
  return root;
}

void ExpectSameTree(const SavedKey& a, const SavedKey& b) {
  EXPECT_EQ(a.name, b.name);
  EXPECT_EQ(a.class_name, b.class_name);
  EXPECT_EQ(a.last_write, b.last_write);
  EXPECT_EQ(a.security, b.security);
  ASSERT_EQ(a.values.size(), b.values.size());
  for (std::size_t i = 0; i < a.values.size(); ++i) {
    EXPECT_EQ(a.values[i].name, b.values[i].name);
    EXPECT_EQ(a.values[i].type, b.values[i].type);
    EXPECT_EQ(a.values[i].data, b.values[i].data);
  }
  ASSERT_EQ(a.subkeys.size(), b.subkeys.size());
  for (std::size_t i = 0; i < a.subkeys.size(); ++i) ExpectSameTree(a.subkeys[i], b.subkeys[i]);
}

TEST(SavedKeyTest, RoundTrips) {
  SavedKey decoded;
  ASSERT_TRUE(DecodeSavedKey(EncodeSavedKey(Sample()), &decoded));
  ExpectSameTree(decoded, Sample());
}

TEST(SavedKeyTest, EveryCutOrFlipIsRefused) {
  const std::string bytes = EncodeSavedKey(Sample());
  SavedKey decoded;
  for (std::size_t size = 0; size < bytes.size(); ++size)
    EXPECT_FALSE(DecodeSavedKey(bytes.substr(0, size), &decoded)) << size;
  EXPECT_FALSE(DecodeSavedKey(bytes + '\0', &decoded));
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    std::string flipped = bytes;
    flipped[at] = static_cast<char>(flipped[at] ^ 0x10);
    EXPECT_FALSE(DecodeSavedKey(flipped, &decoded)) << at;
  }
}

TEST(SavedKeyTest, NestingIsBounded) {
  SavedKey root;
  SavedKey* deepest = &root;
  for (int depth = 1; depth <= kMaxSavedDepth; ++depth) deepest = &deepest->subkeys.emplace_back();
  SavedKey decoded;
  EXPECT_FALSE(DecodeSavedKey(EncodeSavedKey(root), &decoded));
  root.subkeys.front().subkeys.clear();
  EXPECT_TRUE(DecodeSavedKey(EncodeSavedKey(root), &decoded));
}

}  // namespace
}  // namespace n7platform::internal
