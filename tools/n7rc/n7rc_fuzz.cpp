// libFuzzer target: the resource compiler over arbitrary descriptions. A description must either
// compile or be refused with CompileError; `file` statements read from a temporary directory that
// holds a small data file and a subdirectory, and nothing is ever written. A description that
// compiles must compile to the same items again and generate the same source twice, and every
// name and wide string it keeps must be made of Unicode code points (a byte sign-extended on its
// way in shows up as a negative value), with names upper-cased.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "compiler.h"
#include "n7utility/platform/base/Check_fuzz.h"

namespace {

using n7fuzz::check;

// A directory for `file` statements: "data.bin", and "dir", a directory a file name may name.
class Inputs {
 public:
  Inputs() {
    std::string pattern = (std::filesystem::temp_directory_path() / "n7rcfuzz.XXXXXX").string();
    check(mkdtemp(pattern.data()) != nullptr, "no temporary directory");
    directory_ = pattern;
    std::filesystem::create_directory(directory_ / "dir");
    std::ofstream(directory_ / "data.bin", std::ios::binary) << "data\n";
  }
  ~Inputs() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  Inputs(const Inputs&) = delete;
  Inputs& operator=(const Inputs&) = delete;
  const std::filesystem::path& directory() const { return directory_; }

 private:
  std::filesystem::path directory_;
};

// Device and process files can be endless; a description naming one is not compiled.
bool NamesSystemFiles(std::string_view description) {
  for (const std::string_view prefix : {"/dev", "/proc", "/sys"}) {
    if (description.find(prefix) != std::string_view::npos) return true;
  }
  return false;
}

void CheckCodePoints(const std::wstring& text, bool is_name) {
  for (const wchar_t c : text) {
    // A negative wchar_t is a byte sign-extended on its way in.
    check(c >= 0 && c <= 0x10FFFF, "a name or text holds a value outside U+0000 to U+10FFFF");
    if (is_name) check(!(c >= L'a' && c <= L'z'), "a name is not upper-cased");
  }
}

void CheckId(const n7rc::ResourceId& id) {
  if (id.name) {
    check(!id.name->empty(), "an empty resource name");
    CheckCodePoints(*id.name, true);
  }
}

bool SameItems(const n7rc::CompiledResources& a, const n7rc::CompiledResources& b) {
  if (a.resources.size() != b.resources.size()) return false;
  for (std::size_t i = 0; i < a.resources.size(); ++i) {
    const n7rc::Resource& x = a.resources[i];
    const n7rc::Resource& y = b.resources[i];
    if (!(x.type == y.type && x.name == y.name && x.language == y.language && x.bytes == y.bytes &&
          x.wide == y.wide && x.is_wide == y.is_wide)) {
      return false;
    }
  }
  return true;
}

// Seeds: each kind of statement, continued texts and escapes, and a `file` statement.
void WriteSeeds(const std::filesystem::path& directory) {
  n7fuzz::write_seed(directory, "strings",
                     "language 0x0409\n"
                     "string 1 \"Ready.\" \" Waiting.\"  # joined\n"
                     "string 65535 \"A long text, \"\n"
                     "         \"continued: \\u00e9 \\U0001F600 \\x41\\t\"\n"
                     "message 0x40000001 \"Service %1 started.\\r\\n\"\n");
  n7fuzz::write_seed(directory, "resources",
                     "language 0x0407\n"
                     "resource RCDATA SETTINGS file \"data.bin\"\n"
                     "resource \"TEMPLATE\" 7 text \"<a>\\u00e9</a>\"\n"
                     "resource 300 name bytes 4D 5A 00 ff\n");
  n7fuzz::write_seed(directory, "mistake", "string 70000 \"too large\"\n");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  n7fuzz::write_seeds_if_asked(WriteSeeds);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Inputs inputs;
  const std::string description(n7fuzz::as_text(data, size));
  if (NamesSystemFiles(description)) return 0;
  n7rc::CompiledResources compiled;
  try {
    compiled = n7rc::compile(description, inputs.directory());
  } catch (const n7rc::CompileError& error) {
    check(error.line() >= 1, "a compile error without a line");
    return 0;
  }
  for (const n7rc::Resource& item : compiled.resources) {
    CheckId(item.type);
    CheckId(item.name);
    CheckCodePoints(std::wstring(item.wide.begin(), item.wide.end()), false);
  }
  check(SameItems(n7rc::compile(description, inputs.directory()), compiled),
        "compiling twice gave different items");
  const std::string source = n7rc::generate_source(compiled, "fuzz");
  check(n7rc::generate_source(compiled, "fuzz") == source, "generating twice gave different text");
  check(source.find("{-") == std::string::npos && source.find(", -") == std::string::npos,
        "the generated source holds a negative number");
  return 0;
}
