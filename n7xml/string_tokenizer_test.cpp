#include "n7utility/n7xml/string_tokenizer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "n7utility/core/testing_internal.h"

namespace n7xml {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The tokens after DocumentStart, as "Kind" or "Kind:value"; an Error token as "Error:message".
std::vector<std::string> tokens(std::string_view document, int first_line = 1,
                                std::shared_ptr<const std::string> uri = nullptr) {
  XmlStringTokenizer tokenizer(document, std::move(uri), first_line);
  EXPECT_EQ(tokenizer.next_token(), TokenKind::DocumentStart);
  std::vector<std::string> out;
  for (;;) {
    const TokenKind kind = tokenizer.next_token();
    std::string line = token_kind_name(kind);
    if (kind == TokenKind::Error) {
      line += ":" + tokenizer.error()->message();
    } else if (!tokenizer.token_value().empty()) {
      line += ":" + std::string(tokenizer.token_value());
    }
    out.push_back(line);
    if (kind == TokenKind::Error || kind == TokenKind::DocumentEnd) return out;
  }
}

// The message of the error that ends the document's tokens.
std::string error_of(std::string_view document) {
  const std::vector<std::string> all = tokens(document);
  return all.back().starts_with("Error:") ? all.back().substr(6) : "no error";
}

// Each document's tokens end in an error whose message holds the text given with it.
struct Failure {
  const char* document;
  const char* message;
};

void expect_failures(std::initializer_list<Failure> failures) {
  for (const Failure& f : failures) {
    EXPECT_THAT(error_of(f.document), HasSubstr(f.message)) << f.document;
  }
}

TEST(TokenizerTest, ContentTextAndReferences) {
  EXPECT_THAT(tokens("a&lt;b&#65;&#x41;&#xfF;&#1234567890;"),
              ElementsAre("CharData:a", "EntityRef:lt", "CharData:b", "CharRef:65", "CharRef:x41",
                          "CharRef:xfF", "CharRef:1234567890", "DocumentEnd"));
  EXPECT_THAT(tokens("&\xC3\xA9t\xC3\xA9;"),
              ElementsAre("EntityRef:\xC3\xA9t\xC3\xA9", "DocumentEnd"));
  EXPECT_THAT(tokens(""), ElementsAre("DocumentEnd"));

  expect_failures({
      {"&#x;", "[line 1, pos 3]: Invalid hex character reference"},
      {"&#X41;", "Invalid decimal character reference"},  // only a small x is hexadecimal
      {"&#x123456789;", "[line 1, pos 12]: Invalid hex character reference"},
      {"&#12345678901;", "Invalid decimal character reference"},
      {"&", "End of data in entity reference"},
      {"&#", "End of data in character reference"},
      {"&lt", "End of data in entity reference (expecting ';')"},
      {"&#65", "End of data in entity reference (expecting ';')"},
      {"&lt:x y", "Invalid entity reference, expecting ';'"},
      {"&#65a;", "Invalid entity reference, expecting ';'"},
      {"&1a;", "Invalid entity reference name"},
  });
}

TEST(TokenizerTest, StartTagsAndAttributes) {
  EXPECT_THAT(tokens("<a x = \"1'&amp;\" y='\t\"\n'>t</a >"),
              ElementsAre("StartTagStart:a", "AttributeStart:x", "CharData:1'", "EntityRef:amp",
                          "AttributeEnd", "AttributeStart:y", "CharData:\t\"\n", "AttributeEnd",
                          "StartTagEnd", "CharData:t", "EndTag:a", "DocumentEnd"));
  // The empty-tag token keeps the value of the token before it.
  EXPECT_THAT(tokens("<a/><b c=''\n/>"),
              ElementsAre("StartTagStart:a", "StartTagEndEmpty:a", "StartTagStart:b",
                          "AttributeStart:c", "AttributeEnd", "StartTagEndEmpty", "DocumentEnd"));

  expect_failures({
      {"<r><ab=\"1\"/>", "[line 1, pos 3]: Invalid start tag name"},  // at the "<"
      {"<a x='1'y='2'/>", "[line 1, pos 8]: Expecting whitespace before attribute name"},
      {"<a/ >", "Invalid empty tag; expecting '/>'"},
      {"<a /", "Invalid empty tag; expecting '/>'"},
      {"<a x='<'/>", "Invalid character ('<') in attribute value"},
      {"<a x='1", "End of data in attribute value"},
      {"<abc", "End of data in start tag"},
      {"<abc ", "End of data in start tag declaration"},
      {"< a/>", "[line 1, pos 1]: Invalid start tag name"},
      {"<a -x='1'/>", "Invalid attribute name"},
      {"<a x '1'/>", "Expecting '='"},
      {"<a x", "End of data in attribute"},
      {"<a x= ", "End of data in attribute"},
      {"<a x=1/>", "Expecting '\"' or ''' to start attribute value"},
  });
}

TEST(TokenizerTest, EndTags) {
  EXPECT_THAT(tokens("</a\n\t>"), ElementsAre("EndTag:a", "DocumentEnd"));
  EXPECT_EQ(error_of("</>"), "[line 1, pos 2]: Invalid end tag name");
  EXPECT_EQ(error_of("</a "), "[line 1, pos 4]: End of data in end tag");
  EXPECT_EQ(error_of("x</a b>"), "[line 1, pos 1]: Invalid end tag");
  // Reported at the current position when the "<" lies on an earlier line.
  EXPECT_EQ(error_of("</a\n  b>"), "[line 2, pos 2]: Invalid end tag");
}

TEST(TokenizerTest, MarkupDeclarations) {
  EXPECT_THAT(
      tokens("<?xml version='1.0'?><!DOCTYPE a [<!ELEMENT a ANY>]><!-- c - d --><?pi  x?>"
             "<![CDATA[<&]]]]>"),
      ElementsAre("XmldeclStart:xml", "AttributeStart:version", "CharData:1.0", "AttributeEnd",
                  "XmldeclEnd", "DoctypeStart", "CharData: a [<!ELEMENT a ANY>]", "DoctypeEnd",
                  "CommentStart", "CharData: c - d ", "CommentEnd", "PIStart:pi", "CharData:  x",
                  "PIEnd", "CDATAStart", "CharData:<&]]", "CDATAEnd", "DocumentEnd"));
  EXPECT_THAT(tokens("<?xml ?><!----><?t?><![CDATA[]]>"),
              ElementsAre("XmldeclStart:xml", "XmldeclEnd", "CommentStart", "CommentEnd",
                          "PIStart:t", "PIEnd", "CDATAStart", "CDATAEnd", "DocumentEnd"));

  expect_failures({
      {"<", "End of data in markup"},
      {"<!ELEMENT>", "Invalid character after '<!'"},
      {"<!-x-->", "Invalid character after '<!'"},
      {"<?xml", "End of data in xml declaration"},
      {"<?xml-stylesheet href='a'?>", "Invalid xml declaration name"},
      {"<?xml version='1.0'", "End of data in XML declaration"},
      {"<?xml version='1.0'encoding='UTF-8'?>", "Expecting whitespace before attribute name"},
      {"<?xml version='1.0", "End of data in attribute value"},
      {"<?1?>", "Invalid processing instruction target name"},
      {"<?pi data", "End of data in processing instruction"},
      {"<!-- a -- b -->", "[line 1, pos 7]: Sequence '--' is invalid in comment"},
      {"<!-- a --->", "Sequence '--' is invalid in comment"},
      {"<!-- a -", "End of data in comment"},
      {"<![CDATA[a]]", "End of data in CDATA"},
      {"<!DOCTYPE a [<!ELEMENT a ANY>]", "End of data in DOCTYPE"},
  });
}

TEST(TokenizerTest, LineEndsAreNormalisedAcrossTokenBoundaries) {
  EXPECT_THAT(tokens("a\r\nb\rc\r"), ElementsAre("CharData:a", "CharData:\nb", "CharData:\n",
                                                 "CharData:c", "DocumentEnd"));
  EXPECT_THAT(tokens("\r\n\r\r"), ElementsAre("CharData:\n", "CharData:\n", "DocumentEnd"));
  EXPECT_THAT(
      tokens("<a x='1\r\n2\r3'/>"),
      ElementsAre("StartTagStart:a", "AttributeStart:x", "CharData:1", "CharData:\n2",
                  "CharData:\n", "CharData:3", "AttributeEnd", "StartTagEndEmpty", "DocumentEnd"));
  EXPECT_THAT(
      tokens("<!--a\rb--><?p a\r\n?><![CDATA[\r]]><!DOCTYPE\r\n>"),
      ElementsAre("CommentStart", "CharData:a", "CharData:\n", "CharData:b", "CommentEnd",
                  "PIStart:p", "CharData: a", "CharData:\n", "PIEnd", "CDATAStart", "CharData:\n",
                  "CDATAEnd", "DoctypeStart", "CharData:\n", "DoctypeEnd", "DocumentEnd"));
  // A CR just before the terminator, and a CR LF split by the end of the data.
  EXPECT_THAT(tokens("<!--\r-->"),
              ElementsAre("CommentStart", "CharData:\n", "CommentEnd", "DocumentEnd"));
  EXPECT_EQ(error_of("<!--\r"), "[line 1, pos 5]: End of data in comment");
}

TEST(TokenizerTest, ErrorsNameLineAndPositionCountedInBytes) {
  // LF, CR LF and a lone CR each end one line, in text and in markup alike.
  EXPECT_EQ(error_of("<a\r\nx='1'\ry='2'\n>&;"), "[line 4, pos 2]: Invalid entity reference name");
  EXPECT_THAT(tokens("x\r\ny\r&;", 10).back(), HasSubstr("[line 12, pos 1]"));
  EXPECT_EQ(error_of("<r>\n<\xC3\xA9 x='1'y='2'/>"),
            "[line 2, pos 9]: Expecting whitespace before attribute name");
  EXPECT_EQ(error_of("<a>\n</a b>"), "[line 2, pos 0]: Invalid end tag");
  EXPECT_EQ(error_of("<a>\nab&;"), "[line 2, pos 3]: Invalid entity reference name");
  const auto uri = std::make_shared<const std::string>("file:///etc/{@line}.xml");
  EXPECT_EQ(tokens("&;", 1, uri).back(),
            "Error:[line 1, pos 1, uri <file:///etc/{@line}.xml>]: Invalid entity reference name");

  XmlStringTokenizer tokenizer("\n\n&;");
  while (tokenizer.next_token() != TokenKind::Error) {
  }
  const n7core::ErrorInfo& error = *tokenizer.error();
  EXPECT_STREQ(error.code().name(), "error.n7xml.tokenizer.syntaxError");
  EXPECT_EQ(*error.params().find("line"), "3");
  EXPECT_EQ(*error.params().find("linePos"), "1");
  EXPECT_EQ(*error.params().find("sourcePos"), "3");
  EXPECT_STREQ(error.location().function(), "parse_reference");
  EXPECT_STREQ(error.location().file(), "n7xml/string_tokenizer");
  EXPECT_EQ(tokenizer.token_value(), "");
}

// The line and position after each token, and after the last alone: the lines are counted up
// to wherever the tokenizer stands, however far it has read since it was last asked.
TEST(TokenizerTest, LineAndPositionFollowEveryToken) {
  constexpr std::string_view kDocument = "<a\r\n b='1'>x\ny\rz</a>\r\n";
  XmlStringTokenizer tokenizer(kDocument, nullptr, 3);
  std::vector<std::string> positions;
  do {
    tokenizer.next_token();
    positions.push_back(std::to_string(tokenizer.line()) + ":" +
                        std::to_string(tokenizer.line_position()));
  } while (tokenizer.last_token() != TokenKind::DocumentEnd);
  EXPECT_THAT(positions, ElementsAre("3:0", "3:2", "4:4", "4:5", "4:6", "4:7", "5:1", "6:0", "6:1",
                                     "6:5", "7:0", "7:0"));

  XmlStringTokenizer unasked(kDocument, nullptr, 3);
  while (unasked.next_token() != TokenKind::DocumentEnd) {
  }
  EXPECT_EQ(unasked.line(), 7);
  EXPECT_EQ(unasked.line_position(), 0);
}

TEST(TokenizerTest, NoTokensAfterTheEndOrAnError) {
  XmlStringTokenizer ended("<a/>");
  while (ended.next_token() != TokenKind::DocumentEnd) {
  }
  EXPECT_FALSE(ended.error());
  EXPECT_EQ(ended.next_token(), TokenKind::Error);
  EXPECT_EQ(ended.error()->message(), "[line 1, pos 4]: Read past end");

  XmlStringTokenizer failed("&;");
  failed.next_token();
  EXPECT_EQ(failed.next_token(), TokenKind::Error);
  const auto first = failed.error();
  EXPECT_EQ(failed.next_token(), TokenKind::Error);
  EXPECT_EQ(failed.last_token(), TokenKind::Error);
  EXPECT_NE(failed.error().get(), first.get());
  EXPECT_THAT(failed.error()->message(), HasSubstr("Cannot continue after error"));
}

TEST(TokenizerTest, NamesFollowTheXmlCharacterClasses) {
  // Letters, ideographs, digits, combining characters and extenders from beyond ASCII.
  EXPECT_THAT(
      tokens("<\xC3\xA9l\xC3\xA8ve/><\xE4\xB8\xAD\xE6\x96\x87/><_a-1.b:\xCC\x81\xC2\xB7/>"),
      ElementsAre("StartTagStart:\xC3\xA9l\xC3\xA8ve", "StartTagEndEmpty:\xC3\xA9l\xC3\xA8ve",
                  "StartTagStart:\xE4\xB8\xAD\xE6\x96\x87",
                  "StartTagEndEmpty:\xE4\xB8\xAD\xE6\x96\x87",
                  "StartTagStart:_a-1.b:\xCC\x81\xC2\xB7",
                  "StartTagEndEmpty:_a-1.b:\xCC\x81\xC2\xB7", "DocumentEnd"));
  EXPECT_EQ(error_of("<1a/>"), "[line 1, pos 1]: Invalid start tag name");
  EXPECT_EQ(error_of("<\xCC\x81/>"), "[line 1, pos 1]: Invalid start tag name");  // combining first
  EXPECT_EQ(error_of("<a\xC3\x97/>"), "[line 1, pos 0]: Invalid start tag name");  // U+00D7
  // Text is not classified: any valid character will do.
  EXPECT_THAT(tokens("\xF0\x9F\x98\x80\xC3\x97"),
              ElementsAre("CharData:\xF0\x9F\x98\x80\xC3\x97", "DocumentEnd"));
}

TEST(TokenizerTest, InvalidUtf8ThrowsTheCoreErrorAndStopsTheTokenizer) {
  for (const char* document :
       {"ab\xC3(", "<a\xFF/>", "<!-- \xED\xA0\x80 -->", "&a\xC3", "<a x='\x80'"}) {
    XmlStringTokenizer tokenizer(document);
    const auto error = n7core::test_support::thrown_error([&] {
      for (int i = 0; i < 20; ++i) tokenizer.next_token();
    });
    EXPECT_EQ(error.code, "error.n7core.string.invalidUtf8") << document;
    EXPECT_EQ(tokenizer.next_token(), TokenKind::Error);
    EXPECT_THAT(tokenizer.error()->message(), HasSubstr("Cannot continue after error"));
  }
}

TEST(TokenizerTest, KindNames) {
  EXPECT_STREQ(token_kind_name(TokenKind::DocumentStart), "DocumentStart");
  EXPECT_STREQ(token_kind_name(static_cast<TokenKind>(0)), "Unknown");
  EXPECT_STREQ(token_kind_name(static_cast<TokenKind>(23)), "Unknown");
}

}  // namespace
}  // namespace n7xml
