#include "n7xml/string_tokenizer.h"

#include <array>
#include <cstring>
#include <utility>

#include "core/utf8.h"
#include "n7xml/char_classes_internal.h"
#include "n7xml/text_scan_internal.h"

namespace n7xml {

namespace errors {
const n7core::ErrorCode tokenizer_syntax_error("error.n7xml.tokenizer.syntaxError", true);
}  // namespace errors

const char* token_kind_name(TokenKind kind) noexcept {
  static constexpr const char* kNames[] = {
      "DocumentStart", "DocumentEnd",    "Error",        "XmldeclStart",
      "XmldeclEnd",    "DoctypeStart",   "DoctypeEnd",   "CommentStart",
      "CommentEnd",    "PIStart",        "PIEnd",        "CDATAStart",
      "CDATAEnd",      "StartTagStart",  "StartTagEnd",  "StartTagEndEmpty",
      "EndTag",        "AttributeStart", "AttributeEnd", "CharData",
      "EntityRef",     "CharRef"};
  const auto index = static_cast<std::uint32_t>(kind);
  return index >= 1 && index <= std::size(kNames) ? kNames[index - 1] : "Unknown";
}

namespace impl {
namespace {

constexpr char kSourceFile[] = "n7xml/string_tokenizer";

// What ends or interrupts each kind of text (besides CR and multi-byte characters).
constexpr TextStops kContentStops = {'&', '<', '<'};
constexpr TextStops kDoubleQuotedStops = {'&', '<', '"'};
constexpr TextStops kSingleQuotedStops = {'&', '<', '\''};
constexpr TextStops kDoctypeStops = {'<', '>', '>'};

constexpr bool is_whitespace(unsigned char c) noexcept {
  constexpr std::uint64_t kWhiteSpace = 1ull << ' ' | 1ull << '\t' | 1ull << '\r' | 1ull << '\n';
  return c <= ' ' && (kWhiteSpace >> c & 1) != 0;
}

constexpr bool is_decimal_digit(unsigned char c) noexcept { return c >= '0' && c <= '9'; }

constexpr bool is_hex_digit(unsigned char c) noexcept {
  return is_decimal_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The value of a CR that stands alone: it ends a line like an LF.
constexpr std::string_view kLineFeed = "\n";

}  // namespace

// A section of text that ends at a fixed terminator: a comment, a processing instruction or a
// CDATA section.
struct XmlStringTokenizerBase::Section {
  TextStops stop;  // the terminator's first byte
  std::string_view terminator;
  TokenKind end_token;
  const char* end_of_data;  // failure text when the data ends inside the section
  const char* function;
  // Failure text for the terminator's first byte doubled without the rest of the terminator;
  // null when that is ordinary text.
  const char* doubled = nullptr;
};

XmlStringTokenizerBase::XmlStringTokenizerBase(const char* data, std::size_t length,
                                               std::shared_ptr<const std::string> uri,
                                               int first_line) noexcept
    : data_(reinterpret_cast<const Byte*>(data)),
      end_(data_ + length),
      pos_(data_),
      uri_(std::move(uri)),
      line_(first_line),
      line_start_(data_),
      counted_(data_) {}

TokenKind XmlStringTokenizerBase::next_token() {
  last_token_ = dispatch();
  return last_token_;
}

TokenKind XmlStringTokenizerBase::dispatch() {
  switch (state_) {
    case State::kBeforeDocument:
      state_ = State::kContent;
      return token(TokenKind::DocumentStart);
    case State::kAtEnd:
      return fail("next_token", __LINE__, "Read past end");
    case State::kAfterError:
      return fail("next_token", __LINE__, "Cannot continue after error");
    case State::kXmlDecl:
      return parse_xmldecl();
    case State::kXmlDeclAttrValue:
    case State::kAttrValue:
      return parse_attrvalue();
    case State::kDoctype:
      return parse_doctype();
    case State::kComment:
      return parse_comment();
    case State::kPi:
      return parse_pi();
    case State::kCdata:
      return parse_cdata();
    case State::kStartTag:
      return parse_starttag();
    case State::kContent:
      return parse_content();
  }
  return fail("next_token", __LINE__, "Invalid parser state");
}

// ---- Content and markup ----

TokenKind XmlStringTokenizerBase::parse_content() {
  for (;;) {
    const Byte* start = pos_;
    if (!skip_text(kContentStops)) return TokenKind::Error;
    if (pos_ != start) return token(TokenKind::CharData, start, pos_);
    if (pos_ == end_) {
      state_ = State::kAtEnd;
      return token(TokenKind::DocumentEnd);
    }
    if (*pos_ == '&') return parse_reference();
    if (*pos_ == '<') return parse_markup();
    if (take_carriage_return()) return line_feed();
  }
}

TokenKind XmlStringTokenizerBase::parse_markup() {
  const Byte* open = pos_++;
  if (pos_ == end_) return fail("parse_content", __LINE__, "End of data in markup");
  switch (*pos_) {
    case '!':
      ++pos_;
      return parse_declaration();
    case '?':
      ++pos_;
      return parse_pi_start();
    case '/':
      ++pos_;
      return parse_end_tag(open);
    default:
      return parse_start_tag_name(open);
  }
}

// After "<!": a comment, a CDATA section or a DOCTYPE declaration.
TokenKind XmlStringTokenizerBase::parse_declaration() {
  static constexpr struct {
    std::string_view opening;
    State state;
    TokenKind kind;
  } kDeclarations[] = {
      {"--", State::kComment, TokenKind::CommentStart},
      {"[CDATA[", State::kCdata, TokenKind::CDATAStart},
      {"DOCTYPE", State::kDoctype, TokenKind::DoctypeStart},
  };
  for (const auto& declaration : kDeclarations) {
    if (looking_at(declaration.opening)) {
      pos_ += declaration.opening.size();
      state_ = declaration.state;
      return token(declaration.kind);
    }
  }
  return fail("parse_content", __LINE__, "Invalid character after '<!'");
}

// After "<?": the XML declaration, or a processing instruction's target.
TokenKind XmlStringTokenizerBase::parse_pi_start() {
  constexpr std::string_view kXml = "xml";
  const Byte* name = pos_;
  if (looking_at(kXml)) {
    pos_ += kXml.size();
    if (pos_ == end_) return fail("parse_content", __LINE__, "End of data in xml declaration");
    if (!is_whitespace(*pos_))
      return fail("parse_content", __LINE__, "Invalid xml declaration name");
    state_ = State::kXmlDecl;
    return token(TokenKind::XmldeclStart, name, pos_);
  }
  if (!consume_name()) return TokenKind::Error;
  if (pos_ == name) {
    return fail("parse_content", __LINE__, "Invalid processing instruction target name");
  }
  state_ = State::kPi;
  return token(TokenKind::PIStart, name, pos_);
}

// After "</".
TokenKind XmlStringTokenizerBase::parse_end_tag(const Byte* open) {
  const Byte* name = pos_;
  if (!consume_name()) return TokenKind::Error;
  const Byte* name_end = pos_;
  if (name_end == name) return fail("parse_content", __LINE__, "Invalid end tag name");
  skip_whitespace();
  if (pos_ == end_) return fail("parse_content", __LINE__, "End of data in end tag");
  if (*pos_ != '>') return fail("parse_content", __LINE__, "Invalid end tag", open);
  ++pos_;
  return token(TokenKind::EndTag, name, name_end);
}

// After "<" that begins a start tag.
TokenKind XmlStringTokenizerBase::parse_start_tag_name(const Byte* open) {
  const Byte* name = pos_;
  if (!consume_name()) return TokenKind::Error;
  if (pos_ == name) return fail("parse_content", __LINE__, "Invalid start tag name");
  if (pos_ == end_) return fail("parse_content", __LINE__, "End of data in start tag");
  if (*pos_ != '>' && *pos_ != '/' && !is_whitespace(*pos_)) {
    return fail("parse_content", __LINE__, "Invalid start tag name", open);
  }
  state_ = State::kStartTag;
  return token(TokenKind::StartTagStart, name, pos_);
}

TokenKind XmlStringTokenizerBase::parse_reference() {
  ++pos_;  // the "&"
  if (pos_ == end_) return fail("parse_reference", __LINE__, "End of data in entity reference");
  if (*pos_ == '#') return parse_char_reference();
  const Byte* name = pos_;
  if (!consume_name()) return TokenKind::Error;
  const Byte* name_end = pos_;
  if (name_end == name) return fail("parse_reference", __LINE__, "Invalid entity reference name");
  if (pos_ == end_) {
    return fail("parse_reference", __LINE__, "End of data in entity reference (expecting ';')");
  }
  if (*pos_ != ';') {
    return fail("parse_reference", __LINE__, "Invalid entity reference, expecting ';'");
  }
  ++pos_;
  return token(TokenKind::EntityRef, name, name_end);
}

// After "&": "#", then up to 10 decimal or "x" and up to 8 hexadecimal digits, then ";".
TokenKind XmlStringTokenizerBase::parse_char_reference() {
  ++pos_;  // the "#"
  if (pos_ == end_) return fail("parse_reference", __LINE__, "End of data in character reference");
  const Byte* value = pos_;
  const bool hex = *pos_ == 'x';
  if (hex) ++pos_;
  const Byte* digits = pos_;
  while (pos_ != end_ && (hex ? is_hex_digit(*pos_) : is_decimal_digit(*pos_))) ++pos_;
  const auto count = pos_ - digits;
  if (hex && (count < 1 || count > 8)) {
    return fail("parse_reference", __LINE__, "Invalid hex character reference");
  }
  if (!hex && (count < 1 || count > 10)) {
    return fail("parse_reference", __LINE__, "Invalid decimal character reference");
  }
  const Byte* value_end = pos_;
  if (pos_ == end_) {
    return fail("parse_reference", __LINE__, "End of data in entity reference (expecting ';')");
  }
  if (*pos_ != ';') {
    return fail("parse_reference", __LINE__, "Invalid entity reference, expecting ';'");
  }
  ++pos_;
  return token(TokenKind::CharRef, value, value_end);
}

// ---- Start tags, attributes and the XML declaration ----

TokenKind XmlStringTokenizerBase::parse_starttag() {
  const bool spaced = skip_whitespace();
  if (pos_ == end_) return fail("parse_starttag", __LINE__, "End of data in start tag declaration");
  if (*pos_ == '/') {
    if (!looking_at("/>")) {
      return fail("parse_starttag", __LINE__, "Invalid empty tag; expecting '/>'");
    }
    pos_ += 2;
    state_ = State::kContent;
    return TokenKind::StartTagEndEmpty;  // the value stays that of the token before
  }
  if (*pos_ == '>') {
    ++pos_;
    state_ = State::kContent;
    return token(TokenKind::StartTagEnd);
  }
  if (!spaced) {
    return fail("parse_starttag", __LINE__, "Expecting whitespace before attribute name");
  }
  return parse_attrname();
}

TokenKind XmlStringTokenizerBase::parse_xmldecl() {
  const bool spaced = skip_whitespace();
  if (pos_ == end_) return fail("parse_xmldecl", __LINE__, "End of data in XML declaration");
  if (looking_at("?>")) {
    pos_ += 2;
    state_ = State::kContent;
    return token(TokenKind::XmldeclEnd);
  }
  if (!spaced) {
    return fail("parse_xmldecl", __LINE__, "Expecting whitespace before attribute name");
  }
  return parse_attrname();
}

TokenKind XmlStringTokenizerBase::parse_attrname() {
  const Byte* name = pos_;
  if (!consume_name()) return TokenKind::Error;
  const Byte* name_end = pos_;
  if (name_end == name) return fail("parse_attrname", __LINE__, "Invalid attribute name");
  skip_whitespace();
  if (pos_ == end_) return fail("parse_attrname", __LINE__, "End of data in attribute");
  if (*pos_ != '=') return fail("parse_attrname", __LINE__, "Expecting '='");
  ++pos_;
  skip_whitespace();
  if (pos_ == end_) return fail("parse_attrname", __LINE__, "End of data in attribute");
  if (*pos_ != '"' && *pos_ != '\'') {
    return fail("parse_attrname", __LINE__, "Expecting '\"' or ''' to start attribute value");
  }
  if (state_ == State::kXmlDecl) {
    state_ = State::kXmlDeclAttrValue;
  } else if (state_ == State::kStartTag) {
    state_ = State::kAttrValue;
  } else {
    return fail("parse_attrname", __LINE__, "Invalid parse state");
  }
  quote_ = static_cast<char>(*pos_++);
  return token(TokenKind::AttributeStart, name, name_end);
}

TokenKind XmlStringTokenizerBase::parse_attrvalue() {
  const TextStops stops = quote_ == '"' ? kDoubleQuotedStops : kSingleQuotedStops;
  for (;;) {
    const Byte* start = pos_;
    if (!skip_text(stops)) return TokenKind::Error;
    if (pos_ == end_) return fail("parse_attrvalue", __LINE__, "End of data in attribute value");
    if (*pos_ == '<') {
      return fail("parse_attrvalue", __LINE__, "Invalid character ('<') in attribute value");
    }
    if (pos_ != start) return token(TokenKind::CharData, start, pos_);
    if (*pos_ == '&') return parse_reference();
    if (*pos_ != '\r') {  // the closing quote
      ++pos_;
      state_ = state_ == State::kXmlDeclAttrValue ? State::kXmlDecl : State::kStartTag;
      return token(TokenKind::AttributeEnd);
    }
    if (take_carriage_return()) return line_feed();
  }
}

// ---- Sections of text: comments, processing instructions, CDATA, DOCTYPE ----

TokenKind XmlStringTokenizerBase::parse_comment() {
  static constexpr Section kComment = {
      {'-', '-', '-'},          "-->",           TokenKind::CommentEnd,
      "End of data in comment", "parse_comment", "Sequence '--' is invalid in comment"};
  return parse_section(kComment);
}

TokenKind XmlStringTokenizerBase::parse_pi() {
  static constexpr Section kPi = {
      {'?', '?', '?'}, "?>", TokenKind::PIEnd, "End of data in processing instruction", "parse_pi"};
  return parse_section(kPi);
}

TokenKind XmlStringTokenizerBase::parse_cdata() {
  static constexpr Section kCdata = {
      {']', ']', ']'}, "]]>", TokenKind::CDATAEnd, "End of data in CDATA", "parse_cdata"};
  return parse_section(kCdata);
}

TokenKind XmlStringTokenizerBase::parse_section(const Section& section) {
  for (;;) {
    const Byte* start = pos_;
    if (!skip_to_terminator(section)) return TokenKind::Error;
    if (pos_ == end_) return fail(section.function, __LINE__, section.end_of_data);
    if (pos_ != start) return token(TokenKind::CharData, start, pos_);
    if (*pos_ != '\r') {  // the terminator
      pos_ += section.terminator.size();
      state_ = State::kContent;
      return token(section.end_token);
    }
    if (take_carriage_return()) return line_feed();
  }
}

// Moves to the section's terminator, a CR or the end of the data.
bool XmlStringTokenizerBase::skip_to_terminator(const Section& section) {
  for (;;) {
    if (!skip_text(section.stop)) return false;
    if (pos_ == end_ || *pos_ == '\r' || looking_at(section.terminator)) return true;
    if (section.doubled != nullptr && pos_ + 1 != end_ && pos_[1] == *pos_) {
      fail(section.function, __LINE__, section.doubled);
      return false;
    }
    ++pos_;
  }
}

TokenKind XmlStringTokenizerBase::parse_doctype() {
  for (;;) {
    const Byte* start = pos_;
    for (;;) {
      if (!skip_text(kDoctypeStops)) return TokenKind::Error;
      if (pos_ == end_ || *pos_ == '\r') break;
      if (*pos_ == '<') {
        ++doctype_depth_;
      } else if (doctype_depth_ > 0) {
        --doctype_depth_;
      } else {
        break;  // the ">" that closes the declaration
      }
      ++pos_;
    }
    if (pos_ == end_) return fail("parse_doctype", __LINE__, "End of data in DOCTYPE");
    if (pos_ != start) return token(TokenKind::CharData, start, pos_);
    if (*pos_ == '>') {
      ++pos_;
      state_ = State::kContent;
      return token(TokenKind::DoctypeEnd);
    }
    if (take_carriage_return()) return line_feed();
  }
}

// ---- Characters ----

// Moves over text up to the end of the data, a CR or a byte of `stops`, stepping over multi-byte
// characters. False after a failure.
bool XmlStringTokenizerBase::skip_text(TextStops stops) {
  for (;;) {
    pos_ = scan_text(pos_, end_, stops);
    if (pos_ == end_ || *pos_ < 0x80) return true;
    if (!consume_utf8_char()) return false;
  }
}

bool XmlStringTokenizerBase::consume_utf8_char() {
  if (*pos_ < 0x80) {
    ++pos_;
    return true;
  }
  const auto sequence = decode_multibyte(pos_, end_);
  if (sequence.length == 0) return invalid_utf8();
  pos_ += sequence.length;
  return true;
}

// Hands the rest of the data to the core services' UTF-8 check, which throws its own error; fails
// with a message of its own should the check find nothing wrong. Either way the tokenizer is then
// in its error state.
bool XmlStringTokenizerBase::invalid_utf8() {
  state_ = State::kAfterError;
  value_ = {};
  n7core::check_utf8(
      std::string_view(reinterpret_cast<const char*>(pos_), static_cast<std::size_t>(end_ - pos_)));
  fail("consume_utf8_char", __LINE__, "Invalid UTF-8 character in string");
  return false;
}

// Moves over a name, stopping before the first character that may not be part of it. False
// after a failure; an empty name is for the caller to report.
bool XmlStringTokenizerBase::consume_name() {
  std::uint16_t allowed = kNameStartClasses;
  const Byte* p = pos_;
  while (p != end_) {
    if (*p < 0x80) {
      if ((kAsciiClasses[*p] & allowed) == 0) break;
      p = scan_name(p + 1, end_);
    } else {
      const auto sequence = decode_multibyte(p, end_);
      if (sequence.length == 0) {
        pos_ = p;
        return invalid_utf8();
      }
      if ((char_class(sequence.code_point) & allowed) == 0) break;
      p += sequence.length;
    }
    allowed = kNameClasses;
  }
  pos_ = p;
  return true;
}

// Moves over white space; whether there was any.
bool XmlStringTokenizerBase::skip_whitespace() noexcept {
  const Byte* start = pos_;
  while (pos_ != end_ && is_whitespace(*pos_)) ++pos_;
  return pos_ != start;
}

// At a CR: moves past it. A CR before an LF is dropped (the LF ends the line), and so is a CR at
// the end of the data. Returns true for a CR that stands alone: it ends a line itself.
bool XmlStringTokenizerBase::take_carriage_return() noexcept {
  ++pos_;
  return pos_ != end_ && *pos_ != '\n';
}

bool XmlStringTokenizerBase::looking_at(std::string_view text) const noexcept {
  return static_cast<std::size_t>(end_ - pos_) >= text.size() &&
         std::memcmp(pos_, text.data(), text.size()) == 0;
}

void XmlStringTokenizerBase::count_lines_to_position() const noexcept {
  const LineEnds ends = count_line_ends(counted_, pos_, end_);
  if (ends.count != 0) {
    line_ += ends.count;
    line_start_ = ends.after_last;
  }
  counted_ = pos_;
}

// ---- Tokens and failures ----

TokenKind XmlStringTokenizerBase::token(TokenKind kind, std::string_view value) noexcept {
  value_ = value;
  return kind;
}

TokenKind XmlStringTokenizerBase::token(TokenKind kind, const Byte* begin,
                                        const Byte* end) noexcept {
  return token(kind, std::string_view(reinterpret_cast<const char*>(begin),
                                      static_cast<std::size_t>(end - begin)));
}

TokenKind XmlStringTokenizerBase::line_feed() noexcept {
  return token(TokenKind::CharData, kLineFeed);
}

TokenKind XmlStringTokenizerBase::fail(const char* function, int source_line, std::string_view text,
                                       const Byte* at) {
  error_ = compose_error(errors::tokenizer_syntax_error, text,
                         n7core::SourceLocation(function, kSourceFile, source_line), at);
  value_ = {};
  state_ = State::kAfterError;
  return TokenKind::Error;
}

n7core::RefCountPtr<const n7core::ErrorInfo> XmlStringTokenizerBase::make_error(
    const n7core::ErrorCode& code, std::string_view text,
    const n7core::SourceLocation& location) const {
  return compose_error(code, text, location, nullptr);
}

// "[line {@line}, pos {@linePos}(, uri <{@uri}>)]: text", placed at `at` (the current position
// when null, or when `at` lies on an earlier line).
n7core::RefCountPtr<const n7core::ErrorInfo> XmlStringTokenizerBase::compose_error(
    const n7core::ErrorCode& code, std::string_view text, const n7core::SourceLocation& location,
    const Byte* at) const {
  count_lines();
  const Byte* position = at == nullptr || at < line_start_ ? pos_ : at;
  n7core::ErrorComposer composer(code, location);
  composer.append("[line {@line}, pos {@linePos}")
      .param("line", line_)
      .param("linePos", position - line_start_)
      .param("sourcePos", position - data_);
  if (uri_ != nullptr) composer.append(", uri <{@uri}>").param("uri", *uri_);
  composer.append("]: ").append(text);
  return composer.info();
}

}  // namespace impl
}  // namespace n7xml
