// The XML tokenizer's throughput against two established parsers on the same bytes, and against
// a memchr scan of the buffer, the bound for anything that looks at every byte.
//
// - Tokenizer: every token of the document, values included, to DocumentEnd.
// - Expat: XML_Parse over the whole buffer with no handlers set (it still checks well-formedness,
//   which the tokenizer leaves to the reader above it).
// - Pugixml: load_buffer_inplace with parse_minimal, on a fresh copy each time (the copy is not
//   timed).
// - Memchr: one memchr for a byte the document does not hold.
// The document is about 20 MB of generated records: elements, attributes, text with entity and
// character references, comments, CDATA sections and some non-ASCII text and names.

#include <benchmark/benchmark.h>
#include <expat.h>

#include <cstring>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "n7xml/string_tokenizer.h"

namespace {

constexpr std::size_t kDocumentSize = 20u << 20;

std::string make_record(int i) {
  const std::string n = std::to_string(i);
  return "  <item id=\"" + n + "\" name='Item " + n + "' price=\"" + std::to_string(i % 997) +
         ".50\" note=\"a &amp; b\">\n"
         "    <title>Title of item " +
         n +
         " &lt;special&gt; caf\xC3\xA9 na\xC3\xAFve "
         "\xE6\x9D\xB1\xE4\xBA\xAC</title>\n"
         "    <!-- record " +
         n +
         ": generated for the benchmark -->\n"
         "    <description><![CDATA[Some <raw> text & more for " +
         n +
         "]]></description>\n"
         "    <tags><tag>alpha</tag><tag>beta</tag><gr\xC3\xB6\xC3\x9F"
         "e>" +
         n +
         "</gr\xC3\xB6\xC3\x9F"
         "e></tags>\n"
         "    <text>Lorem ipsum dolor sit amet, consectetur adipiscing elit, sed do eiusmod "
         "tempor incididunt ut labore et dolore magna aliqua &#169; &#x263A;. Ut enim ad minim "
         "veniam, quis nostrud exercitation ullamco laboris nisi ut aliquip.</text>\n"
         "  </item>\n";
}

const std::string& document() {
  static const std::string text = [] {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<catalog>\n";
    for (int i = 0; out.size() < kDocumentSize; ++i) out += make_record(i);
    return out + "</catalog>\n";
  }();
  return text;
}

void set_bytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(document().size()));
}

void BM_Xml_Tokenizer(benchmark::State& state) {
  const std::string& text = document();
  for (auto _ : state) {
    n7xml::XmlStringTokenizer tokenizer(text);
    std::size_t value_bytes = 0;
    n7xml::TokenKind kind;
    do {
      kind = tokenizer.next_token();
      value_bytes += tokenizer.token_value().size();
    } while (kind != n7xml::TokenKind::DocumentEnd && kind != n7xml::TokenKind::Error);
    if (kind != n7xml::TokenKind::DocumentEnd) state.SkipWithError("tokenizer failed");
    benchmark::DoNotOptimize(value_bytes);
  }
  set_bytes(state);
}

void BM_Xml_Expat(benchmark::State& state) {
  const std::string& text = document();
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreate("UTF-8");
    const XML_Status status = XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1);
    XML_ParserFree(parser);
    if (status != XML_STATUS_OK) state.SkipWithError("expat failed");
  }
  set_bytes(state);
}

void BM_Xml_Pugixml(benchmark::State& state) {
  const std::string& text = document();
  std::vector<char> buffer(text.size());
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(buffer.data(), text.data(), text.size());
    state.ResumeTiming();
    pugi::xml_document doc;
    const pugi::xml_parse_result result =
        doc.load_buffer_inplace(buffer.data(), buffer.size(), pugi::parse_minimal);
    if (!result) state.SkipWithError("pugixml failed");
    benchmark::DoNotOptimize(doc.first_child());
  }
  set_bytes(state);
}

void BM_Xml_Memchr(benchmark::State& state) {
  const std::string& text = document();
  for (auto _ : state) {
    // A scan of every byte (the text holds no NUL), not a string operation.
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result)
    benchmark::DoNotOptimize(std::memchr(text.data(), '\0', text.size()));
  }
  set_bytes(state);
}

BENCHMARK(BM_Xml_Tokenizer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_Expat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_Pugixml)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_Memchr)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
