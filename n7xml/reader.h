// A pull reader of XML documents held in memory as UTF-8, on the tokenizer of
// n7xml/string_tokenizer.h.
//
// read() moves from node to node: the XML declaration, the DOCTYPE declaration, elements with
// their attributes, end tags, text, CDATA sections, comments and processing instructions. The
// reader resolves the five predefined entities and character references, matches end tags to
// start tags, allows one root element and refuses duplicate attributes. Malformed input is an
// n7core::ErrorException (a std::exception) whose message carries the line and position:
// "[line 3, pos 7]: End tag 'b' does not match start tag 'a'".
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/core/error.h"
#include "n7utility/n7xml/string_tokenizer.h"
#include "n7utility/platform/base/Export.h"

namespace n7xml {

enum class NodeKind {
  None,                   // before the first read() and after the end of the document
  XmlDeclaration,         // attributes() holds version, encoding, standalone as given
  DocumentType,           // value(): the declaration after the word DOCTYPE
  Element,                // name(), attributes(); is_empty_element() for "<a/>"
  EndElement,             // name(); not reported for an empty element
  Text,                   // value(): the text with its references resolved
  CData,                  // value(): the section's content
  Comment,                // value()
  ProcessingInstruction,  // name(): the target; value(): the data
};

// The kind's name ("Element"), for messages.
N7_EXPORT const char* node_kind_name(NodeKind kind) noexcept;

struct XmlAttribute {
  std::string name;
  std::string value;  // references resolved, literal tabs and line ends as spaces
};

namespace errors {
N7_EXPORT extern const n7core::ErrorCode reader_malformed;  // error.n7xml.reader.malformed
}  // namespace errors

class N7_EXPORT XmlReader {
 public:
  // `data` must outlive the reader. `uri` names the document in error messages (null: none);
  // lines are numbered from `first_line`.
  explicit XmlReader(std::string_view data, std::shared_ptr<const std::string> uri = nullptr,
                     int first_line = 1);
  XmlReader(const XmlReader&) = delete;
  XmlReader& operator=(const XmlReader&) = delete;

  // Moves to the next node; false at the end of the document, which is then known to be
  // well-formed. Throws n7core::ErrorException for malformed input.
  bool read();

  NodeKind node_kind() const noexcept { return kind_; }
  const std::string& name() const noexcept { return name_; }
  const std::string& value() const noexcept { return value_; }
  const std::vector<XmlAttribute>& attributes() const noexcept { return attributes_; }
  // The attribute's value, or null when the element has no such attribute.
  const std::string* attribute(std::string_view name) const noexcept;
  bool is_empty_element() const noexcept { return empty_element_; }
  // Elements open around the current node; an element counts itself.
  std::size_t depth() const noexcept { return open_elements_.size(); }

  // At an Element: reads up to its end tag and returns its text (text and CDATA joined; comments
  // and processing instructions skipped), leaving the reader at the EndElement (at the Element
  // itself when it is empty). Throws when the element has child elements.
  std::string read_element_text();

 private:
  TokenKind next();
  [[noreturn]] void raise(std::string_view text, int source_line) const;
  void start_node(NodeKind kind);
  void read_xml_declaration();
  void read_doctype();
  void read_section(NodeKind kind, TokenKind end);
  void read_start_tag();
  void read_attribute();
  void read_end_tag();
  bool read_text(TokenKind first);
  void append_value(std::string& out, TokenKind kind);
  void append_char_ref(std::string& out, std::string_view digits) const;
  void append_entity(std::string& out, std::string_view name) const;
  void finish_document();

  XmlStringTokenizer tokenizer_;
  bool pending_ = false;  // the tokenizer's current token is still to be handled
  bool started_ = false;  // a node other than the XML declaration has been read
  bool doctype_seen_ = false;
  bool root_seen_ = false;
  bool finished_ = false;
  std::vector<std::string> open_elements_;
  NodeKind kind_ = NodeKind::None;
  std::string name_;
  std::string value_;
  std::vector<XmlAttribute> attributes_;
  bool empty_element_ = false;
  bool pop_after_node_ = false;  // the current node closes an element (end tag, empty element)
};

}  // namespace n7xml
