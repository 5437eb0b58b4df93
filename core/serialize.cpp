#include "n7utility/core/serialize.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <limits>
#include <stdexcept>

#include "n7utility/core/text.h"
#include "n7utility/core/utf8.h"

namespace n7serialize {

namespace errors {
const n7core::ErrorCode malformed("error.n7serialize.malformed", true);
const n7core::ErrorCode truncated("error.n7serialize.truncated", true);
}  // namespace errors

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool is_digit(char c) { return c >= '0' && c <= '9'; }

int hex_value(char c) {
  if (is_digit(c)) return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// The letter of the escapes that stand for a character of their own, or 0.
char short_escape(std::uint32_t c) {
  switch (c) {
    case '\\':
      return '\\';
    case '"':
      return '"';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return 0;
  }
}

void put_hex(std::ostream& out, char prefix, std::uint32_t value, int digits) {
  out.put('\\').put(prefix);
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
    out.put(kHexDigits[(value >> shift) & 0xF]);
}

bool is_scalar_value(std::uint32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

}  // namespace

// ---- TextWriter ----

TextWriter::TextWriter(std::ostream& out) : out_(out) {}

TextWriter::TextWriter(std::ostream& out, Options options) : out_(out), options_(options) {}

void TextWriter::require_open() const {
  if (closed_) throw std::logic_error("n7serialize::TextWriter: write after close()");
}

void TextWriter::open(Frame frame, char c) {
  begin_value();
  frames_.push_back(frame);
  out_.put(c);
  after_value_ = false;
}

void TextWriter::close_frame(Frame frame, char c) {
  require_open();
  if (frames_.empty() || frames_.back() != frame) {
    throw std::logic_error("n7serialize::TextWriter: end without its start");
  }
  frames_.pop_back();
  out_.put(c);
  after_value_ = true;
}

void TextWriter::begin_value() {
  require_open();
  if (after_value_) {
    // A sequence takes its elements one at a time, and the text one top-level item.
    if (frames_.empty() || frames_.back() == Frame::Sequence) {
      throw std::logic_error("n7serialize::TextWriter: value without a separator");
    }
    out_.put(' ');
  }
}

void TextWriter::write_marker_start() { open(Frame::Marker, '('); }
void TextWriter::write_marker_end() { close_frame(Frame::Marker, ')'); }
void TextWriter::write_sequence_start() { open(Frame::Sequence, '['); }
void TextWriter::write_sequence_end() { close_frame(Frame::Sequence, ']'); }

void TextWriter::write_sequence_separator() {
  require_open();
  if (frames_.empty() || frames_.back() != Frame::Sequence || !after_value_) {
    throw std::logic_error("n7serialize::TextWriter: separator outside a sequence");
  }
  out_.put(',');
  after_value_ = false;
}

void TextWriter::put_escaped_byte(unsigned char byte) {
  if (const char letter = short_escape(byte)) {
    out_.put('\\').put(letter);
  } else if (byte < 0x20 || byte == 0x7F || (byte > 0x7F && options_.ascii_only()) ||
             (byte == ' ' && options_.escape_spaces())) {
    put_hex(out_, 'x', byte, 2);
  } else {
    out_.put(static_cast<char>(byte));
  }
}

void TextWriter::put_wide_char(wchar_t c) {
  // wchar_t is signed: a negative value becomes a large one, which only an escape can carry.
  const auto value = static_cast<std::uint32_t>(c);  // NOLINT(bugprone-signed-char-misuse)
  if (value < 0x80) return put_escaped_byte(static_cast<unsigned char>(value));
  if (!options_.ascii_only() && is_scalar_value(value)) {
    out_ << n7core::to_string(std::wstring_view(&c, 1));
  } else if (value <= 0xFFFF) {
    put_hex(out_, 'u', value, 4);
  } else {
    put_hex(out_, 'U', value, 8);
  }
}

TextWriter& TextWriter::operator<<(const char* text) {
  return *this << std::string_view(text == nullptr ? "" : text);
}

TextWriter& TextWriter::operator<<(std::string_view text) {
  begin_value();
  out_.put('"');
  for (const char c : text) put_escaped_byte(static_cast<unsigned char>(c));
  out_.put('"');
  after_value_ = true;
  return *this;
}

TextWriter& TextWriter::operator<<(const wchar_t* text) {
  return *this << std::wstring_view(text == nullptr ? L"" : text);
}

TextWriter& TextWriter::operator<<(std::wstring_view text) {
  begin_value();
  out_.put('L').put('"');
  for (const wchar_t c : text) put_wide_char(c);
  out_.put('"');
  after_value_ = true;
  return *this;
}

TextWriter& TextWriter::operator<<(int value) {
  begin_value();
  // Written digit by digit rather than through the stream, whose locale may group digits.
  char digits[std::numeric_limits<int>::digits10 + 3];
  const char* end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
  out_.write(digits, end - digits);
  after_value_ = true;
  return *this;
}

void TextWriter::close() {
  require_open();
  if (!frames_.empty()) throw std::logic_error("n7serialize::TextWriter: close() inside an item");
  closed_ = true;
  out_.flush();
}

// ---- TextReader ----

namespace {

// The sinks below reserve their text for the whole literal up front (no decoded literal is
// longer than its source) and never grow it, and they keep ASCII out of side buffers: a secret
// read from a stored blob leaves no copy behind in a buffer given up for a larger one.

// Collects the characters of a narrow string: bytes, and \x escapes as bytes.
class NarrowSink {
 public:
  explicit NarrowSink(std::size_t extent) { text_.reserve(extent); }
  void byte(char c) { text_.push_back(c); }
  // Only reached for \x, whose value is below 0x100.
  void code(std::uint32_t c) { text_.push_back(static_cast<char>(c)); }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

// Collects a wide string's characters as UTF-8: raw bytes as they are, checked to be UTF-8 where
// they are not ASCII, and escapes encoded.
class Utf8Sink {
 public:
  explicit Utf8Sink(std::size_t extent) { text_.reserve(extent); }
  void byte(char c) {
    flush_units();
    if (static_cast<unsigned char>(c) < 0x80) {
      flush();
      text_.push_back(c);
    } else {
      pending_.push_back(c);
    }
  }
  // An escaped high surrogate waits for the escape after it, which may complete the pair.
  void code(std::uint32_t c) {
    flush();
    units_[units_size_++] = static_cast<wchar_t>(c);
    if (units_size_ == 1 && c >= 0xD800 && c <= 0xDBFF) return;
    flush_units();
  }
  std::string take() {
    flush();
    return std::move(text_);
  }

 private:
  void flush() {
    flush_units();
    if (pending_.empty()) return;
    n7core::check_utf8(pending_);
    text_ += pending_;
    pending_.clear();
  }
  // Encodes the escaped units, as the text conversion does (and fails as it does); the result is
  // at most 4 bytes, which a string keeps without the heap.
  void flush_units() {
    if (units_size_ == 0) return;
    text_ += n7core::to_string(std::wstring_view(units_.data(), units_size_));
    units_size_ = 0;
  }

  std::string pending_;  // a run of non-ASCII bytes
  std::array<wchar_t, 2> units_{};
  std::size_t units_size_ = 0;
  std::string text_;
};

// Collects the characters of a wide string: runs of raw bytes are UTF-8, escapes are values.
class WideSink {
 public:
  explicit WideSink(std::size_t extent) { text_.reserve(extent); }
  void byte(char c) {
    if (static_cast<unsigned char>(c) < 0x80) {
      flush();
      text_.push_back(static_cast<wchar_t>(c));
    } else {
      pending_.push_back(c);
    }
  }
  void code(std::uint32_t c) {
    flush();
    text_.push_back(static_cast<wchar_t>(c));
  }
  std::wstring take() {
    flush();
    return std::move(text_);
  }

 private:
  void flush() {
    if (pending_.empty()) return;
    text_ += n7core::to_wstring(pending_);
    pending_.clear();
  }

  std::string pending_;  // a run of non-ASCII bytes
  std::wstring text_;
};

// Checks the syntax of a string that is not wanted, without decoding it.
class NullSink {
 public:
  void byte(char) {}
  void code(std::uint32_t) {}
};

}  // namespace

TextReader::TextReader(std::string_view text) : text_(text) {}

void TextReader::raise_malformed(std::string_view what) const {
  n7core::ErrorParams params;
  params.add("offset", static_cast<std::int64_t>(pos_));
  n7core::throw_error(
      errors::malformed, std::string(what) + " at offset {@offset}", std::move(params),
      n7core::SourceLocation("n7serialize::TextReader", "core/serialize", __LINE__));
}

void TextReader::raise_truncated() const {
  n7core::ErrorParams params;
  params.add("offset", static_cast<std::int64_t>(pos_));
  n7core::throw_error(
      errors::truncated, "Text ends inside an item at offset {@offset}", std::move(params),
      n7core::SourceLocation("n7serialize::TextReader", "core/serialize", __LINE__));
}

char TextReader::peek() {
  while (pos_ < text_.size() && is_blank(text_[pos_])) ++pos_;
  if (pos_ == text_.size()) raise_truncated();
  return text_[pos_];
}

bool TextReader::at_end() {
  while (pos_ < text_.size() && is_blank(text_[pos_])) ++pos_;
  return pos_ == text_.size();
}

void TextReader::expect(char c) {
  if (peek() != c) raise_malformed(std::string("Expected '") + c + "'");
  ++pos_;
}

void TextReader::read_marker_start() {
  expect('(');
  frames_.push_back(Frame::Marker);
}

void TextReader::read_sequence_start() {
  expect('[');
  frames_.push_back(Frame::Sequence);
}

bool TextReader::read_sequence_next() {
  if (frames_.empty() || frames_.back() == Frame::Marker) raise_malformed("Not in a sequence");
  const char c = peek();
  if (c == ']') {
    if (element_pending()) raise_malformed("Expected an element after ','");
    ++pos_;
    frames_.pop_back();
    return false;
  }
  if (frames_.back() == Frame::SequenceStarted) {
    expect(',');
  } else {
    frames_.back() = Frame::SequenceStarted;
  }
  return true;
}

bool TextReader::element_pending() const {
  if (frames_.empty() || frames_.back() != Frame::SequenceStarted) return false;
  // Every item ends in a byte other than ',': a ',' as the last byte taken is one whose
  // element has not been read.
  std::size_t last = pos_;
  while (last > 0 && is_blank(text_[last - 1])) --last;
  return last > 0 && text_[last - 1] == ',';
}

void TextReader::read_marker_end() {
  skip_to_marker_end();
  expect(')');
}

void TextReader::skip_to_marker_end() {
  // Sequences left open above the innermost marker are skipped to their end as well.
  while (!frames_.empty() && frames_.back() != Frame::Marker) {
    if (element_pending()) skip_value();
    while (read_sequence_next()) skip_value();
  }
  if (frames_.empty()) raise_malformed("Not in a marker");
  frames_.pop_back();
  while (peek() != ')') skip_value();
}

void TextReader::skip_value() {
  // Nested items are skipped with an explicit stack, so deep nesting costs heap, not stack.
  std::string closers;
  do {
    const char c = peek();
    if (c == '(' || c == '[') {
      ++pos_;
      closers.push_back(c == '(' ? ')' : ']');
    } else if (!closers.empty() && c == closers.back()) {
      ++pos_;
      closers.pop_back();
    } else if (c == ',' && !closers.empty() && closers.back() == ']') {
      ++pos_;
    } else if (c == '"' || c == 'L') {
      skip_string();
    } else {
      read_int();
    }
  } while (!closers.empty());
}

bool TextReader::read_quote_start() {
  const bool wide = peek() == 'L';
  if (wide) ++pos_;
  if (pos_ == text_.size()) raise_truncated();
  if (text_[pos_] != '"') raise_malformed("Expected a string");
  ++pos_;
  return wide;
}

std::uint32_t TextReader::read_hex(int digits) {
  std::uint32_t value = 0;
  for (int i = 0; i < digits; ++i, ++pos_) {
    if (pos_ == text_.size()) raise_truncated();
    const int digit = hex_value(text_[pos_]);
    if (digit < 0) raise_malformed("Expected a hexadecimal digit");
    value = (value << 4) | static_cast<std::uint32_t>(digit);
  }
  return value;
}

std::size_t TextReader::literal_extent() const {
  std::size_t end = pos_;
  while (end < text_.size() && text_[end] != '"') end += text_[end] == '\\' ? 2u : 1u;
  return std::min(end, text_.size()) - pos_;
}

template <typename Sink>
void TextReader::read_quoted(Sink& sink, bool wide) {
  for (;;) {
    if (pos_ == text_.size()) raise_truncated();
    const char c = text_[pos_];
    if (c == '"') break;
    if (static_cast<unsigned char>(c) < 0x20) raise_malformed("Control character in a string");
    ++pos_;
    if (c != '\\') {
      sink.byte(c);
      continue;
    }
    if (pos_ == text_.size()) raise_truncated();
    const char e = text_[pos_++];
    switch (e) {
      case '\\':
      case '"':
        sink.byte(e);
        break;
      case 'n':
        sink.byte('\n');
        break;
      case 'r':
        sink.byte('\r');
        break;
      case 't':
        sink.byte('\t');
        break;
      case 'x':
        sink.code(read_hex(2));
        break;
      case 'u':
      case 'U':
        if (!wide) raise_malformed("Wide escape in a narrow string");
        sink.code(read_hex(e == 'u' ? 4 : 8));
        break;
      default:
        --pos_;
        raise_malformed("Unknown escape");
    }
  }
  ++pos_;
}

void TextReader::skip_string() {
  NullSink sink;
  const bool wide = read_quote_start();
  read_quoted(sink, wide);
}

std::string TextReader::read_string() {
  if (read_quote_start()) {
    Utf8Sink sink(literal_extent());
    read_quoted(sink, true);
    return sink.take();
  }
  NarrowSink sink(literal_extent());
  read_quoted(sink, false);
  return sink.take();
}

std::wstring TextReader::read_wstring() {
  if (read_quote_start()) {
    WideSink sink(literal_extent());
    read_quoted(sink, true);
    return sink.take();
  }
  NarrowSink sink(literal_extent());
  read_quoted(sink, false);
  return n7core::to_wstring(sink.take());
}

int TextReader::read_int() {
  const bool negative = peek() == '-';
  if (negative) ++pos_;
  if (pos_ == text_.size()) raise_truncated();
  if (!is_digit(text_[pos_])) raise_malformed("Expected a number");
  // Accumulated as a negative number, whose range is the larger one.
  long long value = 0;
  for (; pos_ < text_.size() && is_digit(text_[pos_]); ++pos_) {
    value = value * 10 - (text_[pos_] - '0');
    if (value < std::numeric_limits<int>::min()) raise_malformed("Number out of range");
  }
  // Inside an item more must follow, so digits up to the end may have been cut short.
  if (pos_ == text_.size() && !frames_.empty()) raise_truncated();
  if (!negative) value = -value;
  if (value > std::numeric_limits<int>::max()) raise_malformed("Number out of range");
  return static_cast<int>(value);
}

}  // namespace n7serialize
