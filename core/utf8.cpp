#include "n7utility/core/utf8.h"

#include <string>

#include "n7utility/core/error.h"

namespace n7core {

Utf8Sequence decode_utf8(std::string_view text) noexcept {
  return n7platform::codec::DecodeUtf8(text);
}

void check_utf8(std::string_view text) {
  for (std::size_t pos = 0; pos < text.size();) {
    const Utf8Sequence sequence = decode_utf8(text.substr(pos));
    if (sequence.length == 0) {
      throw_error(errors::invalid_utf8,
                  "Invalid UTF-8 at byte " + std::to_string(pos + sequence.error_offset) + ": " +
                      sequence.problem,
                  SourceLocation("n7core::check_utf8", "core/utf8", __LINE__));
    }
    pos += sequence.length;
  }
}

}  // namespace n7core
