// The XML tokenizer's throughput against two established parsers on the same bytes, and against
// a memchr scan of the buffer, the bound for anything that looks at every byte.
//
// - Tokenizer: every token of the document, values included, to DocumentEnd.
// - Expat: XML_Parse over the whole buffer with no handlers set (it still checks well-formedness,
//   which the tokenizer leaves to the reader above it).
// - Pugixml: load_buffer_inplace with parse_minimal, on a fresh copy each time (the copy is not
//   timed).
// - Memchr: one memchr for a byte the document does not hold.
// Each runs over two documents of about 20 MB of generated records:
// - records: elements, attributes, text with entity and character references, comments, CDATA
//   sections and some non-ASCII text and names;
// - markup: elements dense with attributes, character references (decimal and hexadecimal) and
//   named entities in attribute values and text, and CDATA sections; many short tokens.
// The tokenizer's figure is printed as a ratio to pugixml's on each document.

#include <benchmark/benchmark.h>
#include <expat.h>

#include <cstdio>
#include <cstring>
#include <pugixml.hpp>
#include <string>
#include <utility>
#include <vector>

#include "bench/ratio_reporter.h"
#include "n7utility/n7xml/string_tokenizer.h"

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

std::string make_markup_record(int i) {
  const std::string n = std::to_string(i);
  return "<entry key=\"k" + n + "\" type='account' ref=\"&#x41;&#66;" + n +
         "\" flags=\"a&amp;b&lt;c\" owner=\"&quot;" + n +
         "&quot;\" x=\"1\" y='2' z=\"&#x3C;&#62;\">"
         "<v a=\"&apos;\" b=\"" +
         n + "\"/><![CDATA[raw <data> & ]] more " + n +
         "]]>&#x263A;&#169;&amp;&gt;caf&#xE9;"
         "<w c=\"&#9;\" d=\"&lt;&gt;\" e='&amp;'><![CDATA[" +
         n + "]]></w></entry>\n";
}

std::string make_document(std::string (*make)(int)) {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<catalog>\n";
  for (int i = 0; out.size() < kDocumentSize; ++i) out += make(i);
  return out + "</catalog>\n";
}

const std::string& records() {
  static const std::string text = make_document(make_record);
  return text;
}

const std::string& markup() {
  static const std::string text = make_document(make_markup_record);
  return text;
}

using Document = const std::string& (*)();

void set_bytes(benchmark::State& state, const std::string& text) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(text.size()));
}

void BM_Xml_Tokenizer(benchmark::State& state, Document document) {
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
  set_bytes(state, text);
}

void BM_Xml_Expat(benchmark::State& state, Document document) {
  const std::string& text = document();
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreate("UTF-8");
    const XML_Status status = XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1);
    XML_ParserFree(parser);
    if (status != XML_STATUS_OK) state.SkipWithError("expat failed");
  }
  set_bytes(state, text);
}

void BM_Xml_Pugixml(benchmark::State& state, Document document) {
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
  set_bytes(state, text);
}

void BM_Xml_Memchr(benchmark::State& state, Document document) {
  const std::string& text = document();
  for (auto _ : state) {
    // A scan of every byte (the text holds no NUL), not a string operation.
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result)
    benchmark::DoNotOptimize(std::memchr(text.data(), '\0', text.size()));
  }
  set_bytes(state, text);
}

// Each benchmark over each document, named "BM_Xml_Tokenizer/records" and so on.
void RegisterBenchmarks() {
  using Benchmark = void (*)(benchmark::State&, Document);
  const std::pair<const char*, Benchmark> benchmarks[] = {{"BM_Xml_Tokenizer", BM_Xml_Tokenizer},
                                                          {"BM_Xml_Expat", BM_Xml_Expat},
                                                          {"BM_Xml_Pugixml", BM_Xml_Pugixml},
                                                          {"BM_Xml_Memchr", BM_Xml_Memchr}};
  const std::pair<const char*, Document> documents[] = {{"records", records}, {"markup", markup}};
  for (const auto& [document_name, document] : documents) {
    for (const auto& [name, run] : benchmarks) {
      benchmark::RegisterBenchmark((std::string(name) + "/" + document_name).c_str(), run, document)
          ->Unit(benchmark::kMillisecond);
    }
  }
}

// Both runs go over the same bytes, so the ratio of their times is that of their throughputs.
void PrintRatios(const n7bench::RatioTable& table) {
  std::printf("\nThroughput, tokenizer / pugixml (above 1: tokenizer faster)\n");
  for (const char* document : {"records", "markup"}) {
    const auto ours = table.times.find(std::string("BM_Xml_Tokenizer/") + document);
    const auto peer = table.times.find(std::string("BM_Xml_Pugixml/") + document);
    if (ours == table.times.end() || peer == table.times.end()) continue;
    std::printf("%-8s %6.2f\n", document, peer->second / ours->second);
  }
}

}  // namespace

int main(int argc, char** argv) {
  RegisterBenchmarks();
  return n7bench::RunWithRatios(argc, argv, PrintRatios);
}
