// For tests and fuzzers: everything a caller can observe of the tokenizer and the reader over a
// document, as text, so that a run with the vector scanners can be compared with a run with the
// plain ones. Any difference is a fault of one of them.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "n7utility/core/error.h"
#include "n7utility/n7xml/reader.h"
#include "n7utility/n7xml/string_tokenizer.h"
#include "n7utility/n7xml/text_scan_internal.h"

namespace n7xml::impl {

// Sets the scanners for the life of the object, then restores the vector ones.
class ScopedPlainScanners {
 public:
  explicit ScopedPlainScanners(bool plain) noexcept { g_plain_scanners = plain; }
  ScopedPlainScanners(const ScopedPlainScanners&) = delete;
  ScopedPlainScanners& operator=(const ScopedPlainScanners&) = delete;
  ~ScopedPlainScanners() { g_plain_scanners = false; }
};

// Every token with its value, line and position, then the error or exception that ended the
// stream.
inline std::string token_trace(std::string_view document, bool plain) {
  const ScopedPlainScanners scanners(plain);
  XmlStringTokenizer tokenizer(document);
  std::string out;
  try {
    for (;;) {
      const TokenKind kind = tokenizer.next_token();
      out.append(token_kind_name(kind)).append(" ").append(tokenizer.token_value());
      out.append(" @").append(std::to_string(tokenizer.line()));
      out.append(":").append(std::to_string(tokenizer.line_position())).append("\n");
      if (kind == TokenKind::Error) return out + tokenizer.error()->message();
      if (kind == TokenKind::DocumentEnd) return out;
    }
  } catch (const std::exception& e) {
    return out + "exception " + e.what();
  }
}

// The reader's nodes with their names, values and attributes, then the exception, if any.
inline std::string reader_trace(std::string_view document, bool plain) {
  const ScopedPlainScanners scanners(plain);
  std::string out;
  try {
    XmlReader reader(document);
    while (reader.read()) {
      out.append(node_kind_name(reader.node_kind())).append(" ").append(reader.name());
      out.append(" ").append(reader.value()).append("\n");
      for (const XmlAttribute& attribute : reader.attributes()) {
        out.append("  ").append(attribute.name).append("=").append(attribute.value).append("\n");
      }
    }
  } catch (const std::exception& e) {
    out.append("exception ").append(e.what());
  }
  return out;
}

}  // namespace n7xml::impl
