#include "compiler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "n7utility/platform/base/TempDir_test.h"

namespace n7rc {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The directory that file resources are read from.
const std::filesystem::path& data_directory() {
  static const n7platform::test_support::TempDir directory;
  return directory.path();
}

CompiledResources compile_text(std::string_view text) { return compile(text, data_directory()); }

const Resource& find(const CompiledResources& compiled, std::uint16_t type, std::uint16_t name,
                     std::uint16_t language) {
  for (const Resource& item : compiled.resources) {
    if (!item.type.name && item.type.id == type && !item.name.name && item.name.id == name &&
        item.language == language) {
      return item;
    }
  }
  throw std::runtime_error("no such resource");
}

template <typename T>
T read_at(const std::vector<unsigned char>& bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

TEST(ResourceCompilerTest, StringsGoIntoBlocksOfSixteenCountedStringsPerLanguage) {
  const CompiledResources compiled = compile_text(
      "# comment\n"
      "string 1 \"a\" \"b\"   # joined\n"
      "         \"c\"         # continued\n"
      "string 17 \"\\u00e9\\t\"\n"
      "language 0x0407\n"
      "string 17 \"x\"\n");
  ASSERT_EQ(compiled.resources.size(), 3u);
  const Resource& block1 = find(compiled, 6, 1, 0);
  ASSERT_EQ(block1.wide.size(), 16u + 3u);
  EXPECT_EQ(block1.wide[0], 0);
  EXPECT_EQ(std::wstring(block1.wide.begin() + 1, block1.wide.begin() + 5), L"\3abc");
  const Resource& block2 = find(compiled, 6, 2, 0);
  EXPECT_EQ(block2.wide[1], 2);  // id 17: the second string of block 2
  EXPECT_EQ(block2.wide[2], L'\u00e9');
  EXPECT_EQ(block2.wide[3], L'\t');
  EXPECT_EQ(find(compiled, 6, 2, 0x0407).wide[2], L'x');
}

TEST(ResourceCompilerTest, MessagesGoIntoOneTablePerLanguageWithRunsOfIds) {
  const CompiledResources compiled = compile_text(
      "message 0x10 \"a\"\n"
      "message 0x11 \"bc\"\n"
      "message 0xFFFFFFFF \"z\"\n");
  const std::vector<unsigned char>& bytes = find(compiled, 11, 1, 0).bytes;
  // The runs' headers; the entries they point at are read back by the message loading tests.
  ASSERT_EQ(read_at<std::uint32_t>(bytes, 0), 2u);
  EXPECT_EQ(read_at<std::uint32_t>(bytes, 4), 0x10u);
  EXPECT_EQ(read_at<std::uint32_t>(bytes, 8), 0x11u);
  EXPECT_EQ(read_at<std::uint32_t>(bytes, 16), 0xFFFFFFFFu);
  EXPECT_EQ(read_at<std::uint32_t>(bytes, 20), 0xFFFFFFFFu);
  EXPECT_EQ(read_at<std::uint16_t>(bytes, read_at<std::uint32_t>(bytes, 12) + 2), 1);  // wide text
}

TEST(ResourceCompilerTest, BinaryItemsFromBytesTextAndFiles) {
  const std::filesystem::path data = data_directory() / "n7rc data";
  std::ofstream(data, std::ios::binary) << "\x01\x02";
  const CompiledResources compiled = compile_text(
      "resource RCDATA 5 bytes 00 ff 7A\n"
      "resource \"custom\" name_a text \"\\u00e9\"\n"
      "resource 300 \"Two Words\" file \"n7rc data\"\n"
      "resource RCDATA caf\xC3\xA9 bytes 01\n"
      "language 7\n"
      "resource RCDATA 5 bytes 01\n");  // the same item in another language is no duplicate
  ASSERT_EQ(compiled.resources.size(), 5u);
  EXPECT_THAT(find(compiled, 10, 5, 0).bytes, ElementsAre(0x00, 0xFF, 0x7A));
  EXPECT_EQ(*compiled.resources[1].type.name, L"CUSTOM");
  EXPECT_EQ(*compiled.resources[1].name.name, L"NAME_A");
  EXPECT_THAT(compiled.resources[1].bytes, ElementsAre(0xC3, 0xA9));
  EXPECT_EQ(compiled.resources[2].type.id, 300);
  EXPECT_EQ(*compiled.resources[2].name.name, L"TWO WORDS");
  EXPECT_THAT(compiled.resources[2].bytes, ElementsAre(1, 2));
  EXPECT_THAT(compiled.inputs, ElementsAre(data));
  EXPECT_EQ(*compiled.resources[3].name.name, L"CAF\u00e9");  // a bare word is UTF-8 too
}

// A table without entries points at none; the generated source of a non-empty table is compiled
// and read back by every program and test with resources.
TEST(ResourceCompilerTest, GeneratedSourceOfAnEmptyTableHasNoEntries) {
  EXPECT_THAT(generate_source(compile_text(""), "empty"), HasSubstr("0u, nullptr}"));
}

struct Malformed {
  const char* description;
  int line;
  const char* message;
};

TEST(ResourceCompilerTest, MalformedDescriptionsNameTheLineAndTheMistake) {
  const Malformed cases[] = {
      {"\nfrobnicate 1", 2, "unknown statement 'frobnicate'"},
      {"string 1 \"open", 1, "unterminated text"},
      {"string 65536 \"x\"", 1, "ID must be a number from 0 to 65535, not '65536'"},
      {"string 0x \"x\"", 1, "not '0x'"},
      {"string 1 x", 1, "expected a quoted text, not 'x'"},
      {"string 1", 1, "expected: string ID"},
      {"\"orphan\"", 1, "must start with a keyword"},
      {"language 7\n  \"x\"", 1, "expected: language LANGID"},
      {"string 1 \"a\"\n\nstring 1 \"b\"", 3, "already defined in this language on line 1"},
      {"string 1 \"\\q\"", 1, "unknown escape '\\q'"},
      {"string 1 \"\\x4\"", 1, "invalid hexadecimal digit"},
      {"string 1 \"\\uD800\"", 1, "escape names no Unicode character"},
      {"string 1 \"\\x00\"", 1, "may not hold the character 0"},
      {"string 1 \"\xC3\"", 1, "invalid UTF-8"},
      {"language 0x10000", 1, "LANGID must be a number"},
      {"language", 1, "expected: language LANGID"},
      {"message 1 \"a\"\nmessage 1 \"b\"", 2, "message 1 is already defined"},
      {"resource WIDGET 1 bytes 00", 1, "unknown resource type 'WIDGET'"},
      {"resource STRING 1 bytes 00", 1, "written with 'string' and 'message'"},
      {"resource RCDATA 0 bytes 00", 1, "name must be a number from 1 to 65535"},
      {"resource RCDATA \"\" bytes 00", 1, "may not be empty"},
      {"resource RCDATA 1 bytes 0g", 1, "pairs of hexadecimal digits, not '0g'"},
      {"resource RCDATA 1 blob 00", 1, "expected file, bytes or text, not 'blob'"},
      {"resource RCDATA 1 file \"no such file\"", 1, "cannot read"},
      {"resource RCDATA 1 file .", 1, "cannot read"},
      {"resource RCDATA caf\xC3 bytes 00", 1, "invalid UTF-8"},
      {"resource RCDATA 1 bytes 00\nresource rcdata 1 bytes 01", 2, "already defined"},
      {"resource RCDATA N bytes 00\nresource 10 n bytes 01", 2, "already defined"},
  };
  for (const Malformed& test : cases) {
    SCOPED_TRACE(test.description);
    try {
      compile_text(test.description);
      ADD_FAILURE() << "compiled";
    } catch (const CompileError& e) {
      EXPECT_EQ(e.line(), test.line);
      EXPECT_THAT(e.what(), HasSubstr(test.message));
    }
  }
}

}  // namespace
}  // namespace n7rc
