#include "n7utility/n7xml/reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace n7xml {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Every node as "Kind name=value" with the depth, attributes as "[n=v]".
std::vector<std::string> nodes(std::string_view document) {
  XmlReader reader(document);
  std::vector<std::string> out;
  while (reader.read()) {
    std::string line = std::string(node_kind_name(reader.node_kind())) + " " + reader.name() + "=" +
                       reader.value() + " @" + std::to_string(reader.depth());
    for (const XmlAttribute& a : reader.attributes()) line += " [" + a.name + "=" + a.value + "]";
    if (reader.is_empty_element()) line += " empty";
    out.push_back(line);
  }
  EXPECT_EQ(reader.node_kind(), NodeKind::None);
  EXPECT_FALSE(reader.read());
  return out;
}

// What reading the whole document throws, as "code: message"; "" when it is well-formed.
std::string failure(std::string_view document) {
  try {
    XmlReader reader(document);
    while (reader.read()) {
    }
  } catch (const n7core::ErrorException& e) {
    return std::string(e.info().code().name()) + ": " + e.info().message();
  }
  return "";
}

TEST(XmlReaderTest, WalksEveryKindOfNode) {
  EXPECT_THAT(
      nodes("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<!DOCTYPE r>\n<!-- c -->\n"
            "<r a='1 &amp; 2'><?pi  data ?>x&lt;&#x20AC;&#65;<![CDATA[<y>]]><e/></r>\n"),
      ElementsAre("XmlDeclaration xml= @0 [version=1.0] [encoding=utf-8]", "DocumentType = r @0",
                  "Comment = c  @0", "Element r= @1 [a=1 & 2]", "ProcessingInstruction pi=data  @1",
                  "Text =x<\xE2\x82\xAC"
                  "A @1",
                  "CData =<y> @1", "Element e= @2 empty", "EndElement r= @1"));
}

TEST(XmlReaderTest, ReadsTheChildElementsOfTheRootWithTheirText) {
  XmlReader reader(
      "<passwd-props>\r\n <salt>c2FsdA==</salt>\n <alg> PBKDF2-SHA256 </alg>\n"
      " <iter><!-- n -->10<![CDATA[00]]></iter><empty/>\n</passwd-props>");
  ASSERT_TRUE(reader.read());
  EXPECT_EQ(reader.node_kind(), NodeKind::Element);
  EXPECT_EQ(reader.name(), "passwd-props");
  std::vector<std::string> children;
  while (reader.read() && reader.depth() > 0) {
    if (reader.node_kind() != NodeKind::Element) continue;
    const std::string name = reader.name();
    children.push_back(name + "=" + reader.read_element_text());
  }
  EXPECT_THAT(children, ElementsAre("salt=c2FsdA==", "alg= PBKDF2-SHA256 ", "iter=1000", "empty="));
}

TEST(XmlReaderTest, AttributeValuesAreNormalisedAndReferencesResolved) {
  XmlReader reader("<a x='\t1\r\n2\r3' y=\"&#9;&#10;&apos;&quot;&gt;\" z=''/>");
  ASSERT_TRUE(reader.read());
  EXPECT_EQ(*reader.attribute("x"), " 1 2 3");
  EXPECT_EQ(*reader.attribute("y"), "\t\n'\">");
  EXPECT_EQ(*reader.attribute("z"), "");
  EXPECT_EQ(reader.attribute("w"), nullptr);
}

TEST(XmlReaderTest, CharacterReferencesMustNameDocumentCharacters) {
  EXPECT_EQ(failure("<a>&#9;&#xD7FF;&#xE000;&#xFFFD;&#x10000;&#x10FFFF;&#1114111;</a>"), "");
  for (const char* reference : {"&#0;", "&#8;", "&#xD800;", "&#xDFFF;", "&#xFFFE;", "&#x110000;",
                                "&#xFFFFFFFF;", "&#9999999999;"}) {
    EXPECT_THAT(failure(std::string("<a>") + reference + "</a>"),
                HasSubstr(std::string("Invalid character reference '") + reference + "'"));
  }
}

TEST(XmlReaderTest, MalformedDocumentsAreRefusedWithLineAndPosition) {
  const struct {
    const char* document;
    const char* message;
  } cases[] = {
      {"<a>\n<b></a>",
       "error.n7xml.reader.malformed: [line 2, pos 7]: "
       "End tag 'a' does not match start tag 'b'"},
      {"<a/></a>", "End tag 'a' without start tag"},
      {"<a/><b/>", "More than one root element"},
      {"", "No root element"},
      {"<a><b>", "End of document inside element 'b'"},
      {"<a x='1' x='2'/>", "Duplicate attribute 'x'"},
      {"x<a/>", "Text outside the root element"},
      {"<a/>&#32;", "Text outside the root element"},
      {"<a/><![CDATA[x]]>", "CDATA section outside the root element"},
      {"<a>&nbsp;</a>", "Undefined entity '&nbsp;'"},
      {" <?xml version='1.0'?><a/>", "XML declaration not at the start of the document"},
      {"<?xml encoding='UTF-8'?><a/>", "XML declaration without version"},
      {"<?xml version='1.0' encoding='latin1'?><a/>", "Unsupported encoding 'latin1'"},
      {"<?xml version='1.0' lang='x'?><a/>", "Invalid attribute 'lang' in the XML declaration"},
      {"<a/><!DOCTYPE a>", "DOCTYPE declaration out of place"},
      {"<!DOCTYPE a><!DOCTYPE a><a/>", "DOCTYPE declaration out of place"},
      {"<a><?XML x?></a>", "Reserved processing instruction target"},
      {"<a><?pi!?></a>", "Expecting whitespace after the target"},
      {"<a>\n <b x='1'y='2'/></a>",
       "error.n7xml.tokenizer.syntaxError: [line 2, pos 9]: "
       "Expecting whitespace before attribute name"},
      {"<a>\n ab\xC3</a>",
       "error.n7core.string.invalidUtf8: [line 2, pos 3]: "
       "Invalid UTF-8 at byte 1: missing continuation byte"},
  };
  for (const auto& c : cases) EXPECT_THAT(failure(c.document), HasSubstr(c.message)) << c.document;
}

TEST(XmlReaderTest, ErrorsAreStandardExceptionsNamingTheDocument) {
  XmlReader reader("<a><b/><c>", std::make_shared<const std::string>("mem:props"), 5);
  ASSERT_TRUE(reader.read());
  try {
    reader.read_element_text();
    FAIL() << "nothing thrown";
  } catch (const std::exception& e) {
    EXPECT_THAT(e.what(), HasSubstr("[line 5, pos 7, uri <mem:props>]: Element 'a' holds elements "
                                    "where text was expected"));
  }
  XmlReader at_text("<a>t</a>");
  ASSERT_TRUE(at_text.read());
  ASSERT_TRUE(at_text.read());
  EXPECT_THROW(at_text.read_element_text(), n7core::ErrorException);
}

}  // namespace
}  // namespace n7xml
