// n7serialize: a small text syntax for nested records of strings and integers, with a writer to a
// stream and a reader over a string. The stored password blob is written in it.
//
// The syntax, item by item (the writer produces exactly this; the reader also accepts blanks,
// that is spaces, tabs, CR and LF, between items):
//
//   marker        "(" items ")"           a group of values, such as a name and its value
//   sequence      "[" [item {"," item}] "]"
//   narrow string '"' characters '"'      bytes, returned as they are
//   wide string   'L"' characters '"'     wide characters; raw bytes in it are UTF-8
//   int           ["-"] digits            a decimal int
//
// Two values next to each other inside a marker are divided by one space ("(\"a\" 1)"), since
// two ints would otherwise run together. Inside the quotes these escapes exist:
//   \\  \"  \n  \r  \t    the character itself
//   \xHH                  the byte (narrow) or character (wide) 0xHH
//   \uHHHH  \UHHHHHHHH    a wide character by its value (wide strings only)
// The writer always escapes bytes below 0x20 and 0x7F, and with the options below also bytes
// above 0x7F and spaces. A raw byte below 0x20 inside quotes is malformed.
//
// A wide string may be read as a narrow one (it comes back as UTF-8) and a narrow string as a
// wide one (its bytes must then be UTF-8). The reader throws n7core::ErrorException, which
// derives from std::exception, for any malformed or truncated text:
// "error.n7serialize.malformed" or "error.n7serialize.truncated", with the byte offset.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/core/error.h"
#include "n7utility/platform/base/Export.h"

namespace n7serialize {

namespace errors {
N7_EXPORT extern const n7core::ErrorCode malformed;  // error.n7serialize.malformed
N7_EXPORT extern const n7core::ErrorCode truncated;  // error.n7serialize.truncated
}  // namespace errors

// Writes items to a stream in the order of the calls. Calls that break the nesting (an end
// without its start, a separator outside a sequence, anything after close()) throw
// std::logic_error: they are faults of the caller, not of data.
class N7_EXPORT TextWriter {
 public:
  class Options {
   public:
    // Everything above 0x7F is written as an escape, so the text is plain ASCII whatever the
    // strings hold. Off by default: UTF-8 and other bytes go out as they are.
    Options& ascii_only(bool on) {
      ascii_only_ = on;
      return *this;
    }
    bool ascii_only() const { return ascii_only_; }
    // Spaces inside strings are written as "\x20", so that every space in the text divides
    // items. Off by default.
    Options& escape_spaces(bool on) {
      escape_spaces_ = on;
      return *this;
    }
    bool escape_spaces() const { return escape_spaces_; }

   private:
    bool ascii_only_ = false;
    bool escape_spaces_ = false;
  };

  // `out` must outlive the writer.
  explicit TextWriter(std::ostream& out);
  TextWriter(std::ostream& out, Options options);
  TextWriter(const TextWriter&) = delete;
  TextWriter& operator=(const TextWriter&) = delete;

  void write_marker_start();
  void write_marker_end();
  void write_sequence_start();
  void write_sequence_separator();
  void write_sequence_end();

  // A null pointer writes an empty string.
  TextWriter& operator<<(const char* text);
  TextWriter& operator<<(std::string_view text);
  TextWriter& operator<<(const std::string& text) { return *this << std::string_view{text}; }
  TextWriter& operator<<(const wchar_t* text);
  TextWriter& operator<<(std::wstring_view text);
  TextWriter& operator<<(const std::wstring& text) { return *this << std::wstring_view{text}; }
  TextWriter& operator<<(int value);

  // Flushes the stream. Throws std::logic_error when a marker or sequence is still open.
  void close();

 private:
  enum class Frame : char { Marker, Sequence };
  void open(Frame frame, char c);
  void close_frame(Frame frame, char c);
  // Checks that a value may come now and writes the space between two adjacent values.
  void begin_value();
  void require_open() const;
  void put_escaped_byte(unsigned char byte);
  void put_wide_char(wchar_t c);

  std::ostream& out_;
  Options options_;
  std::vector<Frame> frames_;
  bool after_value_ = false;  // the last item written was a value
  bool closed_ = false;
};

// Reads items from a text in the order written. Every read checks the syntax of what it
// consumes; unexpected or missing items throw (see above).
class N7_EXPORT TextReader {
 public:
  // `text` must outlive the reader.
  explicit TextReader(std::string_view text);
  TextReader(const TextReader&) = delete;
  TextReader& operator=(const TextReader&) = delete;

  void read_marker_start();
  // Skips whatever of the innermost open marker is still unread (values, nested markers and
  // sequences, all checked for syntax), then reads its ")".
  void read_marker_end();
  void read_sequence_start();
  // Whether another element follows in the innermost open sequence: reads its "," (not before
  // the first element), or reads the closing "]" and returns false.
  bool read_sequence_next();

  std::string read_string();
  std::wstring read_wstring();
  int read_int();

  // Whether only blanks are left.
  bool at_end();
  // Offset of the next unread byte.
  std::size_t offset() const { return pos_; }

 private:
  enum class Frame : char { Marker, Sequence, SequenceStarted };
  // The next byte after blanks, without taking it; throws "truncated" at the end of the text.
  char peek();
  void expect(char c);
  [[noreturn]] void raise_malformed(std::string_view what) const;
  [[noreturn]] void raise_truncated() const;
  // Reads a quoted string; narrow results collect bytes, wide results characters.
  bool read_quote_start();  // true for a wide string
  template <typename Sink>
  void read_quoted(Sink& sink, bool wide);
  // Bytes from the current position to the closing quote of the literal being read (or the end),
  // an upper bound on its decoded length.
  std::size_t literal_extent() const;
  std::uint32_t read_hex(int digits);
  void skip_string();
  void skip_value();
  void skip_to_marker_end();
  // In a sequence whose last ',' has been read but not its element.
  bool element_pending() const;

  std::string_view text_;
  std::size_t pos_ = 0;
  std::vector<Frame> frames_;
};

}  // namespace n7serialize
