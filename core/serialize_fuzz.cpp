// libFuzzer target: the text serializer's reader over arbitrary text, read as a generic tree (the
// next unread character says which read comes next). Malformed text must end in
// n7core::ErrorException. A text that reads completely must survive the writer: writing the
// tree, with and without the ASCII-only and escaped-space options, and reading it back gives the
// same tree, and writing that again gives the same text.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "n7utility/core/error.h"
#include "n7utility/core/serialize.h"
#include "n7utility/platform/base/Check_fuzz.h"

namespace {

using n7fuzz::check;

struct Node;
using Nodes = std::vector<Node>;
struct Marker {
  Nodes items;
  bool operator==(const Marker&) const = default;
};
struct Sequence {
  Nodes items;
  bool operator==(const Sequence&) const = default;
};
struct Node {
  std::variant<std::string, std::wstring, int, Marker, Sequence> value;
  bool operator==(const Node&) const = default;
};

// Thrown for a text nested deeper than the target reads.
struct TooDeep {};

// Deep enough for any sensible record, shallow enough that recursion cannot exhaust the stack.
constexpr int kMaxDepth = 64;

// The next character after blanks, or 0 at the end of the text.
char NextChar(std::string_view text, std::size_t offset) {
  const std::size_t next = text.find_first_not_of(" \t\r\n", offset);
  return next == std::string_view::npos ? '\0' : text[next];
}

Node ReadNode(n7serialize::TextReader& reader, std::string_view text, int depth);

// The items of a marker up to its ")".
Nodes ReadMarkerItems(n7serialize::TextReader& reader, std::string_view text, int depth) {
  Nodes items;
  while (NextChar(text, reader.offset()) != ')') items.push_back(ReadNode(reader, text, depth));
  reader.read_marker_end();
  return items;
}

Node ReadNode(n7serialize::TextReader& reader, std::string_view text, int depth) {
  if (depth > kMaxDepth) throw TooDeep{};
  switch (NextChar(text, reader.offset())) {
    case '(':
      reader.read_marker_start();
      return {Marker{ReadMarkerItems(reader, text, depth + 1)}};
    case '[': {
      reader.read_sequence_start();
      Sequence sequence;
      while (reader.read_sequence_next())
        sequence.items.push_back(ReadNode(reader, text, depth + 1));
      return {sequence};
    }
    case '"':
      return {reader.read_string()};
    case 'L':
      return {reader.read_wstring()};
    default:
      return {reader.read_int()};
  }
}

void WriteNode(n7serialize::TextWriter& writer, const Node& node) {
  if (const auto* marker = std::get_if<Marker>(&node.value)) {
    writer.write_marker_start();
    for (const Node& item : marker->items) WriteNode(writer, item);
    writer.write_marker_end();
  } else if (const auto* sequence = std::get_if<Sequence>(&node.value)) {
    writer.write_sequence_start();
    for (std::size_t i = 0; i < sequence->items.size(); ++i) {
      if (i != 0) writer.write_sequence_separator();
      WriteNode(writer, sequence->items[i]);
    }
    writer.write_sequence_end();
  } else {
    std::visit(
        [&writer](const auto& value) {
          if constexpr (!std::is_same_v<std::decay_t<decltype(value)>, Marker> &&
                        !std::is_same_v<std::decay_t<decltype(value)>, Sequence>) {
            writer << value;
          }
        },
        node.value);
  }
}

// The text's one top-level item, or nothing when more follows it; throws for malformed text.
std::optional<Node> ReadAll(std::string_view text) {
  n7serialize::TextReader reader(text);
  Node node = ReadNode(reader, text, 0);
  if (!reader.at_end()) return std::nullopt;
  return node;
}

std::string WriteAll(const Node& node, n7serialize::TextWriter::Options options) {
  std::ostringstream out;
  n7serialize::TextWriter writer(out, options);
  WriteNode(writer, node);
  writer.close();
  return out.str();
}

void CheckRoundTrip(const Node& node, n7serialize::TextWriter::Options options) {
  const std::string written = WriteAll(node, options);
  std::optional<Node> reread;
  try {
    reread = ReadAll(written);
  } catch (const n7core::ErrorException&) {
    n7fuzz::fail("the reader refused the writer's text");
  }
  check(reread == node, "written tree reads back differently");
  check(WriteAll(*reread, options) == written, "writing the tree twice gives different texts");
}

// Seeds: a record shaped like a stored blob, strings that need escapes, nested sequences.
void WriteSeeds(const std::filesystem::path& directory) {
  using Options = n7serialize::TextWriter::Options;
  const auto seed = [&directory](const char* name, Options options, auto&& write) {
    std::ostringstream out;
    n7serialize::TextWriter writer(out, options);
    write(writer);
    writer.close();
    n7fuzz::write_seed(directory, name, out.str());
  };
  seed("record", Options().ascii_only(true), [](n7serialize::TextWriter& w) {
    w.write_marker_start();
    w.write_sequence_start();
    w.write_marker_start();
    w << "salt"
      << "AAECAwQFBgcICQoLDA0ODw==";
    w.write_marker_end();
    w.write_sequence_separator();
    w.write_marker_start();
    w << "iterations" << 1024;
    w.write_marker_end();
    w.write_sequence_end();
    w.write_marker_end();
  });
  seed("escapes", Options().ascii_only(true), [](n7serialize::TextWriter& w) {
    w.write_marker_start();
    w << "tab\tquote\"back\\slash\x7f" << L"caf\u00e9 \U0001F600" << -2147483647 - 1;
    w.write_marker_end();
  });
  seed("raw_utf8", Options().escape_spaces(true), [](n7serialize::TextWriter& w) {
    w.write_marker_start();
    w << "gr\xc3\xbc\xc3\x9f e" << L"\u65e5\u672c";
    w.write_marker_end();
  });
  seed("nested", Options(), [](n7serialize::TextWriter& w) {
    w.write_sequence_start();
    w.write_sequence_start();
    w << 1;
    w.write_sequence_separator();
    w << 2;
    w.write_sequence_end();
    w.write_sequence_separator();
    w.write_marker_start();
    w.write_marker_end();
    w.write_sequence_end();
  });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  n7fuzz::write_seeds_if_asked(WriteSeeds);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An exact-size heap copy: any read past the end is a heap overflow AddressSanitizer reports.
  const std::vector<char> copy(data, data + size);
  std::optional<Node> node;
  try {
    node = ReadAll(std::string_view(copy.data(), copy.size()));
  } catch (const n7core::ErrorException&) {
    return 0;  // malformed: the expected outcome for most inputs
  } catch (const TooDeep&) {
    return 0;
  }
  if (!node) return 0;
  using Options = n7serialize::TextWriter::Options;
  CheckRoundTrip(*node, Options());
  CheckRoundTrip(*node, Options().ascii_only(true));
  CheckRoundTrip(*node, Options().ascii_only(true).escape_spaces(true));
  return 0;
}
