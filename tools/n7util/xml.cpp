// n7util xml: the XML tokenizer's token stream of a document, and a well-formedness check with
// the pull reader.
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "args.h"
#include "command.h"
#include "input.h"
#include "n7utility/core/error.h"
#include "n7utility/n7xml/reader.h"
#include "n7utility/n7xml/string_tokenizer.h"
#include "n7utility/platform/base/EscapedText.h"

namespace n7util {
namespace {

constexpr std::int64_t kMaxFirstLine = 1'000'000'000;

void append_line(std::string& out, std::string_view kind, std::string_view value) {
  out += kind;
  if (!value.empty()) {
    out += '\t';
    // Backslash, tab, line feed and carriage return as \\ \t \n \r, other bytes below 0x20 as
    // \xHH: a value stays on its line.
    n7platform::AppendEscaped(out, value, n7platform::ControlEscape::kHexByte);
  }
  out += '\n';
}

// Writes one line per token; true when the stream ended with DocumentEnd.
bool print_tokens(std::string_view document, std::shared_ptr<const std::string> uri,
                  int first_line) {
  n7xml::XmlStringTokenizer tokenizer(document, std::move(uri), first_line);
  std::string out;
  n7xml::TokenKind kind = n7xml::TokenKind::DocumentStart;
  do {
    try {
      kind = tokenizer.next_token();
    } catch (const std::exception&) {
      // The core services' UTF-8 check: its error ends the stream like any other.
      append_line(out, "Error",
                  n7core::ErrorInfo::from_exception(std::current_exception())->message());
      kind = n7xml::TokenKind::Error;
      break;
    }
    const std::string_view value =
        kind == n7xml::TokenKind::Error ? tokenizer.error()->message() : tokenizer.token_value();
    append_line(out, n7xml::token_kind_name(kind), value);
  } while (kind != n7xml::TokenKind::DocumentEnd && kind != n7xml::TokenKind::Error);
  std::cout << out;
  return kind == n7xml::TokenKind::DocumentEnd;
}

int run_tokens(const std::vector<std::string_view>& arg_list) {
  const Args args(arg_list, {{"first-line", true}, {"uri", true}});
  args.expect_operands(1, 1);
  int first_line = 1;
  if (const auto text = args.value("first-line")) {
    first_line =
        static_cast<int>(parse_integer(*text, -kMaxFirstLine, kMaxFirstLine, "first line"));
  }
  std::shared_ptr<const std::string> uri;
  if (const auto text = args.value("uri")) uri = std::make_shared<const std::string>(*text);
  const auto document = read_input(args.operands()[0]);
  if (!document) return kExitUsage;
  return print_tokens(*document, std::move(uri), first_line) ? kExitOk : kExitFailure;
}

int run_check(const std::vector<std::string_view>& arg_list) {
  const Args args(arg_list, {});
  args.expect_operands(1, 1);
  const std::string_view path = args.operands()[0];
  const auto document = read_input(path);
  if (!document) return kExitUsage;
  try {
    n7xml::XmlReader reader(*document);
    while (reader.read()) {
    }
  } catch (const n7core::ErrorException& e) {
    print_error(std::string(path) + ": " + e.info().message());
    return kExitFailure;
  }
  return kExitOk;
}

// The group's subcommands; the shell completion lists them from here too.
constexpr Subcommand kSubcommands[] = {{"tokens", run_tokens}, {"check", run_check}};

int run_xml(const std::vector<std::string_view>& args) {
  return run_subcommand(kSubcommands, args);
}

constexpr std::string_view kUsage =
    "Usage: n7util xml tokens [--first-line N] [--uri URI] FILE\n"
    "       n7util xml check FILE\n"
    "\n"
    "tokens  Cuts the XML document FILE (\"-\": standard input) into tokens and prints one line\n"
    "        per token: its kind, then a tab and its value when it has one. In values,\n"
    "        backslash, tab, line feed and carriage return are written \\\\ \\t \\n \\r and other\n"
    "        bytes below 0x20 as \\xHH. An Error line's value is the error message, which\n"
    "        names the line (counted from N, default 1) and the byte position in it, and URI\n"
    "        when one is given.\n"
    "check   Reads FILE with the pull reader and reports the first well-formedness error.\n"
    "\n"
    "Exit status: 0 when the token stream ends with DocumentEnd (tokens) or the document is\n"
    "well-formed (check), 1 on an error in the document, 2 on a usage error or unreadable FILE.\n";

}  // namespace

extern const Command xml_command = {"xml", "Prints an XML document's tokens or checks it", kUsage,
                                    run_xml, kSubcommands};

}  // namespace n7util
