// libFuzzer target: the tokenizer over arbitrary bytes. Beyond the sanitizers' checks, it asserts
// that every token value lies inside the document (or is the line feed a lone CR stands for),
// that the stream ends within a bounded number of tokens, and that the tokenizer stays in its
// error state once it has failed or ended; and that the vector and the plain scanners give the
// same tokens, lines, positions and errors.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "n7utility/core/error.h"
#include "n7utility/n7xml/scan_check_internal.h"
#include "n7utility/n7xml/string_tokenizer.h"

namespace {

bool inside(std::string_view value, const std::vector<char>& document) {
  if (value.empty() || value == "\n") return true;
  const char* begin = document.data();
  return value.data() >= begin && value.data() + value.size() <= begin + document.size();
}

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An exact-size heap copy: any read past the end is a heap overflow AddressSanitizer reports.
  const std::vector<char> document(data, data + size);
  // The first byte chooses whether the document has a URI, so both message forms are covered.
  auto uri =
      size > 0 && (data[0] & 1) != 0 ? std::make_shared<const std::string>("fuzz:doc") : nullptr;
  n7xml::XmlStringTokenizer tokenizer(document.data(), document.size(), std::move(uri), 1);
  n7xml::TokenKind kind = n7xml::TokenKind::DocumentStart;
  try {
    // Every token but the first and the last takes at least one byte.
    for (std::size_t count = 0; count <= size + 2; ++count) {
      kind = tokenizer.next_token();
      check(inside(tokenizer.token_value(), document));
      check(tokenizer.line_position() >= 0);
      if (kind == n7xml::TokenKind::DocumentEnd || kind == n7xml::TokenKind::Error) break;
    }
    check(kind == n7xml::TokenKind::DocumentEnd || kind == n7xml::TokenKind::Error);
    check(kind == n7xml::TokenKind::DocumentEnd || tokenizer.error());
  } catch (const n7core::ErrorException& e) {
    check(std::string(e.info().code().name()) == "error.n7core.string.invalidUtf8");
  }
  check(tokenizer.next_token() == n7xml::TokenKind::Error);
  const std::string_view text(document.data(), document.size());
  check(n7xml::impl::token_trace(text, false) == n7xml::impl::token_trace(text, true));
  return 0;
}
