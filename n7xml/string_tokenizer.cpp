#include "n7utility/n7xml/string_tokenizer.h"

#include <array>
#include <cstring>
#include <utility>

#include "n7utility/core/utf8.h"
#include "n7utility/n7xml/char_classes_internal.h"
#include "n7utility/n7xml/text_scan_internal.h"

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

  static const Section kComment;
  static const Section kPi;
  static const Section kCdata;
};

const XmlStringTokenizerBase::Section XmlStringTokenizerBase::Section::kComment = {
    {'-', '-', '-'},          "-->",           TokenKind::CommentEnd,
    "End of data in comment", "parse_comment", "Sequence '--' is invalid in comment"};
const XmlStringTokenizerBase::Section XmlStringTokenizerBase::Section::kPi = {
    {'?', '?', '?'}, "?>", TokenKind::PIEnd, "End of data in processing instruction", "parse_pi"};
const XmlStringTokenizerBase::Section XmlStringTokenizerBase::Section::kCdata = {
    {']', ']', ']'}, "]]>", TokenKind::CDATAEnd, "End of data in CDATA", "parse_cdata"};

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

TokenKind XmlStringTokenizerBase::read_on() {
  next_ = 0;
  queued_ = 0;
  if (!g_plain_scanners) read_ahead();
  if (queued_ != 0) return hand_out();
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

// ---- Reading ahead ----
//
// The common tokens of content, start tags, comments and CDATA sections are read ahead into the
// queue by one loop that keeps its position in a register. It takes only what is well formed: at
// an error, at the end of the data, or at a token it leaves to the state machine (the XML
// declaration, DOCTYPE, processing instructions) it stops before the token, and the state
// machine below reads it, failing or throwing as it would have.

struct XmlStringTokenizerBase::ReadAhead {
  const Byte* p;  // the position after the last token queued, or after a CR dropped
  const Byte* end;
  const QueuedToken* first;
  QueuedToken* out;
  State state;
  char quote;
  std::string_view handed_out;  // the value of the token handed out before the queue

  // At most the tokens one step queues.
  static constexpr std::size_t kMostPerStep = 2;

  bool step() noexcept {
    switch (state) {
      case State::kContent:
        return content();
      case State::kStartTag:
        return start_tag();
      case State::kAttrValue:
        return attribute_value();
      case State::kComment:
        return section(Section::kComment);
      case State::kCdata:
        return section(Section::kCdata);
      default:
        return false;
    }
  }

  void queue(TokenKind kind, const Byte* value, const Byte* value_end, const Byte* after) noexcept {
    *out++ = {value, static_cast<std::size_t>(value_end - value), after, kind};
    p = after;
  }
  void queue(TokenKind kind, const Byte* after) noexcept { queue(kind, nullptr, nullptr, after); }

  // The end of the text from `at`, or null at an invalid UTF-8 sequence.
  const Byte* text(const Byte* at, const TextStops& stops) const noexcept {
    for (;;) {
      at = scan_text(at, end, stops);
      if (at == end || *at < 0x80) return at;
      const auto sequence = decode_multibyte(at, end);
      if (sequence.length == 0) return nullptr;
      at += sequence.length;
    }
  }

  // The end of the name at `at`, or null when there is none.
  const Byte* name(const Byte* at) const noexcept {
    const NameScan scan = read_name(at, end);
    return scan.valid && scan.end != at ? scan.end : nullptr;
  }

  const Byte* whitespace(const Byte* at) const noexcept {
    while (at != end && is_whitespace(*at)) ++at;
    return at;
  }

  bool looking_at(const Byte* at, std::string_view text) const noexcept {
    return static_cast<std::size_t>(end - at) >= text.size() &&
           std::memcmp(at, text.data(), text.size()) == 0;
  }

  bool content() noexcept {
    const Byte* stop = text(p, kContentStops);
    if (stop == nullptr) return false;
    if (stop != p) queue(TokenKind::CharData, p, stop, stop);
    if (stop == end) return false;
    if (*stop == '<') return markup(stop + 1);
    if (*stop == '&') return reference(stop + 1);
    return carriage_return(stop);
  }

  // A CR in text: dropped before an LF or at the end of the data, else a line feed of its own.
  bool carriage_return(const Byte* cr) noexcept {
    const Byte* after = cr + 1;
    if (after == end || *after == '\n') {
      p = after;
    } else {
      const auto* lf = reinterpret_cast<const Byte*>(kLineFeed.data());
      queue(TokenKind::CharData, lf, lf + 1, after);
    }
    return true;
  }

  // After "<".
  bool markup(const Byte* at) noexcept {
    if (at == end) return false;
    if (*at == '/') return end_tag(at + 1);
    if (*at == '!') return declaration(at + 1);
    const Byte* name_end = name(at);
    if (name_end == nullptr || name_end == end) return false;
    if (*name_end != '>' && *name_end != '/' && !is_whitespace(*name_end)) return false;
    queue(TokenKind::StartTagStart, at, name_end, name_end);
    state = State::kStartTag;
    return true;
  }

  // After "</".
  bool end_tag(const Byte* at) noexcept {
    const Byte* name_end = name(at);
    if (name_end == nullptr) return false;
    const Byte* close = whitespace(name_end);
    if (close == end || *close != '>') return false;
    queue(TokenKind::EndTag, at, name_end, close + 1);
    return true;
  }

  // After "<!": a comment or a CDATA section.
  bool declaration(const Byte* at) noexcept {
    constexpr std::string_view kComment = "--";
    constexpr std::string_view kCdata = "[CDATA[";
    if (looking_at(at, kComment)) {
      queue(TokenKind::CommentStart, at + kComment.size());
      state = State::kComment;
      return true;
    }
    if (looking_at(at, kCdata)) {
      queue(TokenKind::CDATAStart, at + kCdata.size());
      state = State::kCdata;
      return true;
    }
    return false;
  }

  // After "&".
  bool reference(const Byte* at) noexcept {
    if (at != end && *at == '#') return char_reference(at + 1);
    const Byte* name_end = name(at);
    if (name_end == nullptr || name_end == end || *name_end != ';') return false;
    queue(TokenKind::EntityRef, at, name_end, name_end + 1);
    return true;
  }

  // After "&#".
  bool char_reference(const Byte* value) noexcept {
    if (value == end) return false;
    const bool hex = *value == 'x';
    const Byte* digits = hex ? value + 1 : value;
    const Byte* stop = digits;
    while (stop != end && (hex ? is_hex_digit(*stop) : is_decimal_digit(*stop))) ++stop;
    const auto count = stop - digits;
    if (count < 1 || count > (hex ? 8 : 10) || stop == end || *stop != ';') return false;
    queue(TokenKind::CharRef, value, stop, stop + 1);
    return true;
  }

  bool start_tag() noexcept {
    const Byte* at = whitespace(p);
    if (at == end) return false;
    if (*at == '>') {
      queue(TokenKind::StartTagEnd, at + 1);
      state = State::kContent;
      return true;
    }
    if (*at == '/') {
      if (at + 1 == end || at[1] != '>') return false;
      // The token keeps the value of the one before it.
      const std::string_view before =
          out == first
              ? handed_out
              : std::string_view(reinterpret_cast<const char*>(out[-1].value), out[-1].length);
      const auto* value = reinterpret_cast<const Byte*>(before.data());
      queue(TokenKind::StartTagEndEmpty, value, value + before.size(), at + 2);
      state = State::kContent;
      return true;
    }
    return at != p && attribute_name(at);
  }

  bool attribute_name(const Byte* at) noexcept {
    const Byte* name_end = name(at);
    if (name_end == nullptr) return false;
    const Byte* equals = whitespace(name_end);
    if (equals == end || *equals != '=') return false;
    const Byte* open = whitespace(equals + 1);
    if (open == end || (*open != '"' && *open != '\'')) return false;
    quote = static_cast<char>(*open);
    queue(TokenKind::AttributeStart, at, name_end, open + 1);
    state = State::kAttrValue;
    return true;
  }

  bool attribute_value() noexcept {
    const Byte* stop = text(p, quote == '"' ? kDoubleQuotedStops : kSingleQuotedStops);
    if (stop == nullptr || stop == end || *stop == '<') return false;
    if (stop != p) queue(TokenKind::CharData, p, stop, stop);
    if (*stop == '&') return reference(stop + 1);
    if (*stop == '\r') return carriage_return(stop);
    queue(TokenKind::AttributeEnd, stop + 1);
    state = State::kStartTag;
    return true;
  }

  bool section(const Section& section) noexcept {
    const Byte* stop = p;
    for (;;) {
      stop = text(stop, section.stop);
      if (stop == nullptr || stop == end) return false;
      if (*stop == '\r' || looking_at(stop, section.terminator)) break;
      if (section.doubled != nullptr && stop + 1 != end && stop[1] == *stop) return false;
      ++stop;
    }
    if (stop != p) queue(TokenKind::CharData, p, stop, stop);
    if (*stop == '\r') return carriage_return(stop);
    queue(section.end_token, stop + section.terminator.size());
    state = State::kContent;
    return true;
  }
};

void XmlStringTokenizerBase::read_ahead() noexcept {
  ReadAhead ahead{pos_, end_, queue_.data(), queue_.data(), state_, quote_, value_};
  const QueuedToken* last_step = queue_.data() + kQueueSize - ReadAhead::kMostPerStep;
  while (ahead.out <= last_step && ahead.step()) {
  }
  queued_ = static_cast<std::uint32_t>(ahead.out - queue_.data());
  state_ = ahead.state;
  quote_ = ahead.quote;
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
  const TextStops& stops = quote_ == '"' ? kDoubleQuotedStops : kSingleQuotedStops;
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

TokenKind XmlStringTokenizerBase::parse_comment() { return parse_section(Section::kComment); }

TokenKind XmlStringTokenizerBase::parse_pi() { return parse_section(Section::kPi); }

TokenKind XmlStringTokenizerBase::parse_cdata() { return parse_section(Section::kCdata); }

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
bool XmlStringTokenizerBase::skip_text(const TextStops& stops) {
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
  const NameScan name = read_name(pos_, end_);
  pos_ = name.end;
  return name.valid || invalid_utf8();
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
