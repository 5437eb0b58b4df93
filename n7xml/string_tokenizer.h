// The XML tokenizer: cuts a UTF-8 document held in memory into a flat sequence of tokens (markup
// boundaries, names, attribute values, character data, references) and checks the lexical rules
// of XML as it goes.
//
// It builds no tree and keeps no element stack: matching end tags, duplicate attributes and the
// shape of the document are the reader's business (n7xml/reader.h). A lexical error is not
// thrown: it ends the token stream with an Error token and is kept as the tokenizer's error, with
// a message that begins "[line L, pos P]: " (", uri <U>" after the position when the document has
// a URI). Token values are slices of the document, never copies, so the document must outlive
// the tokenizer and the values taken from it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "n7utility/core/error.h"
#include "n7utility/platform/base/Export.h"

namespace n7xml {

// The kinds of token, with the values they have always had: tools print them by name and
// external checks compare the names.
enum class TokenKind : std::uint32_t {
  DocumentStart = 1,
  DocumentEnd = 2,
  Error = 3,
  XmldeclStart = 4,  // value "xml"
  XmldeclEnd = 5,
  DoctypeStart = 6,
  DoctypeEnd = 7,
  CommentStart = 8,
  CommentEnd = 9,
  PIStart = 10,  // value: the target
  PIEnd = 11,
  CDATAStart = 12,
  CDATAEnd = 13,
  StartTagStart = 14,     // value: the element name
  StartTagEnd = 15,       // ">"
  StartTagEndEmpty = 16,  // "/>"; keeps the value of the token before it
  EndTag = 17,            // value: the element name
  AttributeStart = 18,    // value: the attribute name
  AttributeEnd = 19,
  CharData = 20,   // value: a run of text, line ends normalised to LF
  EntityRef = 21,  // value: the entity name
  CharRef = 22,    // value: the digits between "#" and ";", with the "x" of a hexadecimal one
};

// The kind's name ("StartTagStart"), or "Unknown" for a value outside the enumeration.
N7_EXPORT const char* token_kind_name(TokenKind kind) noexcept;

// The interface of a tokenizer, as the reader sees it.
class N7_EXPORT IXmlTokenizer {
 public:
  virtual ~IXmlTokenizer() = default;

  // Reads the next token and returns its kind. Errors come back as TokenKind::Error, except
  // that an invalid UTF-8 sequence may throw the core services' invalid-UTF-8 error.
  virtual TokenKind next_token() = 0;
  virtual TokenKind last_token() const noexcept = 0;
  // The current token's text; empty for tokens that carry none.
  virtual std::string_view token_value() const noexcept = 0;
  virtual int line() const noexcept = 0;
  // Bytes from the start of the current line to the next byte to read.
  virtual std::int64_t line_position() const noexcept = 0;
  // The error of the last failure; null while there was none.
  virtual const n7core::RefCountPtr<const n7core::ErrorInfo>& error() const noexcept = 0;
  // An error with this tokenizer's "[line L, pos P...]: " prefix before `text`, placed at the
  // current position; for the layers above, which report their own errors in the same form.
  virtual n7core::RefCountPtr<const n7core::ErrorInfo> make_error(
      const n7core::ErrorCode& code, std::string_view text,
      const n7core::SourceLocation& location) const = 0;
};

namespace errors {
N7_EXPORT extern const n7core::ErrorCode
    tokenizer_syntax_error;  // error.n7xml.tokenizer.syntaxError
}  // namespace errors

namespace impl {

struct TextStops;

// The tokenizer over a byte range. The state machine lives here; XmlStringTokenizer only
// constructs it.
class N7_EXPORT XmlStringTokenizerBase : public IXmlTokenizer {
 public:
  // Hands out the next token read ahead, or reads on.
  TokenKind next_token() final {
    if (next_ == queued_) return read_on();
    return hand_out();
  }
  TokenKind last_token() const noexcept final { return last_token_; }
  std::string_view token_value() const noexcept final { return value_; }
  int line() const noexcept final {
    count_lines();
    return line_;
  }
  std::int64_t line_position() const noexcept final {
    count_lines();
    return pos_ - line_start_;
  }
  const n7core::RefCountPtr<const n7core::ErrorInfo>& error() const noexcept final {
    return error_;
  }
  n7core::RefCountPtr<const n7core::ErrorInfo> make_error(
      const n7core::ErrorCode& code, std::string_view text,
      const n7core::SourceLocation& location) const final;

 protected:
  XmlStringTokenizerBase(const char* data, std::size_t length,
                         std::shared_ptr<const std::string> uri, int first_line) noexcept;

 private:
  using Byte = unsigned char;
  struct Section;
  struct ReadAhead;

  // A token read ahead, with the position after it.
  struct QueuedToken {
    const Byte* value;
    std::size_t length;
    const Byte* end;
    TokenKind kind;
  };
  static constexpr std::size_t kQueueSize = 64;

  enum class State : std::uint32_t {
    kBeforeDocument = 1,
    kAtEnd = 2,
    kAfterError = 3,
    kXmlDecl = 4,
    kXmlDeclAttrValue = 5,
    kDoctype = 6,
    kComment = 7,
    kPi = 8,
    kCdata = 9,
    kStartTag = 10,
    kAttrValue = 11,
    kContent = 12,
  };

  TokenKind hand_out() noexcept {
    const QueuedToken& token = queue_[next_++];
    value_ = std::string_view(reinterpret_cast<const char*>(token.value), token.length);
    pos_ = token.end;
    last_token_ = token.kind;
    return token.kind;
  }
  TokenKind read_on();
  void read_ahead() noexcept;
  TokenKind dispatch();
  TokenKind parse_content();
  TokenKind parse_markup();
  TokenKind parse_declaration();
  TokenKind parse_pi_start();
  TokenKind parse_end_tag(const Byte* open);
  TokenKind parse_start_tag_name(const Byte* open);
  TokenKind parse_starttag();
  TokenKind parse_attrname();
  TokenKind parse_attrvalue();
  TokenKind parse_reference();
  TokenKind parse_char_reference();
  TokenKind parse_xmldecl();
  TokenKind parse_doctype();
  TokenKind parse_comment();
  TokenKind parse_pi();
  TokenKind parse_cdata();
  TokenKind parse_section(const Section& section);
  bool skip_to_terminator(const Section& section);
  bool consume_name();
  bool consume_utf8_char();
  bool skip_text(const TextStops& stops);
  bool skip_whitespace() noexcept;
  bool take_carriage_return() noexcept;
  bool invalid_utf8();
  // Lines are counted only when asked for, over the bytes read since the last count.
  void count_lines() const noexcept {
    if (counted_ != pos_) count_lines_to_position();
  }
  void count_lines_to_position() const noexcept;

  bool looking_at(std::string_view text) const noexcept;
  TokenKind token(TokenKind kind, std::string_view value = {}) noexcept;
  TokenKind token(TokenKind kind, const Byte* begin, const Byte* end) noexcept;
  TokenKind line_feed() noexcept;
  TokenKind fail(const char* function, int source_line, std::string_view text,
                 const Byte* at = nullptr);
  n7core::RefCountPtr<const n7core::ErrorInfo> compose_error(const n7core::ErrorCode& code,
                                                             std::string_view text,
                                                             const n7core::SourceLocation& location,
                                                             const Byte* at) const;

  const Byte* data_;
  const Byte* end_;
  const Byte* pos_;
  State state_ = State::kBeforeDocument;
  TokenKind last_token_ = TokenKind::DocumentStart;
  std::string_view value_;
  char quote_ = '"';
  std::int32_t doctype_depth_ = 0;
  std::shared_ptr<const std::string> uri_;
  mutable std::int32_t line_;  // the line and its start at `counted_`
  mutable const Byte* line_start_;
  n7core::RefCountPtr<const n7core::ErrorInfo> error_;
  mutable const Byte* counted_;
  // The tokens read ahead: those in [next_, queued_) are still to be handed out. The state and
  // the quote above are those after the last of them; the position and the value those of the
  // token last handed out.
  std::uint32_t next_ = 0;
  std::uint32_t queued_ = 0;
  std::array<QueuedToken, kQueueSize> queue_;
};

}  // namespace impl

// The tokenizer over a document in memory.
class N7_EXPORT XmlStringTokenizer final : public impl::XmlStringTokenizerBase {
 public:
  // `data` (UTF-8, `length` bytes) is neither copied nor checked here, and must outlive the
  // tokenizer. `uri` names the document in error messages; null for none. Lines are numbered
  // from `first_line`.
  XmlStringTokenizer(const char* data, std::size_t length,
                     std::shared_ptr<const std::string> uri = nullptr, int first_line = 1) noexcept
      : XmlStringTokenizerBase(data, length, std::move(uri), first_line) {}
  explicit XmlStringTokenizer(std::string_view data,
                              std::shared_ptr<const std::string> uri = nullptr,
                              int first_line = 1) noexcept
      : XmlStringTokenizerBase(data.data(), data.size(), std::move(uri), first_line) {}
};

}  // namespace n7xml
