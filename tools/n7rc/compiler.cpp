// The resource description language.
//
// A description is UTF-8 text, one statement per line. A '#' at the start of a word begins a
// comment that runs to the end of the line; blank lines are ignored.
//
//   language LANGID                   LANGID (a number, usually hexadecimal: 0x0407) is the
//                                     language of the items that follow; 0 (neutral) until set
//   string ID TEXT                    string ID (0 to 65535) of the string table
//   message ID TEXT                   message ID (0 to 0xFFFFFFFF) of the message table
//   resource TYPE NAME file PATH      an item holding the bytes of the file PATH (relative paths
//                                     start at the description's directory)
//   resource TYPE NAME bytes HH ...   an item holding the bytes given in hexadecimal pairs
//   resource TYPE NAME text TEXT      an item holding the UTF-8 bytes of TEXT
//
// TEXT is one or more double-quoted literals, joined; a line that starts with a literal continues
// the text of the statement before it, and a mistake is reported on the statement's first line.
// The escapes \\ \" \n \r \t \xHH \uHHHH and
// \UHHHHHHHH give the character with that code. A text may not hold the character 0.
// Numbers are decimal or hexadecimal with 0x.
// TYPE is a standard type name (CURSOR BITMAP ICON MENU DIALOG FONTDIR FONT ACCELERATOR RCDATA
// GROUP_CURSOR GROUP_ICON VERSION DLGINCLUDE PLUGPLAY VXD ANICURSOR ANIICON HTML MANIFEST), a
// number from 1 to 65535 or a quoted name. NAME is a number from 1 to 65535, or a word or a quoted
// text that is the item's name. Names are compared without regard to ASCII case and stored in
// upper case. String and message tables are written with `string` and `message` only.
//
// Example:
//
//   language 0x0409
//   string 1 "Ready." " Waiting."                  # joined: "Ready. Waiting."
//   string 2 "A long text, "
//            "continued on the next line."
//   message 0x40000001 "Service %1 started.\r\n"
//   resource RCDATA SETTINGS file "defaults.bin"
//   resource "TEMPLATE" 7 text "<a>\u00e9</a>"
#include "compiler.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <utility>

#include "n7utility/platform/base/TextCodec.h"

namespace n7rc {
namespace {

constexpr std::uint16_t kStringType = 6;
constexpr std::uint16_t kMessageTableType = 11;
constexpr std::uint16_t kMessageUnicodeFlag = 1;
constexpr std::uint32_t kStringsPerBlock = 16;
// A message entry's length is a WORD of bytes: header, text and terminator.
constexpr std::size_t kMaxMessageLength = (0xFFFF - 4) / sizeof(wchar_t) - 1;

struct NamedType {
  std::string_view name;
  std::uint16_t id;
};
constexpr NamedType kTypes[] = {
    {"CURSOR", 1},      {"BITMAP", 2},     {"ICON", 3},          {"MENU", 4},
    {"DIALOG", 5},      {"STRING", 6},     {"FONTDIR", 7},       {"FONT", 8},
    {"ACCELERATOR", 9}, {"RCDATA", 10},    {"MESSAGETABLE", 11}, {"GROUP_CURSOR", 12},
    {"GROUP_ICON", 14}, {"VERSION", 16},   {"DLGINCLUDE", 17},   {"PLUGPLAY", 19},
    {"VXD", 20},        {"ANICURSOR", 21}, {"ANIICON", 22},      {"HTML", 23},
    {"MANIFEST", 24},
};

// A word of a statement: a bare word, or a quoted literal with its escapes decoded.
struct Token {
  std::string word;     // as written (bare words only)
  std::u32string text;  // the characters: a bare word's UTF-8 decoded, a literal's escapes too
  bool quoted = false;
};

// ---- Lexing ----

// Decodes one UTF-8 sequence of `line` at `pos`, moving past it.
char32_t decode_utf8(std::string_view line, std::size_t& pos, int line_no) {
  const n7platform::codec::Decoded sequence = n7platform::codec::DecodeUtf8(line.substr(pos));
  if (sequence.length == 0) throw CompileError(line_no, "invalid UTF-8");
  pos += sequence.length;
  return sequence.code_point;
}

char32_t parse_hex_escape(std::string_view line, std::size_t& pos, std::size_t digits,
                          int line_no) {
  if (pos + digits > line.size()) throw CompileError(line_no, "incomplete escape in text");
  char32_t code = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    const char c = line[pos + i];
    const int value = std::isxdigit(static_cast<unsigned char>(c)) == 0 ? -1
                      : c <= '9'                                        ? c - '0'
                                                                        : (c | 0x20) - 'a' + 10;
    if (value < 0) throw CompileError(line_no, "invalid hexadecimal digit in escape");
    code = code * 16 + static_cast<char32_t>(value);
  }
  if (!n7platform::codec::IsScalarValue(code)) {
    throw CompileError(line_no, "escape names no Unicode character");
  }
  pos += digits;
  return code;
}

// Decodes the escape after a backslash at `pos`.
char32_t parse_escape(std::string_view line, std::size_t& pos, int line_no) {
  if (pos >= line.size()) throw CompileError(line_no, "unterminated text");
  switch (line[pos++]) {
    case '\\':
      return U'\\';
    case '"':
      return U'"';
    case 'n':
      return U'\n';
    case 'r':
      return U'\r';
    case 't':
      return U'\t';
    case 'x':
      return parse_hex_escape(line, pos, 2, line_no);
    case 'u':
      return parse_hex_escape(line, pos, 4, line_no);
    case 'U':
      return parse_hex_escape(line, pos, 8, line_no);
    default:
      throw CompileError(line_no, "unknown escape '\\" + std::string(1, line[pos - 1]) + "'");
  }
}

// A character of a word or text, which may be anything but 0: a name or text would end there.
char32_t nonzero(char32_t code, int line_no) {
  if (code == 0) throw CompileError(line_no, "a text may not hold the character 0");
  return code;
}

// Reads the quoted literal that starts at `pos` (the opening quote).
Token read_literal(std::string_view line, std::size_t& pos, int line_no) {
  Token token;
  token.quoted = true;
  ++pos;
  while (true) {
    if (pos >= line.size()) throw CompileError(line_no, "unterminated text");
    const char c = line[pos];
    if (c == '"') break;
    const char32_t code =
        c == '\\' ? parse_escape(line, ++pos, line_no) : decode_utf8(line, pos, line_no);
    token.text += nonzero(code, line_no);
  }
  ++pos;
  return token;
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// Reads the bare word that starts at `pos`, up to a blank or a quote.
Token read_bare_word(std::string_view line, std::size_t& pos, int line_no) {
  Token token;
  const std::size_t start = pos;
  while (pos < line.size() && !is_blank(line[pos]) && line[pos] != '"') {
    token.text += nonzero(decode_utf8(line, pos, line_no), line_no);
  }
  token.word = line.substr(start, pos - start);
  return token;
}

std::vector<Token> tokenize(std::string_view line, int line_no) {
  std::vector<Token> tokens;
  std::size_t pos = 0;
  while (true) {
    while (pos < line.size() && is_blank(line[pos])) ++pos;
    if (pos >= line.size() || line[pos] == '#') return tokens;
    if (line[pos] == '"') {
      tokens.push_back(read_literal(line, pos, line_no));
      continue;
    }
    tokens.push_back(read_bare_word(line, pos, line_no));
  }
}

// ---- Values ----

std::string describe(const Token& token) {
  if (!token.quoted) return "'" + token.word + "'";
  return "a quoted text";
}

std::uint32_t parse_number(const Token& token, std::uint32_t min, std::uint32_t max,
                           std::string_view what, int line_no) {
  const std::string& word = token.word;
  const bool hex = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
  const std::string_view digits = std::string_view{word}.substr(hex ? 2 : 0);
  std::uint64_t value = 0;
  bool valid = !token.quoted && !digits.empty() && digits.size() <= 10;
  for (const char c : digits) {
    if (!valid) break;
    const auto uc = static_cast<unsigned char>(c);
    if (hex ? std::isxdigit(uc) == 0 : std::isdigit(uc) == 0) {
      valid = false;
    } else {
      const unsigned digit =
          c <= '9' ? static_cast<unsigned>(c - '0') : static_cast<unsigned>((c | 0x20) - 'a' + 10);
      value = value * (hex ? 16 : 10) + digit;
    }
  }
  if (!valid || value < min || value > max) {
    std::ostringstream message;
    message << what << " must be a number from " << min << " to " << max << ", not "
            << describe(token);
    throw CompileError(line_no, message.str());
  }
  return static_cast<std::uint32_t>(value);
}

std::wstring upper_name(std::u32string_view text) {
  std::wstring name;
  for (const char32_t c : text) {
    name += static_cast<wchar_t>(c >= U'a' && c <= U'z' ? c - (U'a' - U'A') : c);
  }
  return name;
}

// An ASCII text of this compiler's own tables as characters.
std::u32string widen_ascii(std::string_view word) { return {word.begin(), word.end()}; }

bool starts_with_digit(const Token& token) {
  return !token.quoted && !token.word.empty() &&
         std::isdigit(static_cast<unsigned char>(token.word[0])) != 0;
}

ResourceId parse_type(const Token& token, int line_no) {
  if (token.quoted) {
    if (token.text.empty()) throw CompileError(line_no, "a type name may not be empty");
    return ResourceId{0, upper_name(token.text)};
  }
  if (starts_with_digit(token)) {
    return ResourceId{static_cast<std::uint16_t>(parse_number(token, 1, 0xFFFF, "type", line_no)),
                      std::nullopt};
  }
  const std::wstring upper = upper_name(token.text);
  for (const NamedType& type : kTypes) {
    if (upper == upper_name(widen_ascii(type.name))) return ResourceId{type.id, std::nullopt};
  }
  throw CompileError(line_no, "unknown resource type '" + token.word +
                                  "' (use a standard type name, a number or a quoted name)");
}

ResourceId parse_name(const Token& token, int line_no) {
  if (starts_with_digit(token)) {
    return ResourceId{static_cast<std::uint16_t>(parse_number(token, 1, 0xFFFF, "name", line_no)),
                      std::nullopt};
  }
  const std::u32string& text = token.text;
  if (text.empty()) throw CompileError(line_no, "a resource name may not be empty");
  return ResourceId{0, upper_name(text)};
}

// The statement's literals from `first` on, joined; at least one, and nothing else.
std::u32string joined_text(const std::vector<Token>& tokens, std::size_t first, int line_no) {
  if (first >= tokens.size()) throw CompileError(line_no, "a quoted text is missing");
  std::u32string text;
  for (std::size_t i = first; i < tokens.size(); ++i) {
    if (!tokens[i].quoted) {
      throw CompileError(line_no, "expected a quoted text, not " + describe(tokens[i]));
    }
    text += tokens[i].text;
  }
  return text;
}

std::string to_utf8(std::u32string_view text) {
  std::string out;
  for (const char32_t c : text)
    n7platform::codec::EncodeUtf8(c, [&out](char byte) { out += byte; });
  return out;
}

template <typename T>
void append_raw(std::vector<unsigned char>& out, T value) {
  // Grown, then copied into: g++ 12 at -O3 misreads an insert of a small array into a vector
  // that was just allocated as an overflow.
  const std::size_t at = out.size();
  out.resize(at + sizeof value);
  std::memcpy(out.data() + at, &value, sizeof value);
}

// ---- Statements ----

class Compiler {
 public:
  explicit Compiler(std::filesystem::path base_dir) : base_dir_(std::move(base_dir)) {}

  void statement(const std::vector<Token>& tokens, int line_no) {
    const Token& keyword = tokens[0];
    if (keyword.quoted) {
      throw CompileError(line_no, "a statement must start with a keyword, not a quoted text");
    }
    if (keyword.word == "language") return language_statement(tokens, line_no);
    if (keyword.word == "string") return string_statement(tokens, line_no);
    if (keyword.word == "message") return message_statement(tokens, line_no);
    if (keyword.word == "resource") return resource_statement(tokens, line_no);
    throw CompileError(line_no, "unknown statement '" + keyword.word +
                                    "' (expected language, string, message or resource)");
  }

  CompiledResources finish() && {
    CompiledResources compiled;
    for (auto& [item, line] : items_) compiled.resources.push_back(std::move(item));
    add_string_blocks(compiled.resources);
    add_message_tables(compiled.resources);
    compiled.inputs = std::move(inputs_);
    return compiled;
  }

 private:
  void language_statement(const std::vector<Token>& tokens, int line_no) {
    if (tokens.size() != 2) throw CompileError(line_no, "expected: language LANGID");
    language_ = static_cast<std::uint16_t>(parse_number(tokens[1], 0, 0xFFFF, "LANGID", line_no));
  }

  void string_statement(const std::vector<Token>& tokens, int line_no) {
    if (tokens.size() < 3) throw CompileError(line_no, "expected: string ID \"TEXT\"");
    const auto id = static_cast<std::uint16_t>(parse_number(tokens[1], 0, 0xFFFF, "ID", line_no));
    const auto [at, added] =
        strings_[language_].try_emplace(id, line_no, joined_text(tokens, 2, line_no));
    if (!added) duplicate("string " + std::to_string(id), at->second.first, line_no);
  }

  void message_statement(const std::vector<Token>& tokens, int line_no) {
    if (tokens.size() < 3) throw CompileError(line_no, "expected: message ID \"TEXT\"");
    const std::uint32_t id = parse_number(tokens[1], 0, 0xFFFFFFFF, "ID", line_no);
    std::u32string text = joined_text(tokens, 2, line_no);
    if (text.size() > kMaxMessageLength) {
      throw CompileError(line_no, "a message may hold at most " +
                                      std::to_string(kMaxMessageLength) + " characters");
    }
    const auto [at, added] = messages_[language_].try_emplace(id, line_no, std::move(text));
    if (!added) duplicate("message " + std::to_string(id), at->second.first, line_no);
  }

  void resource_statement(const std::vector<Token>& tokens, int line_no) {
    if (tokens.size() < 5) {
      throw CompileError(line_no, "expected: resource TYPE NAME file|bytes|text ...");
    }
    Resource item;
    item.type = parse_type(tokens[1], line_no);
    if (!item.type.name && (item.type.id == kStringType || item.type.id == kMessageTableType)) {
      throw CompileError(line_no,
                         "string and message tables are written with 'string' and "
                         "'message' statements");
    }
    item.name = parse_name(tokens[2], line_no);
    item.language = language_;
    item.bytes = contents(tokens, line_no);
    for (const auto& [other, other_line] : items_) {
      if (other.type == item.type && other.name == item.name && other.language == item.language) {
        duplicate("this resource", other_line, line_no);
      }
    }
    items_.emplace_back(std::move(item), line_no);
  }

  std::vector<unsigned char> contents(const std::vector<Token>& tokens, int line_no) {
    const Token& source = tokens[3];
    if (!source.quoted && source.word == "text") {
      const std::string utf8 = to_utf8(joined_text(tokens, 4, line_no));
      return {utf8.begin(), utf8.end()};
    }
    if (!source.quoted && source.word == "bytes") return hex_bytes(tokens, line_no);
    if (!source.quoted && source.word == "file") {
      if (tokens.size() != 5) throw CompileError(line_no, "expected: file PATH");
      return file_bytes(tokens[4], line_no);
    }
    throw CompileError(line_no, "expected file, bytes or text, not " + describe(source));
  }

  static std::vector<unsigned char> hex_bytes(const std::vector<Token>& tokens, int line_no) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 4; i < tokens.size(); ++i) {
      const Token& token = tokens[i];
      if (token.quoted || token.word.size() != 2 ||
          std::isxdigit(static_cast<unsigned char>(token.word[0])) == 0 ||
          std::isxdigit(static_cast<unsigned char>(token.word[1])) == 0) {
        throw CompileError(line_no,
                           "bytes are pairs of hexadecimal digits, not " + describe(token));
      }
      bytes.push_back(static_cast<unsigned char>(std::stoul(token.word, nullptr, 16)));
    }
    return bytes;
  }

  std::vector<unsigned char> file_bytes(const Token& token, int line_no) {
    const std::filesystem::path path = base_dir_ / std::filesystem::path(to_utf8(token.text));
    // Only a regular file has bytes to read: a stream over a directory fails inside the read.
    std::error_code status;
    std::ifstream file;
    if (std::filesystem::is_regular_file(path, status)) file.open(path, std::ios::binary);
    std::vector<unsigned char> bytes;
    if (file.is_open()) bytes.assign(std::istreambuf_iterator<char>(file), {});
    if (!file.is_open() || (!file && !file.eof())) {
      throw CompileError(line_no, "cannot read '" + path.string() + "'");
    }
    inputs_.push_back(path);
    return bytes;
  }

  [[noreturn]] static void duplicate(const std::string& what, int first_line, int line_no) {
    throw CompileError(line_no, what + " is already defined in this language on line " +
                                    std::to_string(first_line));
  }

  // One item per block of 16 strings that holds any, in each language.
  void add_string_blocks(std::vector<Resource>& out) const {
    for (const auto& [language, strings] : strings_) {
      for (auto it = strings.begin(); it != strings.end();) {
        const std::uint32_t block = it->first / kStringsPerBlock;
        Resource item;
        item.type.id = kStringType;
        item.name.id = static_cast<std::uint16_t>(block + 1);
        item.language = language;
        item.is_wide = true;
        for (std::uint32_t id = block * kStringsPerBlock; id < (block + 1) * kStringsPerBlock;
             ++id) {
          const bool present = it != strings.end() && it->first == id;
          const std::u32string_view text = present ? it->second.second : std::u32string_view();
          item.wide.push_back(static_cast<wchar_t>(text.size()));
          for (const char32_t c : text) item.wide.push_back(static_cast<wchar_t>(c));
          if (present) ++it;
        }
        out.push_back(std::move(item));
      }
    }
  }

  // One message table (name 1) per language, its consecutive ids in one block each.
  void add_message_tables(std::vector<Resource>& out) const {
    for (const auto& [language, messages] : messages_) {
      std::vector<std::pair<std::uint32_t, std::uint32_t>> runs;  // low, high
      for (const auto& [id, entry] : messages) {
        if (runs.empty() || runs.back().second + 1 != id) {
          runs.emplace_back(id, id);
        } else {
          runs.back().second = id;
        }
      }
      std::vector<unsigned char> entries;
      std::vector<std::uint32_t> offsets;
      const std::size_t header = 4 + 12 * runs.size();
      auto next = messages.begin();
      for (const auto& [low, high] : runs) {
        offsets.push_back(static_cast<std::uint32_t>(header + entries.size()));
        for (std::uint64_t id = low; id <= high; ++id, ++next) {
          append_message(entries, next->second.second);
        }
      }
      Resource item;
      item.type.id = kMessageTableType;
      item.name.id = 1;
      item.language = language;
      append_raw(item.bytes, static_cast<std::uint32_t>(runs.size()));
      for (std::size_t i = 0; i < runs.size(); ++i) {
        append_raw(item.bytes, runs[i].first);
        append_raw(item.bytes, runs[i].second);
        append_raw(item.bytes, offsets[i]);
      }
      item.bytes.insert(item.bytes.end(), entries.begin(), entries.end());
      out.push_back(std::move(item));
    }
  }

  static void append_message(std::vector<unsigned char>& out, std::u32string_view text) {
    const std::size_t length = 4 + (text.size() + 1) * sizeof(wchar_t);
    append_raw(out, static_cast<std::uint16_t>(length));
    append_raw(out, kMessageUnicodeFlag);
    for (const char32_t c : text) append_raw(out, static_cast<wchar_t>(c));
    append_raw(out, L'\0');
  }

  std::filesystem::path base_dir_;
  std::uint16_t language_ = 0;
  // language -> id -> (line, text)
  std::map<std::uint16_t, std::map<std::uint32_t, std::pair<int, std::u32string>>> strings_;
  std::map<std::uint16_t, std::map<std::uint32_t, std::pair<int, std::u32string>>> messages_;
  std::vector<std::pair<Resource, int>> items_;  // with their lines
  std::vector<std::filesystem::path> inputs_;
};

// ---- Output ----

// Writes `values` as the body of a braced initializer, 12 to a line.
template <typename T>
void write_values(std::ostream& out, const std::vector<T>& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    out << (i % 12 == 0 ? "\n    " : " ") << static_cast<unsigned long>(values[i]) << 'u' << ',';
  }
  out << "};\n";
}

std::vector<wchar_t> terminated(const std::wstring& name) {
  std::vector<wchar_t> values(name.begin(), name.end());
  values.push_back(L'\0');
  return values;
}

// Writes the array of a name, returning its identifier, or "nullptr" for a number.
std::string write_name(std::ostream& out, const ResourceId& id, std::string label) {
  if (!id.name) return "nullptr";
  out << "const wchar_t " << label << "[] = {";
  write_values(out, terminated(*id.name));
  return label;
}

}  // namespace

CompiledResources compile(std::string_view description, const std::filesystem::path& base_dir) {
  Compiler compiler(base_dir);
  std::vector<Token> statement;  // the statement being read, and the line it started on
  int statement_line = 0;
  int line_no = 0;
  while (!description.empty()) {
    ++line_no;
    const std::size_t end = description.find('\n');
    const std::string_view line = description.substr(0, end);
    description.remove_prefix(end == std::string_view::npos ? description.size() : end + 1);
    std::vector<Token> tokens = tokenize(line, line_no);
    if (tokens.empty()) continue;
    if (tokens[0].quoted && !statement.empty()) {  // continues the statement's text
      statement.insert(statement.end(), tokens.begin(), tokens.end());
      continue;
    }
    if (!statement.empty()) compiler.statement(statement, statement_line);
    statement = std::move(tokens);
    statement_line = line_no;
  }
  if (!statement.empty()) compiler.statement(statement, statement_line);
  return std::move(compiler).finish();
}

std::string generate_source(const CompiledResources& compiled, std::string_view origin) {
  std::ostringstream out;
  out << "// The resource table compiled by n7rc from " << origin << "; do not edit.\n"
      << "#include \"n7utility/platform/system/ResourceTable.h\"\n\nnamespace {\n\n";
  std::ostringstream entries;
  const std::vector<Resource>& resources = compiled.resources;
  for (std::size_t i = 0; i < resources.size(); ++i) {
    const Resource& item = resources[i];
    const std::string index = std::to_string(i);
    const std::string type_name = write_name(out, item.type, "kType" + index);
    const std::string name = write_name(out, item.name, "kName" + index);
    std::string data = "nullptr";
    std::size_t size = 0;
    if (item.is_wide) {
      data = "kData" + index;
      size = item.wide.size() * sizeof(wchar_t);
      out << "const wchar_t " << data << "[] = {";
      write_values(out, item.wide);
    } else if (!item.bytes.empty()) {
      data = "kData" + index;
      size = item.bytes.size();
      out << "alignas(8) const unsigned char " << data << "[] = {";
      write_values(out, item.bytes);
    }
    entries << "    {" << type_name << ", " << name << ", " << data << ", " << size << "u, "
            << item.type.id << ", " << item.name.id << ", " << item.language << "},\n";
  }
  const std::string table = resources.empty() ? "nullptr" : "kEntries";
  if (!resources.empty()) {
    out << "\nconst N7ResourceEntry kEntries[] = {\n" << entries.str() << "};\n";
  }
  out << "\nconst N7ResourceTable kTable = {N7_RESOURCE_TABLE_FORMAT, " << resources.size() << "u, "
      << table << "};\n\n}  // namespace\n\n"
      << "extern \"C\" __attribute__((visibility(\"default\"))) const N7ResourceTable* "
         "n7_module_resources() {\n  return &kTable;\n}\n";
  return out.str();
}

}  // namespace n7rc
