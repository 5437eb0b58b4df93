// n7rc INPUT -o OUTPUT [--depfile DEPFILE]: compiles the resource description INPUT into the C++
// source OUTPUT (see compiler.cpp for the language). A mistake in INPUT is reported as
// "INPUT:LINE: error: ..." on standard error and fails with status 1; a bad command line or an
// unwritable output with status 2.
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "compiler.h"

namespace {

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
  Options options;
  if (!parse_options(argc, argv, options)) {
    std::cerr << "usage: n7rc INPUT -o OUTPUT [--depfile DEPFILE]\n";
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
