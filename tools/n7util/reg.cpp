// n7util reg: reads, writes, lists, saves, restores and watches registry keys.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "args.h"
#include "command.h"
#include "n7utility/core/text.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/Registry.h"

namespace n7util {
namespace {

struct TypeName {
  DWORD type;
  std::string_view name;
};

constexpr TypeName kTypes[] = {
    {REG_NONE, "REG_NONE"},     {REG_SZ, "REG_SZ"},       {REG_EXPAND_SZ, "REG_EXPAND_SZ"},
    {REG_BINARY, "REG_BINARY"}, {REG_DWORD, "REG_DWORD"}, {REG_MULTI_SZ, "REG_MULTI_SZ"},
    {REG_QWORD, "REG_QWORD"},
};

std::string type_name(DWORD type) {
  for (const TypeName& known : kTypes)
    if (known.type == type) return std::string(known.name);
  return "REG_TYPE_" + std::to_string(type);
}

DWORD parse_type(std::string_view name) {
  for (const TypeName& known : kTypes)
    if (known.name == name) return known.type;
  throw UsageError("unknown value type '" + std::string(name) + "'");
}

// Fails the command with the registry's error code.
void check(LSTATUS status, std::string_view what) {
  if (status != ERROR_SUCCESS)
    throw std::runtime_error(std::string(what) + ": error " + std::to_string(status));
}

// An open key, closed at the end of the scope.
class Key {
 public:
  Key(std::string_view path, REGSAM access, bool create) : path_(path) {
    const auto [root, sub_key] = split(path);
    const std::wstring wide = n7core::to_wstring(sub_key);
    DWORD disposition = REG_OPENED_EXISTING_KEY;
    const LSTATUS status = create ? RegCreateKeyExW(root, wide.c_str(), 0, nullptr, 0, access,
                                                    nullptr, &key_, &disposition)
                                  : RegOpenKeyExW(root, wide.c_str(), 0, access, &key_);
    check(status, "cannot open " + path_);
    created_ = disposition == REG_CREATED_NEW_KEY;
  }
  ~Key() { RegCloseKey(key_); }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;

  HKEY get() const { return key_; }
  const std::string& path() const { return path_; }

  // Deletes the key if this object created it, so that a command that fails after creating its
  // key leaves nothing behind.
  void DeleteIfCreated() const {
    if (!created_) return;
    const auto [root, sub_key] = split(path_);
    RegDeleteKeyW(root, n7core::to_wstring(sub_key).c_str());
  }

  // The predefined key a path starts with, and the rest of the path.
  static std::pair<HKEY, std::string_view> split(std::string_view path) {
    static const std::pair<std::string_view, HKEY> kRoots[] = {
        {"HKLM", HKEY_LOCAL_MACHINE}, {"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
        {"HKCU", HKEY_CURRENT_USER},  {"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
        {"HKCR", HKEY_CLASSES_ROOT},  {"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
        {"HKU", HKEY_USERS},          {"HKEY_USERS", HKEY_USERS},
    };
    const std::size_t slash = std::min(path.find('\\'), path.size());
    std::string first(path.substr(0, slash));
    for (char& c : first) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    for (const auto& [name, root] : kRoots)
      if (name == first) return {root, path.substr(std::min(slash + 1, path.size()))};
    throw UsageError("a key path starts with HKLM, HKCU, HKCR or HKU: '" + std::string(path) + "'");
  }

 private:
  std::string path_;
  HKEY key_ = nullptr;
  bool created_ = false;
};

struct Value {
  DWORD type = 0;
  std::vector<BYTE> data;
  bool operator==(const Value&) const = default;
};

std::wstring wide_text(const std::vector<BYTE>& data) {
  std::wstring text(data.size() / sizeof(wchar_t), L'\0');
  std::copy(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(text.size() * sizeof(wchar_t)),
            reinterpret_cast<BYTE*>(text.data()));
  return text;
}

template <typename Number>
Number number_of(const std::vector<BYTE>& data) {
  Number number = 0;
  std::copy_n(data.begin(), std::min(sizeof number, data.size()), reinterpret_cast<BYTE*>(&number));
  return number;
}

// The data as a person reads it: text up to its terminator, "\0" between the strings of a
// multi-string, numbers in decimal, anything else as hexadecimal bytes.
std::string show(const Value& value) {
  std::wstring text = wide_text(value.data);
  switch (value.type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
      return n7core::to_string(text.substr(0, text.find(L'\0')));
    case REG_MULTI_SZ: {
      while (!text.empty() && text.back() == L'\0') text.pop_back();
      std::string shown;
      for (const wchar_t c : text)
        shown += c == L'\0' ? "\\0" : n7core::to_string(std::wstring(1, c));
      return shown;
    }
    case REG_DWORD:
      return std::to_string(number_of<std::uint32_t>(value.data));
    case REG_QWORD:
      return std::to_string(number_of<std::uint64_t>(value.data));
    default: {
      std::string hex;
      char digits[3];
      for (const BYTE byte : value.data) {
        std::snprintf(digits, sizeof digits, "%02x", byte);
        hex += digits;
      }
      return hex;
    }
  }
}

std::uint64_t parse_number(std::string_view text, std::uint64_t max) {
  std::uint64_t number = 0;
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || number > max)
    throw UsageError("not a number for this type: '" + std::string(text) + "'");
  return number;
}

std::vector<BYTE> bytes_of(const std::wstring& text) {
  const auto* begin = reinterpret_cast<const BYTE*>(text.c_str());
  return std::vector<BYTE>(begin, begin + (text.size() + 1) * sizeof(wchar_t));
}

template <typename Number>
std::vector<BYTE> bytes_of_number(Number number) {
  const auto* begin = reinterpret_cast<const BYTE*>(&number);
  return std::vector<BYTE>(begin, begin + sizeof number);
}

// The bytes to store for DATA given as text, the way `show` prints it.
std::vector<BYTE> parse_data(DWORD type, std::string_view data) {
  switch (type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
      return bytes_of(n7core::to_wstring(data));
    case REG_MULTI_SZ: {
      std::wstring strings;
      for (std::size_t at = 0; at <= data.size();) {
        const std::size_t end = std::min(data.find("\\0", at), data.size());
        strings += n7core::to_wstring(data.substr(at, end - at));
        strings += L'\0';
        at = end + 2;
      }
      return bytes_of(strings);
    }
    case REG_DWORD:
      return bytes_of_number(static_cast<std::uint32_t>(parse_number(data, 0xFFFFFFFFu)));
    case REG_QWORD:
      return bytes_of_number(parse_number(data, UINT64_MAX));
    default: {
      if (data.size() % 2 != 0) throw UsageError("binary data is an even number of hex digits");
      std::vector<BYTE> bytes;
      for (std::size_t at = 0; at < data.size(); at += 2)
        bytes.push_back(
            static_cast<BYTE>(parse_number("0x" + std::string(data.substr(at, 2)), 255)));
      return bytes;
    }
  }
}

std::string shown_name(const std::string& name) { return name.empty() ? "(Default)" : name; }

// Every value of the key, by name.
std::map<std::string, Value> read_values(HKEY key) {
  std::map<std::string, Value> values;
  DWORD count = 0, longest_name = 0, longest_data = 0;
  check(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count,
                         &longest_name, &longest_data, nullptr, nullptr),
        "cannot read the key");
  for (DWORD index = 0; index < count; ++index) {
    std::wstring name(longest_name + 1, L'\0');
    DWORD name_length = longest_name + 1;
    Value value;
    value.data.resize(longest_data);
    DWORD size = longest_data;
    check(RegEnumValueW(key, index, name.data(), &name_length, nullptr, &value.type,
                        value.data.data(), &size),
          "cannot read a value");
    value.data.resize(size);
    values.emplace(n7core::to_string(name.substr(0, name_length)), std::move(value));
  }
  return values;
}

// The subkeys' names, in the registry's order.
std::vector<std::string> read_subkeys(HKEY key) {
  std::vector<std::string> names;
  for (DWORD index = 0;; ++index) {
    wchar_t name[256];
    DWORD length = 256;
    const LSTATUS status =
        RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS) return names;
    check(status, "cannot list the subkeys");
    names.push_back(n7core::to_string(std::wstring(name, length)));
  }
}

void print_value(const std::string& name, const Value& value) {
  std::cout << shown_name(name) << '\t' << type_name(value.type) << '\t' << show(value) << '\n';
}

int query(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"value", true}});
  parsed.expect_operands(1, 1);
  const Key key(parsed.operands()[0], KEY_READ, false);
  if (const auto name = parsed.value("value")) {
    const std::wstring wide = n7core::to_wstring(*name);
    Value value;
    DWORD size = 0;
    check(RegQueryValueExW(key.get(), wide.c_str(), nullptr, &value.type, nullptr, &size),
          "no value '" + std::string(*name) + "'");
    value.data.resize(size);
    check(RegQueryValueExW(key.get(), wide.c_str(), nullptr, &value.type, value.data.data(), &size),
          "cannot read '" + std::string(*name) + "'");
    print_value(std::string(*name), value);
    return kExitOk;
  }
  for (const auto& [name, value] : read_values(key.get())) print_value(name, value);
  return kExitOk;
}

int set(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"value", true}, {"type", true}, {"data", true}});
  parsed.expect_operands(1, 1);
  const DWORD type = parse_type(parsed.value("type").value_or("REG_SZ"));
  const std::vector<BYTE> data = parse_data(type, parsed.value("data").value_or(""));
  const Key key(parsed.operands()[0], KEY_WRITE, true);
  const std::wstring name = n7core::to_wstring(parsed.value("value").value_or(""));
  check(RegSetValueExW(key.get(), name.c_str(), 0, type, data.data(),
                       static_cast<DWORD>(data.size())),
        "cannot set the value");
  return kExitOk;
}

int remove(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"value", true}});
  parsed.expect_operands(1, 1);
  if (const auto name = parsed.value("value")) {
    const Key key(parsed.operands()[0], KEY_SET_VALUE, false);
    check(RegDeleteValueW(key.get(), n7core::to_wstring(*name).c_str()),
          "cannot delete '" + std::string(*name) + "'");
    return kExitOk;
  }
  const auto [root, sub_key] = Key::split(parsed.operands()[0]);
  check(RegDeleteKeyW(root, n7core::to_wstring(sub_key).c_str()), "cannot delete the key");
  return kExitOk;
}

int enumerate(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(1, 1);
  const Key key(parsed.operands()[0], KEY_ENUMERATE_SUB_KEYS, false);
  for (const std::string& name : read_subkeys(key.get())) std::cout << name << '\n';
  return kExitOk;
}

int save(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(2, 2);
  const Key key(parsed.operands()[0], KEY_READ, false);
  check(RegSaveKeyW(key.get(), n7core::to_wstring(parsed.operands()[1]).c_str(), nullptr),
        "cannot save the key");
  return kExitOk;
}

int restore(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(2, 2);
  const Key key(parsed.operands()[0], KEY_ALL_ACCESS, true);
  const LSTATUS status =
      RegRestoreKeyW(key.get(), n7core::to_wstring(parsed.operands()[1]).c_str(), 0);
  if (status != ERROR_SUCCESS) key.DeleteIfCreated();
  check(status, "cannot restore the key");
  return kExitOk;
}

// Prints what differs between two looks at a key; false when nothing does.
bool print_changes(const std::map<std::string, Value>& before,
                   const std::map<std::string, Value>& after,
                   const std::set<std::string>& subkeys_before,
                   const std::set<std::string>& subkeys_after) {
  bool any = false;
  for (const auto& [name, value] : after) {
    const auto old = before.find(name);
    if (old != before.end() && old->second == value) continue;
    std::cout << "set\t";
    print_value(name, value);
    any = true;
  }
  for (const auto& [name, value] : before) {
    if (after.contains(name)) continue;
    std::cout << "deleted\t" << shown_name(name) << '\n';
    any = true;
  }
  for (const std::string& name : subkeys_after) {
    if (subkeys_before.contains(name)) continue;
    std::cout << "added key\t" << name << '\n';
    any = true;
  }
  for (const std::string& name : subkeys_before) {
    if (subkeys_after.contains(name)) continue;
    std::cout << "deleted key\t" << name << '\n';
    any = true;
  }
  return any;
}

int watch(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"subtree"}});
  parsed.expect_operands(1, 1);
  const Key key(parsed.operands()[0], KEY_READ, false);
  const auto values = read_values(key.get());
  const std::vector<std::string> subkeys = read_subkeys(key.get());
  HANDLE changed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  constexpr DWORD kFilter =
      REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_CHANGE_SECURITY;
  check(RegNotifyChangeKeyValue(key.get(), parsed.has("subtree") ? TRUE : FALSE, kFilter, changed,
                                TRUE),
        "cannot watch the key");
  std::cerr << "n7util: watching " << key.path() << std::endl;
  WaitForSingleObject(changed, INFINITE);
  CloseHandle(changed);
  const std::vector<std::string> subkeys_after = read_subkeys(key.get());
  if (!print_changes(values, read_values(key.get()), {subkeys.begin(), subkeys.end()},
                     {subkeys_after.begin(), subkeys_after.end()}))
    std::cout << "changed\t" << key.path() << '\n';
  return kExitOk;
}

// The group's subcommands; the shell completion lists them from here too.
constexpr Subcommand kSubcommands[] = {{"query", query},    {"set", set},   {"delete", remove},
                                       {"enum", enumerate}, {"save", save}, {"restore", restore},
                                       {"watch", watch}};

int run_reg(const std::vector<std::string_view>& args) {
  return run_subcommand(kSubcommands, args);
}

constexpr std::string_view kUsage =
    "Usage: n7util reg query KEY [--value NAME]\n"
    "       n7util reg set KEY [--value NAME] [--type TYPE] [--data DATA]\n"
    "       n7util reg delete KEY [--value NAME]\n"
    "       n7util reg enum KEY\n"
    "       n7util reg save KEY FILE\n"
    "       n7util reg restore KEY FILE\n"
    "       n7util reg watch KEY [--subtree]\n"
    "\n"
    "KEY is a registry path such as 'HKLM\\Software\\Example', starting with HKLM, HKCU, HKCR or\n"
    "HKU (or their long names); names do not depend on case. An empty NAME (--value=) is the\n"
    "key's default value. The store is in $N7_REGISTRY_DIR when it is set.\n"
    "\n"
    "  query    prints the key's values, or the one named, as NAME<TAB>TYPE<TAB>DATA\n"
    "  set      writes a value (REG_SZ unless --type says otherwise), creating the key; TYPE is\n"
    "           REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ (strings separated by \\0), REG_DWORD,\n"
    "           REG_QWORD (decimal or 0x hexadecimal) or REG_BINARY (hexadecimal bytes)\n"
    "  delete   deletes the value named, or else the key (which must have no subkeys)\n"
    "  enum     prints the names of the key's subkeys\n"
    "  save     writes the key and everything below it to FILE, which must not exist\n"
    "  restore  replaces the key's values and subkeys with those saved in FILE\n"
    "  watch    waits for one change to the key (or below it, with --subtree) and prints it:\n"
    "           'set', 'deleted', 'added key' or 'deleted key' lines, or 'changed' and the key\n"
    "\n"
    "Exit status: 0 success, 1 failure (the registry's error code is printed), 2 usage error.\n";

}  // namespace

extern const Command reg_command = {"reg", "Reads, writes and watches registry keys", kUsage,
                                    run_reg, kSubcommands};

}  // namespace n7util
