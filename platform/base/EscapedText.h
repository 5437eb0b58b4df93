// Writes text on one line with its control characters escaped, for line-oriented output that a
// program or a person reads back: the event log's JSON lines and the tool's token listing.
// Header-only, like the codec beside it.
#pragma once

#include <string>
#include <string_view>

namespace n7platform {

// How a control character without a short escape is written.
enum class ControlEscape {
  kUnicode,  // \u00xx with lower-case digits, as JSON strings have it
  kHexByte,  // \xHH with upper-case digits
};

// Appends `text` to `out` with backslash, tab, line feed and carriage return as \\ \t \n \r, the
// other bytes below 0x20 in `form`, `quote` (when not '\0') as \ and
// itself, and every other byte as it is. Bytes from 0x80 up pass unchanged, so UTF-8 stays UTF-8.
inline void AppendEscaped(std::string& out, std::string_view text, ControlEscape form,
                          char quote = '\0') {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\' || (quote != '\0' && c == quote)) {
      out += '\\';
      out += c;
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (byte < 0x20) {
      const bool unicode = form == ControlEscape::kUnicode;
      const char* digits = unicode ? "0123456789abcdef" : "0123456789ABCDEF";
      out += unicode ? "\\u00" : "\\x";
      out += digits[byte >> 4];
      out += digits[byte & 0x0F];
    } else {
      out += c;
    }
  }
}

}  // namespace n7platform
