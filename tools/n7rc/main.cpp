// n7rc INPUT -o OUTPUT [--depfile DEPFILE]: compiles the resource description INPUT into the C++
// source OUTPUT (see compiler.cpp for the language). A mistake in INPUT is reported as
// "INPUT:LINE: error: ..." on standard error and fails with status 1; a bad command line or an
// unwritable output with status 2. `n7rc --help` and `n7rc --version` are what the manual page is
// made from.
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "compiler.h"

namespace {

constexpr std::string_view kUsage = "Usage: n7rc INPUT -o OUTPUT [--depfile DEPFILE]\n";

constexpr std::string_view kHelp =
    "Compiles the resource description INPUT into OUTPUT, the C++ source of a module's resource\n"
    "table. The CMake functions n7_add_resources and n7_add_resource_module of the CMake\n"
    "package n7utility run it as a build step.\n"
    "\n"
    "  -o OUTPUT           the C++ source to write\n"
    "  --depfile DEPFILE   also write a Makefile rule naming the files INPUT reads\n"
    "  --help, --version   print this help or the version\n"
    "\n"
    "A description is UTF-8 text, one statement per line; '#' starts a comment:\n"
    "  language LANGID                   language of the items that follow (0 until set)\n"
    "  string ID TEXT                    string table entry, ID 0 to 65535\n"
    "  message ID TEXT                   message table entry, ID 0 to 0xFFFFFFFF\n"
    "  resource TYPE NAME file PATH      an item holding the bytes of the file PATH\n"
    "  resource TYPE NAME bytes HH ...   an item holding the bytes given in hexadecimal\n"
    "  resource TYPE NAME text TEXT      an item holding the UTF-8 bytes of TEXT\n"
    "TEXT is one or more double-quoted literals, joined; a line that starts with a literal\n"
    "continues the statement above. Escapes: \\\\ \\\" \\n \\r \\t \\xHH \\uHHHH \\UHHHHHHHH.\n"
    "Numbers are decimal or hexadecimal with 0x. TYPE is a standard type name (RCDATA, MENU,\n"
    "...), a number from 1 to 65535 or a quoted name; NAME is a number, a word or a quoted text.\n"
    "\n"
    "Exit status: 0 success, 1 a mistake in INPUT (reported as INPUT:LINE: error: ...),\n"
    "2 a bad command line or a file that cannot be read or written.\n";

struct Options {
  std::string input;
  std::string output;
  std::string depfile;
};

bool parse_options(int argc, char** argv, Options& options) {
  const std::vector<std::string_view> args(argv + 1, argv + argc);
  for (std::size_t i = 0; i < args.size(); ++i) {
    if ((args[i] == "-o" || args[i] == "--depfile") && i + 1 < args.size()) {
      std::string& value = args[i] == "-o" ? options.output : options.depfile;
      value = args[++i];
    } else if (options.input.empty() && !args[i].starts_with('-')) {
      options.input = args[i];
    } else {
      return false;
    }
  }
  return !options.input.empty() && !options.output.empty();
}

// A path as a Makefile rule writes it.
std::string escape_make(const std::string& path) {
  std::string out;
  for (const char c : path) {
    if (c == ' ' || c == '#') out += '\\';
    if (c == '$') out += '$';
    out += c;
  }
  return out;
}

bool write_file(const std::string& path, const std::string& contents) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << contents;
  file.close();
  if (!file) std::cerr << "n7rc: cannot write '" << path << "'\n";
  return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::cout << kUsage << '\n' << kHelp;
    return std::cout.flush() ? 0 : 1;
  }
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::cout << "n7rc " << N7RC_VERSION << '\n';
    return std::cout.flush() ? 0 : 1;
  }
  Options options;
  if (!parse_options(argc, argv, options)) {
    std::cerr << "usage: n7rc INPUT -o OUTPUT [--depfile DEPFILE] (try 'n7rc --help')\n";
    return 2;
  }
  std::ifstream input(options.input, std::ios::binary);
  if (!input) {
    std::cerr << "n7rc: cannot read '" << options.input << "'\n";
    return 2;
  }
  const std::string description(std::istreambuf_iterator<char>(input), {});
  n7rc::CompiledResources compiled;
  try {
    compiled = n7rc::compile(description, std::filesystem::path(options.input).parent_path());
  } catch (const n7rc::CompileError& e) {
    std::cerr << options.input << ':' << e.line() << ": error: " << e.what() << '\n';
    return 1;
  }
  if (!write_file(options.output, n7rc::generate_source(compiled, options.input))) return 2;
  if (options.depfile.empty()) return 0;
  std::ostringstream rule;
  rule << escape_make(options.output) << ':';
  for (const auto& path : compiled.inputs) rule << ' ' << escape_make(path.string());
  rule << '\n';
  return write_file(options.depfile, rule.str()) ? 0 : 2;
}
