#include "n7utility/platform/system/Resources.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/FormatMessage.h"
#include "n7utility/platform/system/Resources_internal.h"

namespace {

namespace codec = n7platform::codec;

constexpr DWORD kNoUnicodeTranslation = 1113;  // ERROR_NO_UNICODE_TRANSLATION

// How tables are found: null for the dynamic linker's lookup.
std::atomic<n7platform::internal::ResourceTableLookup> table_lookup{nullptr};

using n7platform::internal::DynamicResourceTable;

constexpr WORD kMessageWideText = 1;
constexpr WORD kNeutral = MAKELANGID(LANG_NEUTRAL, SUBLANG_NEUTRAL);
constexpr WORD kUsEnglish = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);

// ---- Modules ----

struct ModuleInfo {
  HMODULE base;
  std::string file;  // as the dynamic linker knows it
  bool main_program;
};

HMODULE BaseOfAddress(const void* address) {
  Dl_info info{};
  if (address == nullptr || dladdr(address, &info) == 0) return nullptr;
  return static_cast<HMODULE>(info.dli_fbase);
}

HMODULE MainProgram() {
  // The program's own program headers lie in its first mapping.
  const auto headers = reinterpret_cast<const void*>(  // NOLINT(performance-no-int-to-ptr)
      getauxval(AT_PHDR));
  return BaseOfAddress(headers);
}

// The base of the module that a dlopen handle stands for.
HMODULE BaseOfHandle(void* handle) {
  link_map* map = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return nullptr;
  return BaseOfAddress(map->l_ld);
}

// What `module` is (null: the main program); none when it is no loaded module's base.
std::optional<ModuleInfo> Describe(HMODULE module) {
  const HMODULE main_program = MainProgram();
  if (module == nullptr || module == main_program) return ModuleInfo{main_program, {}, true};
  Dl_info info{};
  if (dladdr(module, &info) == 0 || info.dli_fbase != module || info.dli_fname == nullptr) {
    return std::nullopt;
  }
  return ModuleInfo{module, info.dli_fname, false};
}

// A dlopen handle of a loaded module, without loading anything; close it with dlclose.
void* OpenLoaded(const ModuleInfo& module) {
  if (module.main_program) return dlopen(nullptr, RTLD_LAZY);
  return dlopen(module.file.c_str(), RTLD_LAZY | RTLD_NOLOAD);
}

std::string FileName(const ModuleInfo& module) {
  if (!module.main_program) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(module.file, error);
    return error ? module.file : absolute.string();
  }
  std::array<char, 4096> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0 || static_cast<std::size_t>(length) >= path.size()) return {};
  return std::string(path.data(), static_cast<std::size_t>(length));
}

// ---- Tables ----

// The table of `module` (null: the main program); null with the last error set when there is none.
const N7ResourceTable* TableOf(HMODULE module) {
  const std::optional<ModuleInfo> info = Describe(module);
  if (!info) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  const auto lookup = table_lookup.load();
  const N7ResourceTable* table = (lookup != nullptr ? lookup : DynamicResourceTable)(info->base);
  if (table == nullptr) SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
  return table;
}

std::span<const N7ResourceEntry> EntriesOf(const N7ResourceTable& table) {
  if (table.entries == nullptr) return {};
  return {table.entries, table.count};
}

wchar_t AsciiUpper(wchar_t c) {
  return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}

// A type or name as asked for: a number, or a text (upper-cased), or "#123" for the number 123.
struct ResourceKey {
  WORD id = 0;
  std::wstring name;
  bool is_name = false;
};

ResourceKey KeyOf(LPCWSTR given) {
  if (IS_INTRESOURCE(given)) return {static_cast<WORD>(reinterpret_cast<ULONG_PTR>(given)), {}};
  const std::wstring_view text(given);
  if (text.size() > 1 && text.size() <= 6 && text[0] == L'#' &&
      std::all_of(text.begin() + 1, text.end(), [](wchar_t c) { return c >= L'0' && c <= L'9'; })) {
    const unsigned long number = std::wcstoul(given + 1, nullptr, 10);
    if (number <= 0xFFFF) return {static_cast<WORD>(number), {}};
  }
  ResourceKey key{0, std::wstring(text), true};
  std::transform(key.name.begin(), key.name.end(), key.name.begin(), AsciiUpper);
  return key;
}

bool Matches(const ResourceKey& key, const wchar_t* entry_name, WORD entry_id) {
  if (!key.is_name) return entry_name == nullptr && entry_id == key.id;
  return entry_name != nullptr && key.name == entry_name;
}

// The languages to try for a request, in order (see the header).
std::array<WORD, 4> LanguagesFor(WORD language) {
  const WORD primary = MAKELANGID(PRIMARYLANGID(language), SUBLANG_NEUTRAL);
  const bool neutral = PRIMARYLANGID(language) == LANG_NEUTRAL;
  return {language, primary, kNeutral, neutral ? kUsEnglish : language};
}

const N7ResourceEntry* ChooseLanguage(std::span<const N7ResourceEntry* const> candidates,
                                      WORD language) {
  for (const WORD wanted : LanguagesFor(language)) {
    for (const N7ResourceEntry* entry : candidates) {
      if (entry->language == wanted) return entry;
    }
  }
  if (PRIMARYLANGID(language) == LANG_NEUTRAL) return candidates.front();
  return nullptr;
}

HRSRC AsHandle(const N7ResourceEntry* entry) {
  return reinterpret_cast<HRSRC>(const_cast<N7ResourceEntry*>(entry));
}

const N7ResourceEntry* AsEntry(HRSRC resource) {
  return reinterpret_cast<const N7ResourceEntry*>(resource);
}

// The bytes of an item, found and loaded in one step; null with the last error when missing.
const void* LoadItem(HMODULE module, LPCWSTR name, LPCWSTR type) {
  const HRSRC found = FindResourceW(module, name, type);
  if (found == nullptr) return nullptr;
  return LockResource(LoadResource(module, found));
}

template <typename Handle>
Handle LoadUserResource(HINSTANCE instance, LPCWSTR name, LPCWSTR type) {
  return static_cast<Handle>(const_cast<void*>(LoadItem(instance, name, type)));
}

template <typename T>
bool ReadAt(std::span<const unsigned char> bytes, std::size_t offset, T& value) {
  if (offset > bytes.size() || bytes.size() - offset < sizeof value) return false;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return true;
}

// The text of a message-table entry at `offset`; none when the entry is malformed.
std::optional<std::wstring> MessageEntryText(std::span<const unsigned char> bytes,
                                             std::size_t offset) {
  WORD length = 0;
  WORD flags = 0;
  if (!ReadAt(bytes, offset, length) || !ReadAt(bytes, offset + 2, flags) || length < 4 ||
      length > bytes.size() - offset) {
    return std::nullopt;
  }
  std::wstring text;
  const std::size_t width = (flags & kMessageWideText) != 0 ? sizeof(wchar_t) : 1;
  for (std::size_t at = offset + 4; at + width <= offset + length; at += width) {
    wchar_t c = 0;
    if (width == 1) {
      c = static_cast<wchar_t>(bytes[at]);
    } else {
      ReadAt(bytes, at, c);
    }
    if (c == L'\0') break;
    text += c;
  }
  return text;
}

// Message `id` of a message table's bytes; none when the table lacks it.
std::optional<std::wstring> FindMessage(std::span<const unsigned char> bytes, DWORD id) {
  DWORD blocks = 0;
  if (!ReadAt(bytes, 0, blocks)) return std::nullopt;
  for (DWORD block = 0; block < blocks; ++block) {
    DWORD low = 0;
    DWORD high = 0;
    DWORD offset = 0;
    const std::size_t at = 4 + std::size_t{block} * 12;
    if (!ReadAt(bytes, at, low) || !ReadAt(bytes, at + 4, high) || !ReadAt(bytes, at + 8, offset)) {
      return std::nullopt;
    }
    if (id < low || id > high) continue;
    std::size_t entry = offset;
    for (DWORD skip = low; skip < id; ++skip) {
      WORD length = 0;
      if (!ReadAt(bytes, entry, length) || length == 0) return std::nullopt;
      entry += length;
    }
    return MessageEntryText(bytes, entry);
  }
  return std::nullopt;
}

}  // namespace

namespace n7platform::internal {

ResourceTableLookup SetResourceTableLookup(ResourceTableLookup lookup) {
  return table_lookup.exchange(lookup);
}

const N7ResourceTable* DynamicResourceTable(HMODULE module) {
  const std::optional<ModuleInfo> info = Describe(module);
  if (!info) return nullptr;
  void* handle = OpenLoaded(*info);
  if (handle == nullptr) return nullptr;
  void* symbol = dlsym(handle, N7_RESOURCE_TABLE_SYMBOL);
  dlclose(handle);
  // The symbol may come from another module that the search reaches (the library's own table,
  // seen from a program without one): only the module's own counts.
  if (symbol == nullptr || BaseOfAddress(symbol) != info->base) return nullptr;
  // POSIX lets dlsym's result be taken for the function it names.
  const auto table_function = reinterpret_cast<N7ResourceTableFunction>(symbol);
  const N7ResourceTable* table = table_function();
  if (table == nullptr) return nullptr;
  return table->format == N7_RESOURCE_TABLE_FORMAT ? table : nullptr;
}

}  // namespace n7platform::internal

// ---- Modules ----

DWORD GetModuleFileNameW(HMODULE module, LPWSTR file_name, DWORD size) {
  const std::optional<ModuleInfo> info = Describe(module);
  if (!info) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return 0;
  }
  const std::optional<std::wstring> converted = codec::FromUtf8(FileName(*info));
  if (!converted) {
    SetLastError(kNoUnicodeTranslation);
    return 0;
  }
  const std::wstring& path = *converted;
  if (file_name == nullptr || size == 0) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  if (path.size() >= size) {
    std::wmemcpy(file_name, path.data(), size - 1);
    file_name[size - 1] = L'\0';
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
  }
  std::wmemcpy(file_name, path.c_str(), path.size() + 1);
  return static_cast<DWORD>(path.size());
}

HMODULE GetModuleHandleW(LPCWSTR module_name) {
  if (module_name == nullptr) return MainProgram();
  const std::optional<std::string> name = codec::ToUtf8(module_name);
  void* handle = name ? dlopen(name->c_str(), RTLD_LAZY | RTLD_NOLOAD) : nullptr;
  if (handle == nullptr) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  const HMODULE base = BaseOfHandle(handle);
  dlclose(handle);
  return base;
}

HMODULE LoadLibraryW(LPCWSTR file_name) {
  const std::optional<std::string> name =
      file_name != nullptr && *file_name != L'\0' ? codec::ToUtf8(file_name) : std::nullopt;
  void* handle = name ? dlopen(name->c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
  const HMODULE base = handle != nullptr ? BaseOfHandle(handle) : nullptr;
  if (base == nullptr) {
    if (handle != nullptr) dlclose(handle);
    SetLastError(ERROR_MOD_NOT_FOUND);
  }
  return base;
}

HMODULE LoadLibraryExW(LPCWSTR file_name, HANDLE file, DWORD flags) {
  if (file != nullptr || (flags & ~LOAD_LIBRARY_AS_DATAFILE) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return LoadLibraryW(file_name);
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
  const std::optional<ModuleInfo> info = Describe(module);
  void* handle = info ? OpenLoaded(*info) : nullptr;
  if (handle == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  void* symbol = name != nullptr ? dlsym(handle, name) : nullptr;
  dlclose(handle);
  if (symbol == nullptr) SetLastError(ERROR_PROC_NOT_FOUND);
  return reinterpret_cast<FARPROC>(symbol);
}

BOOL FreeLibrary(HMODULE module) {
  const std::optional<ModuleInfo> info = Describe(module);
  if (!info || module == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (info->main_program) return TRUE;
  void* handle = OpenLoaded(*info);
  // Once for the reference just taken, once for the caller's LoadLibraryW.
  if (handle == nullptr || dlclose(handle) != 0 || dlclose(handle) != 0) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  return TRUE;
}

// ---- Resources ----

HRSRC FindResourceW(HMODULE module, LPCWSTR name, LPCWSTR type) {
  return FindResourceExW(module, type, name, kNeutral);
}

HRSRC FindResourceExW(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language) {
  if (type == nullptr || name == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const N7ResourceTable* table = TableOf(module);
  if (table == nullptr) return nullptr;
  const ResourceKey type_key = KeyOf(type);
  const ResourceKey name_key = KeyOf(name);
  bool type_found = false;
  std::vector<const N7ResourceEntry*> candidates;
  for (const N7ResourceEntry& entry : EntriesOf(*table)) {
    if (!Matches(type_key, entry.type_name, entry.type_id)) continue;
    type_found = true;
    if (Matches(name_key, entry.name, entry.name_id)) candidates.push_back(&entry);
  }
  if (candidates.empty()) {
    SetLastError(type_found ? ERROR_RESOURCE_NAME_NOT_FOUND : ERROR_RESOURCE_TYPE_NOT_FOUND);
    return nullptr;
  }
  const N7ResourceEntry* chosen = ChooseLanguage(candidates, language);
  if (chosen == nullptr) SetLastError(ERROR_RESOURCE_LANG_NOT_FOUND);
  return AsHandle(chosen);
}

HGLOBAL LoadResource(HMODULE /*module*/, HRSRC resource) {
  static const unsigned char kEmpty = 0;
  if (resource == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  const void* data = AsEntry(resource)->data;
  return const_cast<void*>(data != nullptr ? data : &kEmpty);
}

LPVOID LockResource(HGLOBAL data) { return data; }

DWORD SizeofResource(HMODULE /*module*/, HRSRC resource) {
  if (resource == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return 0;
  }
  return AsEntry(resource)->size;
}

int LoadStringW(HINSTANCE instance, UINT id, LPWSTR buffer, int size) {
  if (buffer == nullptr || size < 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const HRSRC block = FindResourceExW(instance, RT_STRING, MAKEINTRESOURCEW(id / 16 + 1), kNeutral);
  if (block == nullptr) return 0;
  const std::wstring_view text = n7platform::StringFromBlock(
      LockResource(LoadResource(instance, block)), SizeofResource(instance, block), id % 16);
  if (text.empty()) {
    SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
    return 0;
  }
  if (size == 0) {
    LPCWSTR pointer = text.data();
    std::memcpy(buffer, &pointer, sizeof pointer);  // the caller gave an LPCWSTR* as buffer
    return static_cast<int>(text.size());
  }
  const std::size_t count = std::min(text.size(), static_cast<std::size_t>(size) - 1);
  std::wmemcpy(buffer, text.data(), count);
  buffer[count] = L'\0';
  return static_cast<int>(count);
}

HACCEL LoadAcceleratorsW(HINSTANCE instance, LPCWSTR name) {
  return LoadUserResource<HACCEL>(instance, name, RT_ACCELERATOR);
}

HBITMAP LoadBitmapW(HINSTANCE instance, LPCWSTR name) {
  return LoadUserResource<HBITMAP>(instance, name, RT_BITMAP);
}

// Icons and cursors are found by their group, as Win32 does: the group names the images.
HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name) {
  return LoadUserResource<HCURSOR>(instance, name, RT_GROUP_CURSOR);
}

HICON LoadIconW(HINSTANCE instance, LPCWSTR name) {
  return LoadUserResource<HICON>(instance, name, RT_GROUP_ICON);
}

HMENU LoadMenuW(HINSTANCE instance, LPCWSTR name) {
  return LoadUserResource<HMENU>(instance, name, RT_MENU);
}

HANDLE LoadImageW(HINSTANCE instance, LPCWSTR name, UINT type, int /*width*/, int /*height*/,
                  UINT /*flags*/) {
  if (type != IMAGE_BITMAP) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return LoadBitmapW(instance, name);
}

namespace n7platform {

HMODULE ModuleFromAddress(const void* address) { return BaseOfAddress(address); }

std::wstring_view StringFromBlock(const void* block, DWORD size, UINT index) {
  if (block == nullptr) return {};
  const auto* text = static_cast<const wchar_t*>(block);
  const std::size_t count = size / sizeof(wchar_t);
  std::size_t at = 0;
  for (UINT skipped = 0; skipped < index && at < count; ++skipped) {
    at += 1 + static_cast<std::size_t>(text[at]);
  }
  if (at >= count) return {};
  // A negative count is a malformed block: as size_t it is too large and refused below.
  const auto length = static_cast<std::size_t>(text[at]);  // NOLINT(bugprone-signed-char-misuse)
  if (length > count - at - 1) return {};
  return {text + at + 1, length};
}

std::optional<std::wstring> LoadMessageText(HMODULE module, DWORD id, WORD language) {
  const HRSRC table = FindResourceExW(module, RT_MESSAGETABLE, MAKEINTRESOURCEW(1), language);
  if (table == nullptr) return std::nullopt;
  const std::span<const unsigned char> bytes(
      static_cast<const unsigned char*>(LockResource(LoadResource(module, table))),
      SizeofResource(module, table));
  std::optional<std::wstring> text = FindMessage(bytes, id);
  if (!text) SetLastError(ERROR_MR_MID_NOT_FOUND);
  return text;
}

}  // namespace n7platform
