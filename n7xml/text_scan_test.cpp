#include "n7utility/n7xml/text_scan_internal.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "n7utility/n7xml/scan_check_internal.h"

namespace n7xml::impl {
namespace {

const Byte* bytes(const std::string& text) { return reinterpret_cast<const Byte*>(text.data()); }

// Every byte value at every offset of the first blocks, and every end of the data: the vector
// scanners stop where the plain ones do, and count the same line ends, with line breaks of
// every kind falling on block boundaries and on the end of the data.
TEST(TextScanTest, VectorScannersAgreeWithPlainOnes) {
  constexpr TextStops kStops = {'&', '<', '"'};
  for (int value = 0; value < 256; ++value) {
    for (std::size_t offset = 0; offset < 40; ++offset) {
      std::string text(48, 'a');
      for (std::size_t lf = 3; lf < text.size(); lf += 7) text[lf] = '\n';
      for (std::size_t cr = 15; cr < text.size(); cr += 16) text[cr] = '\r';
      text[offset] = static_cast<char>(value);
      for (std::size_t size = 0; size <= text.size(); size += 5) {
        const Byte* begin = bytes(text);
        const Byte* end = begin + size;
        ASSERT_EQ(scan_text_sse2(begin, end, kStops), scan_text_plain(begin, end, kStops))
            << value << " " << offset << " " << size;
        for (const Byte* stop = begin; stop <= end; stop += 3) {
          const LineEnds plain = count_line_ends_plain(begin, stop, end);
          const LineEnds vector = count_line_ends_sse2(begin, stop, end);
          ASSERT_EQ(vector.count, plain.count) << value << " " << offset << " " << size;
          ASSERT_EQ(vector.after_last, plain.after_last) << value << " " << offset << " " << size;
        }
      }
    }
  }
}

// The in-line decoder takes exactly the sequences the core decoder takes, with the same values.
TEST(TextScanTest, MultibyteDecoderAgreesWithCoreDecoder) {
  for (int lead = 0x80; lead < 0x100; ++lead) {
    for (int second = 0; second < 0x100; ++second) {
      for (int third = 0; third < 0x100; ++third) {
        const std::string text = {static_cast<char>(lead), static_cast<char>(second),
                                  static_cast<char>(third), '\x80'};
        for (std::size_t size = 1; size <= text.size(); size += 2) {
          const auto ours = decode_multibyte(bytes(text), bytes(text) + size);
          const std::string_view prefix = std::string_view{text}.substr(0, size);
          const auto core = n7core::decode_utf8(prefix);
          ASSERT_EQ(ours.length, core.length) << lead << " " << second << " " << third;
          ASSERT_EQ(ours.code_point, core.code_point) << lead << " " << second << " " << third;
        }
      }
    }
  }
}

// Documents made of random pieces of XML, well-formed or not.
std::string random_document(std::mt19937& random) {
  static const char* const kPieces[] = {"<a>",
                                        "</a>",
                                        "<b c='d'>",
                                        "<e f=\"g&amp;h\" i='&#x41;'/>",
                                        "text ",
                                        "&lt;",
                                        "&#65;",
                                        "\n",
                                        "\r\n",
                                        "\r",
                                        "<!-- note -->",
                                        "<![CDATA[x]]y]]>",
                                        "<?pi data?>",
                                        "caf\xC3\xA9",
                                        "\xE6\x9D\xB1",
                                        "<gr\xC3\xB6\xC3\x9F\x65>",
                                        "\xF0\x9F\x98\x80",
                                        "\xED\xA0\x80",
                                        "\xC3",
                                        "&",
                                        "<",
                                        "'",
                                        "\"",
                                        " ",
                                        "-",
                                        "]]>",
                                        "<!DOCTYPE d [<!ENTITY x 'y'>]>",
                                        "<?xml version='1.0'?>",
                                        "a-b.c:d_e",
                                        "0123456789abcdef"};
  std::uniform_int_distribution<std::size_t> piece(0, std::size(kPieces) - 1);
  std::uniform_int_distribution<int> count(0, 60);
  std::string out;
  for (int i = count(random); i > 0; --i) out += kPieces[piece(random)];
  return out;
}

void expect_same_tokens(const std::string& document) {
  ASSERT_EQ(token_trace(document, false), token_trace(document, true)) << document;
  ASSERT_EQ(reader_trace(document, false), reader_trace(document, true)) << document;
}

TEST(TextScanTest, TokenStreamsOfGeneratedDocumentsAgree) {
  std::mt19937 random(20240611);
  for (int i = 0; i < 3000; ++i) expect_same_tokens(random_document(random));
}

// The seed documents of the fuzz targets, and every prefix of them (each cut-off document ends
// at another offset within a block).
TEST(TextScanTest, TokenStreamsOfSeedDocumentsAgree) {
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(N7XML_CORPUS_DIR)) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::string document((std::istreambuf_iterator<char>(in)), {});
    for (std::size_t size = 0; size <= document.size(); ++size) {
      expect_same_tokens(document.substr(0, size));
    }
    ++files;
  }
  EXPECT_GT(files, 0u);
}

}  // namespace
}  // namespace n7xml::impl
