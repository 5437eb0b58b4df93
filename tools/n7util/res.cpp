// n7util res: a module's resources as the resource manager finds them.
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "args.h"
#include "command.h"
#include "n7utility/Utility/ResourceMgr.h"
#include "n7utility/core/text.h"
#include "n7utility/platform/system/Resources.h"

namespace n7util {
namespace {

// A language identifier, hexadecimal with 0x or decimal, from 0 to 0xFFFF.
WORD parse_language(std::string_view text) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    std::size_t used = 0;
    unsigned long value = 0;
    try {
      value = std::stoul(std::string(text.substr(2)), &used, 16);
    } catch (const std::exception&) {
      used = 0;
    }
    if (used != text.size() - 2 || value > 0xFFFF || text[2] == '-' || text[2] == '+') {
      throw UsageError("language must be a number from 0 to 0xFFFF, not '" + std::string(text) +
                       "'");
    }
    return static_cast<WORD>(value);
  }
  return static_cast<WORD>(parse_integer(text, 0, 0xFFFF, "language"));
}

int run_string(const std::vector<std::string_view>& arg_list) {
  const Args args(arg_list, {{"lang", true}});
  args.expect_operands(2, 2);
  const std::string_view path = args.operands()[0];
  const auto id = static_cast<UINT>(parse_integer(args.operands()[1], 0, 0xFFFF, "string id"));
  const WORD language = args.has("lang") ? parse_language(*args.value("lang")) : 0;
  HINSTANCE module =
      LoadLibraryExW(n7core::to_wstring(path).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  if (module == nullptr) {
    print_error("cannot load the module '" + std::string(path) + "'");
    return kExitUsage;
  }
  CResourceMgr manager(module);
  const CString text = manager.LoadStringW(id, 1, language);
  if (text.IsEmpty()) {
    print_error(n7core::to_string(manager.LoadStringW(id, 0, language).str()));
    return kExitFailure;
  }
  std::cout << n7core::to_string(text.str()) << '\n';
  return kExitOk;
}

// The group's subcommands; the shell completion lists them from here too.
constexpr Subcommand kSubcommands[] = {{"string", run_string}};

int run_res(const std::vector<std::string_view>& args) {
  return run_subcommand(kSubcommands, args);
}

constexpr std::string_view kUsage =
    "Usage: n7util res string MODULE ID [--lang LANGID]\n"
    "\n"
    "string  Prints string ID (0 to 65535) of the module file MODULE as the resource manager\n"
    "        loads it. With --lang (hexadecimal with 0x, or decimal: 0x0407), the string comes\n"
    "        from the language resource module res/NameRes.<code>.dll beside a module\n"
    "        Name.dll, Name.exe or Name.ocx, else from that of the language's primary language,\n"
    "        else from MODULE itself.\n"
    "\n"
    "Exit status: 0 when the string was found, 1 when it was not (the manager's placeholder\n"
    "text goes to standard error), 2 on a usage error or a module that cannot be loaded.\n";

}  // namespace

extern const Command res_command = {"res", "Prints a module's string resources", kUsage, run_res,
                                    kSubcommands};

}  // namespace n7util
