#include "n7utility/core/serialize.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "n7utility/core/global_locale_test.h"

namespace n7serialize {
namespace {

TextWriter::Options ascii(bool escapeSpaces = false) {
  return TextWriter::Options().ascii_only(true).escape_spaces(escapeSpaces);
}

// The record shape the password blob uses: a marker around a sequence of (name value) markers.
std::string write_record(const std::string& name, const std::wstring& wide, int number,
                         TextWriter::Options options) {
  std::ostringstream out;
  TextWriter writer(out, options);
  writer.write_marker_start();
  writer.write_sequence_start();
  writer.write_marker_start();
  writer << name << wide;
  writer.write_marker_end();
  writer.write_sequence_separator();
  writer.write_marker_start();
  writer << "n" << number;
  writer.write_marker_end();
  writer.write_sequence_end();
  writer.write_marker_end();
  writer.close();
  return out.str();
}

// The reads below stop at the first item out of place, as a caller of the reader would.
void require(bool ok) {
  if (!ok) throw std::runtime_error("unexpected item");
}

struct Record {
  std::string name;
  std::wstring wide;
  int number = 0;
};

Record read_record(std::string_view text) {
  Record record;
  TextReader reader(text);
  reader.read_marker_start();
  reader.read_sequence_start();
  require(reader.read_sequence_next());
  reader.read_marker_start();
  record.name = reader.read_string();
  record.wide = reader.read_wstring();
  reader.read_marker_end();
  require(reader.read_sequence_next());
  reader.read_marker_start();
  require(reader.read_string() == "n");
  record.number = reader.read_int();
  reader.read_marker_end();
  require(!reader.read_sequence_next());
  reader.read_marker_end();
  require(reader.at_end());
  return record;
}

std::string error_code(std::string_view text) {
  try {
    read_record(text);
  } catch (const n7core::ErrorException& e) {
    return e.info().code().name();
  }
  return "none";
}

TEST(TextWriter, WritesTheDocumentedSyntaxAndAsciiOnlyEscapesEverythingElse) {
  EXPECT_EQ(write_record("salt", L"ab", 1024, ascii()), R"(([("salt" L"ab"),("n" 1024)]))");
  EXPECT_EQ(write_record("a b\"\\", L"\t\n\r", -7, ascii(true)),
            R"(([("a\x20b\"\\" L"\t\n\r"),("n" -7)]))");
  const std::string utf8 = "\xC3\xA9\x7F\x01";
  const std::wstring wide = L"\u00E9\u20AC\U0001F600";
  const std::string escaped = write_record(utf8, wide, 0, ascii());
  EXPECT_EQ(escaped, R"(([("\xC3\xA9\x7F\x01" L"\u00E9\u20AC\U0001F600"),("n" 0)]))");
  for (const char c : escaped) EXPECT_LT(static_cast<unsigned char>(c), 0x7F);

  const std::string raw = write_record(utf8, wide, 0, TextWriter::Options());
  EXPECT_NE(raw.find("\xC3\xA9\\x7F"), std::string::npos);
  EXPECT_NE(raw.find("L\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\""), std::string::npos);
}

TEST(TextWriter, RefusesBrokenNesting) {
  std::ostringstream out;
  TextWriter writer(out, ascii());
  EXPECT_THROW(writer.write_marker_end(), std::logic_error);
  EXPECT_THROW(writer.write_sequence_separator(), std::logic_error);
  writer.write_sequence_start();
  writer << 1;
  EXPECT_THROW(writer << 2, std::logic_error);  // elements need separators
  EXPECT_THROW(writer.write_marker_end(), std::logic_error);
  EXPECT_THROW(writer.close(), std::logic_error);
  writer.write_sequence_end();
  writer.close();
  EXPECT_THROW(writer.write_marker_start(), std::logic_error);
  EXPECT_EQ(out.str(), "[1]");
}

TEST(TextRoundTrip, KeepsEveryValue) {
  std::string allBytes;
  for (int b = 0; b < 256; ++b) allBytes.push_back(static_cast<char>(b));
  // Lone surrogates and values beyond Unicode can only travel escaped; ascii_only or not.
  const std::wstring wide = {L'\0', L' ',   L'"',   L'\\',    0x7F,
                             0xE9,  0xD800, 0xFFFF, 0x10FFFF, static_cast<wchar_t>(0x7FFFFFFF)};
  for (const bool asciiOnly : {true, false}) {
    for (const bool spaces : {true, false}) {
      const auto options = TextWriter::Options().ascii_only(asciiOnly).escape_spaces(spaces);
      for (const int number : {0, 1, -1, 2147483647, -2147483647 - 1}) {
        const Record r = read_record(write_record(allBytes, wide, number, options));
        EXPECT_EQ(r.name, allBytes);
        EXPECT_EQ(r.wide, wide);
        EXPECT_EQ(r.number, number);
      }
    }
  }
}

// Numbers keep their plain digits when the host installs a locale that groups them, also on a
// stream made afterwards (which takes that locale).
TEST(TextRoundTrip, NumbersIgnoreTheHostsGlobalLocale) {
  N7_TEST_UNDER_LOCALE("de_DE.UTF-8");
  for (const int number : {1024, -2147483647 - 1, 1234567}) {
    const std::string text = write_record("n", L"", number, ascii());
    EXPECT_NE(text.find("(\"n\" " + std::to_string(number) + ")"), std::string::npos) << text;
    EXPECT_EQ(read_record(text).number, number);
  }
}

TEST(TextReader, ConvertsBetweenNarrowAndWide) {
  TextReader reader(R"(("\xC3\xA9" L"\u00E9" "\xFF"))");
  reader.read_marker_start();
  EXPECT_EQ(reader.read_wstring(), L"\u00E9");
  EXPECT_EQ(reader.read_string(), "\xC3\xA9");
  EXPECT_THROW(reader.read_wstring(), std::exception);  // not UTF-8
}

TEST(TextReader, AcceptsBlanksAndSkipsUnreadValues) {
  TextReader reader(" ( [ ( \"x\" L\"\\u0041\" ( [1 , (\"z\")] ) -5 ) ,\r\n(\"y\") ] ) \t");
  reader.read_marker_start();
  reader.read_sequence_start();
  ASSERT_TRUE(reader.read_sequence_next());
  reader.read_marker_start();
  EXPECT_EQ(reader.read_string(), "x");
  reader.read_marker_end();
  ASSERT_TRUE(reader.read_sequence_next());
  // An unfinished sequence, its next element unread, is skipped along with its marker.
  reader.read_marker_end();
  EXPECT_TRUE(reader.at_end());
}

TEST(TextReader, RefusesHostileText) {
  const std::string good = write_record("salt", L"\u20AC", 12, ascii());
  EXPECT_EQ(error_code(good), "none");
  for (std::size_t cut = 0; cut < good.size(); ++cut) {
    EXPECT_EQ(error_code(good.substr(0, cut)), "error.n7serialize.truncated") << cut;
  }
  const char* const malformed[] = {
      "x",
      R"(([("a" L"b")("n" 1)]))",
      R"(([("a" L"b"),("n" 2147483648)]))",
      R"(([("a" L"b"),("n" -2147483649)]))",
      R"(([("a" L"b"),("n" -)]))",
      R"(([("a" L"b"),("n" 1]))",
      R"(([("a\q" L"b"),("n" 1)]))",
      R"(([("a\u0041" L"b"),("n" 1)]))",
      R"(([("a\xG0" L"b"),("n" 1)]))",
      "(([(\"a\x01\" L\"b\"),(\"n\" 1)]))",
      R"(([(L"a" L"b" , 1),("n" 1)]))",
  };
  for (const char* text : malformed) {
    EXPECT_EQ(error_code(text), "error.n7serialize.malformed") << text;
  }
  // A number that runs to the end of the text inside an item may have been cut short.
  TextReader number("(12");
  number.read_marker_start();
  EXPECT_THROW(number.read_int(), n7core::ErrorException);
  // A separator promises an element, even to a reader that skips it.
  TextReader trailing("[1,]");
  trailing.read_sequence_start();
  ASSERT_TRUE(trailing.read_sequence_next());
  EXPECT_EQ(trailing.read_int(), 1);
  ASSERT_TRUE(trailing.read_sequence_next());
  EXPECT_THROW(trailing.read_sequence_next(), n7core::ErrorException);
  // A lone surrogate cannot be handed out as UTF-8.
  EXPECT_THROW(read_record(R"(([(L"\uD800" L""),("n" 1)]))"), std::exception);
}

TEST(TextReader, SkipsDeepNestingWithoutRecursion) {
  const std::string deep = "(" + std::string(200000, '[') + std::string(200000, ']') + ")";
  TextReader reader(deep);
  reader.read_marker_start();
  reader.read_marker_end();
  EXPECT_TRUE(reader.at_end());
  const std::string prefix = deep.substr(0, 100001);
  TextReader cut(prefix);
  cut.read_marker_start();
  EXPECT_THROW(cut.read_marker_end(), n7core::ErrorException);
}

}  // namespace
}  // namespace n7serialize
