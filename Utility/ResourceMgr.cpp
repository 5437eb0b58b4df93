#include "n7utility/Utility/ResourceMgr.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "n7utility/platform/framework/File.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/Thread.h"
#include "n7utility/platform/system/FormatMessage.h"
#include "n7utility/platform/system/LocalMemory.h"

namespace {

constexpr WORD kNeutralDefault = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);
constexpr DWORD kModulePathSize = 260;
constexpr int kStringBufferSize = 4097;
constexpr wchar_t kPlaceholder[] =
    L"[English Only: Error: Unable to Load String resource '%1!d!'. System Error: '%2']";

struct LanguageCode {
  WORD language;
  const wchar_t* code;
};

// The language resource modules' codes, used as they stand (some differ from common culture
// names: 0x0C0A is es-IA, 0x0414 no-BK).
constexpr LanguageCode kLanguageCodes[] = {
    {0x0001, L"ar"},    {0x0401, L"ar-SA"}, {0x0801, L"ar-IQ"}, {0x0C01, L"ar-EG"},
    {0x1001, L"ar-LY"}, {0x1401, L"ar-DZ"}, {0x1801, L"ar-MA"}, {0x1C01, L"ar-TN"},
    {0x2001, L"ar-OM"}, {0x2401, L"ar-YE"}, {0x2801, L"ar-SY"}, {0x2C01, L"ar-JO"},
    {0x3001, L"ar-LB"}, {0x3401, L"ar-KW"}, {0x3801, L"ar-AE"}, {0x3C01, L"ar-BH"},
    {0x4001, L"ar-QA"}, {0x0004, L"zh"},    {0x0404, L"zh-TW"}, {0x0804, L"zh-CN"},
    {0x0C04, L"zh-HK"}, {0x1004, L"zh-SG"}, {0x1404, L"zh-MO"}, {0x0007, L"de"},
    {0x0407, L"de-DE"}, {0x0807, L"de-CH"}, {0x0C07, L"de-AT"}, {0x1007, L"de-LU"},
    {0x1407, L"de-LI"}, {0x0009, L"en"},    {0x0409, L"en-US"}, {0x0809, L"en-GB"},
    {0x0C09, L"en-AU"}, {0x1009, L"en-CA"}, {0x1409, L"en-NZ"}, {0x1809, L"en-IE"},
    {0x1C09, L"en-ZA"}, {0x2009, L"en-JM"}, {0x2409, L"en-CB"}, {0x2809, L"en-BZ"},
    {0x2C09, L"en-TT"}, {0x3009, L"en-ZW"}, {0x3409, L"en-PH"}, {0x000A, L"es"},
    {0x040A, L"es-ES"}, {0x080A, L"es-MX"}, {0x0C0A, L"es-IA"}, {0x100A, L"es-GT"},
    {0x140A, L"es-CR"}, {0x180A, L"es-PA"}, {0x1C0A, L"es-DO"}, {0x200A, L"es-VE"},
    {0x240A, L"es-CO"}, {0x280A, L"es-PE"}, {0x2C0A, L"es-AR"}, {0x300A, L"es-EC"},
    {0x340A, L"es-CL"}, {0x380A, L"es-UY"}, {0x3C0A, L"es-PY"}, {0x400A, L"es-BO"},
    {0x440A, L"es-SV"}, {0x480A, L"es-HN"}, {0x4C0A, L"es-NI"}, {0x500A, L"es-PR"},
    {0x000C, L"fr"},    {0x040C, L"fr-FR"}, {0x080C, L"fr-BE"}, {0x0C0C, L"fr-CA"},
    {0x100C, L"fr-CH"}, {0x140C, L"fr-LU"}, {0x180C, L"fr-MC"}, {0x0010, L"it"},
    {0x0410, L"it-IT"}, {0x0810, L"it-CH"}, {0x0013, L"nl"},    {0x0413, L"nl-NL"},
    {0x0813, L"nl-BE"}, {0x0014, L"no"},    {0x0414, L"no-BK"}, {0x0814, L"no-NY"},
    {0x0016, L"pt"},    {0x0416, L"pt-BR"}, {0x0816, L"pt-PT"}, {0x001D, L"sv"},
    {0x041D, L"sv-SE"}, {0x081D, L"sv-FI"}, {0x0020, L"ur"},    {0x0420, L"ur-PK"},
    {0x0820, L"ur-IN"}, {0x002C, L"az"},    {0x042C, L"az-LN"}, {0x082C, L"az-YR"},
    {0x003E, L"ms"},    {0x043E, L"ms-MY"}, {0x083E, L"ms-BN"}, {0x0043, L"uz"},
    {0x0443, L"uz-LN"}, {0x0843, L"uz-YR"}, {0x0002, L"bg"},    {0x0003, L"ca"},
    {0x0005, L"cs"},    {0x0006, L"da"},    {0x0008, L"el"},    {0x000B, L"fi"},
    {0x000D, L"he"},    {0x000E, L"hu"},    {0x000F, L"is"},    {0x0011, L"ja"},
    {0x0012, L"ko"},    {0x0015, L"pl"},    {0x0018, L"ro"},    {0x0019, L"ru"},
    {0x001A, L"hr"},    {0x001B, L"sk"},    {0x001C, L"sq"},    {0x001E, L"th"},
    {0x001F, L"tr"},    {0x0021, L"id"},    {0x0022, L"uk"},    {0x0023, L"be"},
    {0x0024, L"sl"},    {0x0025, L"et"},    {0x0026, L"lv"},    {0x0027, L"lt"},
    {0x0029, L"fa"},    {0x002A, L"vi"},    {0x002B, L"hy"},    {0x002D, L"eu"},
    {0x002F, L"mk"},    {0x0036, L"af"},    {0x0037, L"ka"},    {0x0038, L"fo"},
    {0x0039, L"hi"},    {0x003F, L"kk"},    {0x0041, L"sw"},    {0x0044, L"tt"},
    {0x0046, L"pa"},    {0x0047, L"gu"},    {0x0049, L"ta"},    {0x004A, L"te"},
    {0x004B, L"kn"},    {0x004E, L"mr"},    {0x004F, L"sa"},    {0x0057, L"ki"},
};

std::optional<std::wstring_view> CodeOf(WORD language) {
  for (const LanguageCode& entry : kLanguageCodes) {
    if (entry.language == language) return entry.code;
  }
  return std::nullopt;
}

// How the language resource modules of a module file are named: `stem` + "Res." + code +
// `suffix`, in res/ beside the module.
struct ResourceModuleNaming {
  std::wstring_view stem;
  std::wstring_view suffix;
};

bool EqualsAsciiCaseBlind(std::wstring_view text, std::wstring_view lower) {
  return text.size() == lower.size() &&
         std::equal(text.begin(), text.end(), lower.begin(), [](wchar_t c, wchar_t l) {
           return (c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c) == l;
         });
}

bool IsSharedObjectVersion(std::wstring_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](wchar_t c) { return c == L'.' || (c >= L'0' && c <= L'9'); });
}

// Name.dll|exe|ocx has NameRes.<code>.dll; a program without an extension (prog) has
// progRes.<code>.so, and a shared object (libfoo.so, libfoo.so.1.2) libfooRes.<code>.so. Any
// other name has none.
std::optional<ResourceModuleNaming> NamingOf(std::wstring_view file_name) {
  if (file_name.size() > 4) {
    const std::wstring_view extension = file_name.substr(file_name.size() - 4);
    for (const wchar_t* windows : {L".dll", L".exe", L".ocx"}) {
      if (EqualsAsciiCaseBlind(extension, windows)) {
        return ResourceModuleNaming{file_name.substr(0, file_name.size() - 4), L".dll"};
      }
    }
  }
  const std::size_t dot = file_name.find(L'.');
  if (dot == std::wstring_view::npos) return ResourceModuleNaming{file_name, L".so"};
  const std::wstring_view rest = file_name.substr(dot);
  const bool shared_object =
      rest == L".so" || (rest.starts_with(L".so.") && IsSharedObjectVersion(rest.substr(3)));
  if (dot == 0 || !shared_object) return std::nullopt;
  return ResourceModuleNaming{file_name.substr(0, dot), L".so"};
}

// Whether a file exists at `path`; the probe leaves the thread's last error as it was.
bool FileExists(const std::wstring& path) {
  const DWORD last_error = GetLastError();
  const bool exists = GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
  SetLastError(last_error);
  return exists;
}

// The language resource module of `module_file` for `language`, D/res/<stem>Res.<code><suffix>
// for D/<file name>; empty when the language has no code, the file name no language modules, or
// the resource module does not exist.
std::wstring ResourceModulePath(std::wstring_view module_file, WORD language) {
  const std::optional<std::wstring_view> code = CodeOf(language);
  const std::size_t slash = module_file.rfind(L'/');
  const std::size_t name_start = slash == std::wstring_view::npos ? 0 : slash + 1;
  const std::optional<ResourceModuleNaming> naming = NamingOf(module_file.substr(name_start));
  if (!code || !naming) return {};
  std::wstring path(module_file.substr(0, name_start));
  path.append(name_start != 0 ? L"res/" : L"").append(naming->stem);
  path.append(L"Res.").append(*code).append(naming->suffix);
  return FileExists(path) ? path : std::wstring();
}

// The module to take strings in `language` from: its language resource module, or that of its
// primary language, or `instance` itself.
HINSTANCE SearchModule(HINSTANCE instance, WORD language) {
  std::array<wchar_t, kModulePathSize> file{};
  const DWORD length = GetModuleFileNameW(instance, file.data(), kModulePathSize);
  if (length == 0) return instance;
  const std::wstring_view module_file(file.data());
  std::wstring path = ResourceModulePath(module_file, language);
  if (path.empty()) path = ResourceModulePath(module_file, PRIMARYLANGID(language));
  if (path.empty()) return instance;
  HMODULE module = GetModuleHandleW(path.c_str());
  if (module == nullptr) module = LoadLibraryW(path.c_str());  // kept for the process's life
  return module != nullptr ? module : instance;
}

// String `id` from its block in `module`, trying `language` and then `fallback`; none when the
// module has no such block.
std::optional<CString> StringFromModule(HINSTANCE module, UINT id, WORD language, WORD fallback) {
  LPCWSTR block_name = MAKEINTRESOURCEW(id / 16 + 1);
  HRSRC block = FindResourceExW(module, RT_STRING, block_name, language);
  if (block == nullptr) block = FindResourceExW(module, RT_STRING, block_name, fallback);
  if (block == nullptr) return std::nullopt;
  const std::wstring_view text = n7platform::StringFromBlock(
      LockResource(LoadResource(module, block)), SizeofResource(module, block), id % 16);
  return CString(std::wstring(text));
}

// FormatMessageW into a CString; empty when it fails.
CString Format(DWORD flags, LPCVOID source, DWORD id, DWORD language, va_list* arguments) {
  LPWSTR text = nullptr;
  const DWORD length = FormatMessageW(flags | FORMAT_MESSAGE_ALLOCATE_BUFFER, source, id, language,
                                      reinterpret_cast<LPWSTR>(&text), 0, arguments);
  CString result(text != nullptr ? std::wstring(text, length) : std::wstring());
  LocalFree(text);
  return result;
}

}  // namespace

CResourceMgr::CResourceMgr(HINSTANCE& instance) : m_instance(&instance) {}

CResourceMgr::CResourceMgr(CWinApp& application) : m_instance(&application.m_hInstance) {}

CResourceMgr::~CResourceMgr() = default;

CString CResourceMgr::LoadStringW(UINT id, int no_placeholder, WORD language) {
  const HINSTANCE instance = *m_instance;
  const HINSTANCE search = language != 0 ? SearchModule(instance, language) : instance;
  std::optional<CString> text =
      language != 0 ? StringFromModule(search, id, language, PRIMARYLANGID(language))
                    : StringFromModule(search, id, kNeutralDefault, 0);
  if (!text) {
    std::array<wchar_t, kStringBufferSize> buffer{};
    const int length = ::LoadStringW(instance, id, buffer.data(), kStringBufferSize);
    text = CString(std::wstring(buffer.data(), static_cast<std::size_t>(length)));
  }
  if (text->IsEmpty() && no_placeholder == 0) return Placeholder(id);
  return *text;
}

CString CResourceMgr::Placeholder(UINT id) {
  const CString error = GetLastError();
  const DWORD_PTR inserts[] = {id, reinterpret_cast<DWORD_PTR>(error.GetString())};
  return Format(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY, kPlaceholder, 0, 0,
                reinterpret_cast<va_list*>(const_cast<DWORD_PTR*>(inserts)));
}

CString CResourceMgr::FormatString(UINT id, ...) {
  va_list arguments;
  va_start(arguments, id);
  CString text;
  const int found = BaseFormatString(id, text, arguments);
  va_end(arguments);
  return found != 0 ? text : Placeholder(id);
}

CString CResourceMgr::FormatString(UINT id, va_list& arguments) {
  CString text;
  return BaseFormatString(id, text, arguments) != 0 ? text : Placeholder(id);
}

int CResourceMgr::BaseFormatString(UINT id, CString& text, va_list& arguments) {
  const CString format = LoadStringW(id, 1, 0);
  if (format.IsEmpty()) {
    text = CString();
    return 0;
  }
  text = Format(FORMAT_MESSAGE_FROM_STRING, format.GetString(), 0, 0, &arguments);
  return 1;
}

CString CResourceMgr::GetLastError() {
  n7platform::CriticalSectionLock hold(m_lock);
  const auto entry = m_errors.find(GetCurrentThreadId());
  return entry != m_errors.end() ? entry->second : CString();
}

void CResourceMgr::SetLastError() {
  const DWORD error = ::GetLastError();
  CString text = Format(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, kNeutralDefault, nullptr);
  n7platform::CriticalSectionLock hold(m_lock);
  m_errors[GetCurrentThreadId()] = std::move(text);
}

template <typename Handle>
Handle CResourceMgr::Checked(Handle handle) {
  if (handle == nullptr) SetLastError();
  return handle;
}

HACCEL CResourceMgr::LoadAcceleratorsW(LPCWSTR name) {
  return Checked(::LoadAcceleratorsW(*m_instance, name));
}
HACCEL CResourceMgr::LoadAcceleratorsW(UINT id) { return LoadAcceleratorsW(MAKEINTRESOURCEW(id)); }

HBITMAP CResourceMgr::LoadBitmapW(LPCWSTR name) {
  return Checked(::LoadBitmapW(*m_instance, name));
}
HBITMAP CResourceMgr::LoadBitmapW(UINT id) { return LoadBitmapW(MAKEINTRESOURCEW(id)); }

HBITMAP CResourceMgr::LoadBitmapEx(LPCWSTR name, UINT flags) {
  return static_cast<HBITMAP>(Checked(::LoadImageW(*m_instance, name, IMAGE_BITMAP, 0, 0, flags)));
}
HBITMAP CResourceMgr::LoadBitmapEx(UINT id, UINT flags) {
  return LoadBitmapEx(MAKEINTRESOURCEW(id), flags);
}

HCURSOR CResourceMgr::LoadCursorW(LPCWSTR name) {
  return Checked(::LoadCursorW(*m_instance, name));
}
HCURSOR CResourceMgr::LoadCursorW(UINT id) { return LoadCursorW(MAKEINTRESOURCEW(id)); }

HICON CResourceMgr::LoadIconW(LPCWSTR name) { return Checked(::LoadIconW(*m_instance, name)); }
HICON CResourceMgr::LoadIconW(UINT id) { return LoadIconW(MAKEINTRESOURCEW(id)); }

HMENU CResourceMgr::LoadMenuW(LPCWSTR name) { return Checked(::LoadMenuW(*m_instance, name)); }
HMENU CResourceMgr::LoadMenuW(UINT id) { return LoadMenuW(MAKEINTRESOURCEW(id)); }

// Stops at the first step that fails, recording that step's error.
LPVOID CResourceMgr::LoadDialog(LPCWSTR name) {
  const HINSTANCE instance = *m_instance;
  const HRSRC found = Checked(FindResourceW(instance, name, RT_DIALOG));
  if (found == nullptr) return nullptr;
  const HGLOBAL loaded = Checked(LoadResource(instance, found));
  if (loaded == nullptr) return nullptr;
  return Checked(LockResource(loaded));
}
LPVOID CResourceMgr::LoadDialog(UINT id) { return LoadDialog(MAKEINTRESOURCEW(id)); }
