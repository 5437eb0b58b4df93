#include "n7utility/n7xml/reader.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "n7utility/core/text.h"

namespace n7xml {

namespace errors {
const n7core::ErrorCode reader_malformed("error.n7xml.reader.malformed", true);
}  // namespace errors

const char* node_kind_name(NodeKind kind) noexcept {
  switch (kind) {
    case NodeKind::None:
      return "None";
    case NodeKind::XmlDeclaration:
      return "XmlDeclaration";
    case NodeKind::DocumentType:
      return "DocumentType";
    case NodeKind::Element:
      return "Element";
    case NodeKind::EndElement:
      return "EndElement";
    case NodeKind::Text:
      return "Text";
    case NodeKind::CData:
      return "CData";
    case NodeKind::Comment:
      return "Comment";
    case NodeKind::ProcessingInstruction:
      return "ProcessingInstruction";
  }
  return "Unknown";
}

namespace {

constexpr char kSourceFile[] = "n7xml/reader";

bool is_whitespace(char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool is_all_whitespace(std::string_view text) noexcept {
  return std::all_of(text.begin(), text.end(), is_whitespace);
}

// The characters a document may hold.
bool is_xml_char(std::uint64_t c) noexcept {
  return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
         (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

bool equals_ignoring_case(std::string_view a, std::string_view b) noexcept {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&lower](char x, char y) { return lower(x) == lower(y); });
}

// The digits of a character reference as the tokenizer gives them (at most ten decimal or, after
// "x", eight hexadecimal digits, so the value fits).
std::uint64_t char_ref_value(std::string_view digits) noexcept {
  const bool hex = digits.front() == 'x';
  if (hex) digits.remove_prefix(1);
  std::uint64_t value = 0;
  for (const char c : digits) {
    const auto digit = static_cast<std::uint64_t>(c >= 'a'   ? c - 'a' + 10
                                                  : c >= 'A' ? c - 'A' + 10
                                                             : c - '0');
    value = value * (hex ? 16 : 10) + digit;
  }
  return value;
}

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

}  // namespace

XmlReader::XmlReader(std::string_view data, std::shared_ptr<const std::string> uri, int first_line)
    : tokenizer_(data, std::move(uri), first_line) {}

const std::string* XmlReader::attribute(std::string_view name) const noexcept {
  const auto found = std::find_if(attributes_.begin(), attributes_.end(),
                                  [name](const XmlAttribute& a) { return a.name == name; });
  return found == attributes_.end() ? nullptr : &found->value;
}

bool XmlReader::read() {
  if (pop_after_node_) {
    open_elements_.pop_back();
    pop_after_node_ = false;
  }
  while (!finished_) {
    const TokenKind kind = next();
    switch (kind) {
      case TokenKind::DocumentStart:
        continue;
      case TokenKind::DocumentEnd:
        finish_document();
        return false;
      case TokenKind::XmldeclStart:
        read_xml_declaration();
        return true;
      case TokenKind::DoctypeStart:
        read_doctype();
        return true;
      case TokenKind::CommentStart:
        read_section(NodeKind::Comment, TokenKind::CommentEnd);
        return true;
      case TokenKind::PIStart:
        read_section(NodeKind::ProcessingInstruction, TokenKind::PIEnd);
        return true;
      case TokenKind::CDATAStart:
        if (open_elements_.empty()) raise("CDATA section outside the root element", __LINE__);
        read_section(NodeKind::CData, TokenKind::CDATAEnd);
        return true;
      case TokenKind::StartTagStart:
        read_start_tag();
        return true;
      case TokenKind::EndTag:
        read_end_tag();
        return true;
      case TokenKind::CharData:
      case TokenKind::EntityRef:
      case TokenKind::CharRef:
        if (read_text(kind)) return true;
        continue;
      default:
        raise(std::string("Unexpected token ") + token_kind_name(kind), __LINE__);
    }
  }
  start_node(NodeKind::None);
  return false;
}

std::string XmlReader::read_element_text() {
  if (kind_ != NodeKind::Element) raise("Not at an element", __LINE__);
  if (empty_element_) return {};
  const std::string element = name_;
  std::string text;
  while (read()) {
    switch (kind_) {
      case NodeKind::Text:
      case NodeKind::CData:
        text += value_;
        break;
      case NodeKind::EndElement:
        return text;  // its own: a child element would have ended the loop
      case NodeKind::Comment:
      case NodeKind::ProcessingInstruction:
        break;
      default:
        raise("Element " + quoted(element) + " holds elements where text was expected", __LINE__);
    }
  }
  raise("End of document inside element " + quoted(element), __LINE__);
}

// The next token; tokenizer errors become exceptions placed at the tokenizer's position.
TokenKind XmlReader::next() {
  if (pending_) {
    pending_ = false;
    return tokenizer_.last_token();
  }
  TokenKind kind = TokenKind::Error;
  try {
    kind = tokenizer_.next_token();
  } catch (const n7core::ErrorException& e) {
    // The core services' UTF-8 check knows the offset only within what it was given.
    n7core::ErrorException::throw_error(tokenizer_.make_error(
        e.info().code(), e.info().message(),
        n7core::SourceLocation("n7xml::XmlReader::read", kSourceFile, __LINE__)));
  }
  if (kind == TokenKind::Error) n7core::ErrorException::throw_error(tokenizer_.error());
  return kind;
}

void XmlReader::raise(std::string_view text, int source_line) const {
  n7core::ErrorException::throw_error(tokenizer_.make_error(
      errors::reader_malformed, text,
      n7core::SourceLocation("n7xml::XmlReader::read", kSourceFile, source_line)));
}

void XmlReader::start_node(NodeKind kind) {
  kind_ = kind;
  name_.clear();
  value_.clear();
  attributes_.clear();
  empty_element_ = false;
  if (kind != NodeKind::XmlDeclaration) started_ = true;
}

void XmlReader::read_xml_declaration() {
  if (started_) raise("XML declaration not at the start of the document", __LINE__);
  start_node(NodeKind::XmlDeclaration);
  started_ = true;
  name_ = tokenizer_.token_value();
  while (next() == TokenKind::AttributeStart) read_attribute();
  if (tokenizer_.last_token() != TokenKind::XmldeclEnd) {
    raise(std::string("Unexpected token ") + token_kind_name(tokenizer_.last_token()), __LINE__);
  }
  for (const XmlAttribute& a : attributes_) {
    if (a.name != "version" && a.name != "encoding" && a.name != "standalone") {
      raise("Invalid attribute " + quoted(a.name) + " in the XML declaration", __LINE__);
    }
  }
  if (attribute("version") == nullptr) raise("XML declaration without version", __LINE__);
  const std::string* encoding = attribute("encoding");
  if (encoding != nullptr && !equals_ignoring_case(*encoding, "UTF-8") &&
      !equals_ignoring_case(*encoding, "US-ASCII")) {
    raise("Unsupported encoding " + quoted(*encoding), __LINE__);
  }
}

void XmlReader::read_doctype() {
  if (root_seen_ || doctype_seen_) raise("DOCTYPE declaration out of place", __LINE__);
  doctype_seen_ = true;
  read_section(NodeKind::DocumentType, TokenKind::DoctypeEnd);
}

// A node made of the CharData tokens up to `end`: comments, processing instructions, CDATA
// sections and DOCTYPE declarations.
void XmlReader::read_section(NodeKind kind, TokenKind end) {
  start_node(kind);
  if (kind == NodeKind::ProcessingInstruction) {
    name_ = tokenizer_.token_value();
    if (equals_ignoring_case(name_, "xml"))
      raise("Reserved processing instruction target", __LINE__);
  }
  for (TokenKind token = next(); token != end; token = next()) {
    if (token != TokenKind::CharData) {
      raise(std::string("Unexpected token ") + token_kind_name(token), __LINE__);
    }
    value_ += tokenizer_.token_value();
  }
  if (kind == NodeKind::ProcessingInstruction && !value_.empty()) {
    const auto data = std::find_if_not(value_.begin(), value_.end(), is_whitespace);
    if (data == value_.begin()) raise("Expecting whitespace after the target", __LINE__);
    value_.erase(value_.begin(), data);
  }
}

void XmlReader::read_start_tag() {
  if (open_elements_.empty()) {
    if (root_seen_) raise("More than one root element", __LINE__);
    root_seen_ = true;
  }
  start_node(NodeKind::Element);
  name_ = tokenizer_.token_value();
  TokenKind token = next();
  for (; token == TokenKind::AttributeStart; token = next()) read_attribute();
  if (token == TokenKind::StartTagEndEmpty) {
    empty_element_ = true;
    pop_after_node_ = true;
  } else if (token != TokenKind::StartTagEnd) {
    raise(std::string("Unexpected token ") + token_kind_name(token), __LINE__);
  }
  open_elements_.push_back(name_);
}

// After AttributeStart: the value up to AttributeEnd, with literal white space as spaces.
void XmlReader::read_attribute() {
  std::string name(tokenizer_.token_value());
  if (attribute(name) != nullptr) raise("Duplicate attribute " + quoted(name), __LINE__);
  std::string value;
  for (TokenKind token = next(); token != TokenKind::AttributeEnd; token = next()) {
    const std::size_t literal = value.size();
    append_value(value, token);
    if (token == TokenKind::CharData) {
      std::replace_if(value.begin() + static_cast<std::ptrdiff_t>(literal), value.end(),
                      is_whitespace, ' ');
    }
  }
  attributes_.push_back({std::move(name), std::move(value)});
}

void XmlReader::read_end_tag() {
  const std::string_view name = tokenizer_.token_value();
  if (open_elements_.empty()) raise("End tag " + quoted(name) + " without start tag", __LINE__);
  if (open_elements_.back() != name) {
    raise("End tag " + quoted(name) + " does not match start tag " + quoted(open_elements_.back()),
          __LINE__);
  }
  start_node(NodeKind::EndElement);
  name_ = name;
  pop_after_node_ = true;
}

// A run of text and references, up to the next markup. False for the white space between nodes
// outside the root element, which is not reported.
bool XmlReader::read_text(TokenKind first) {
  start_node(NodeKind::Text);
  bool references = false;
  for (TokenKind token = first;; token = next()) {
    if (token != TokenKind::CharData && token != TokenKind::EntityRef &&
        token != TokenKind::CharRef) {
      pending_ = true;
      break;
    }
    references = references || token != TokenKind::CharData;
    append_value(value_, token);
  }
  if (!open_elements_.empty()) return true;
  if (references || !is_all_whitespace(value_)) raise("Text outside the root element", __LINE__);
  return false;
}

// Appends the text of a CharData, EntityRef or CharRef token, references resolved.
void XmlReader::append_value(std::string& out, TokenKind kind) {
  const std::string_view value = tokenizer_.token_value();
  switch (kind) {
    case TokenKind::CharData:
      out += value;
      return;
    case TokenKind::EntityRef:
      append_entity(out, value);
      return;
    case TokenKind::CharRef:
      append_char_ref(out, value);
      return;
    default:
      raise(std::string("Unexpected token ") + token_kind_name(kind), __LINE__);
  }
}

void XmlReader::append_char_ref(std::string& out, std::string_view digits) const {
  const std::uint64_t value = char_ref_value(digits);
  if (!is_xml_char(value)) {
    raise("Invalid character reference '&#" + std::string(digits) + ";'", __LINE__);
  }
  out += n7core::to_string(std::wstring(1, static_cast<wchar_t>(value)));
}

void XmlReader::append_entity(std::string& out, std::string_view name) const {
  static constexpr std::pair<std::string_view, char> kPredefined[] = {
      {"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"apos", '\''}, {"quot", '"'}};
  for (const auto& [entity, text] : kPredefined) {
    if (name == entity) {
      out += text;
      return;
    }
  }
  raise("Undefined entity '&" + std::string(name) + ";'", __LINE__);
}

void XmlReader::finish_document() {
  if (!open_elements_.empty()) {
    raise("End of document inside element " + quoted(open_elements_.back()), __LINE__);
  }
  if (!root_seen_) raise("No root element", __LINE__);
  finished_ = true;
  start_node(NodeKind::None);
}

}  // namespace n7xml
