// libFuzzer target: the pull reader over arbitrary bytes. Malformed input must end in the core
// error exception; the reader's element text is read at every other element, so both ways of
// walking a document are covered. The reader's nodes must not depend on which of the tokenizer's
// scanners (vector or plain) is in use.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "n7utility/core/error.h"
#include "n7utility/n7xml/reader.h"
#include "n7utility/n7xml/scan_check_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An exact-size heap copy: any read past the end is a heap overflow AddressSanitizer reports.
  const std::vector<char> document(data, data + size);
  try {
    n7xml::XmlReader reader(std::string_view(document.data(), document.size()));
    bool take_text = false;
    while (reader.read()) {
      if (reader.node_kind() != n7xml::NodeKind::Element) continue;
      take_text = !take_text;
      if (take_text) reader.read_element_text();
    }
  } catch (const n7core::ErrorException&) {
    // Malformed input: the expected outcome for most inputs.
  }
  const std::string_view text(document.data(), document.size());
  if (n7xml::impl::reader_trace(text, false) != n7xml::impl::reader_trace(text, true)) std::abort();
  return 0;
}
