// n7rc, the project's resource compiler: reads a resource description and writes the C++ source of
// the module's resource table (platform/system/ResourceTable.h). The description language is
// described at the top of compiler.cpp.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace n7rc {

// A mistake in the description, at a line (1-based).
class CompileError : public std::runtime_error {
 public:
  CompileError(int line, const std::string& message) : std::runtime_error(message), line_(line) {}
  int line() const { return line_; }

 private:
  int line_;
};

// A resource type or name: a number, or an upper-case name.
struct ResourceId {
  std::uint16_t id = 0;
  std::optional<std::wstring> name;

  friend bool operator==(const ResourceId&, const ResourceId&) = default;
};

// One item of the table. String blocks are held as wide characters, everything else as bytes.
struct Resource {
  ResourceId type;
  ResourceId name;
  std::uint16_t language = 0;
  std::vector<unsigned char> bytes;
  std::vector<wchar_t> wide;  // string blocks only
  bool is_wide = false;
};

struct CompiledResources {
  std::vector<Resource> resources;
  std::vector<std::filesystem::path> inputs;  // files the description reads, for the depfile
};

// Compiles `description`; `base_dir` is where relative `file` paths start. Throws CompileError.
CompiledResources compile(std::string_view description, const std::filesystem::path& base_dir);

// The C++ source of the table; `origin` names the description in its header comment.
std::string generate_source(const CompiledResources& compiled, std::string_view origin);

}  // namespace n7rc
