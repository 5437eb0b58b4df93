// The Win32 registry calls: handles, arguments, access rights and buffer rules, over the hive
// stores of RegistryStore.cpp.

#include "n7utility/platform/system/Registry.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "n7utility/platform/base/HandleTable_internal.h"
#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/base/ServiceMutex.h"
#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/RegistryNotify_internal.h"
#include "n7utility/platform/system/RegistryStore_internal.h"
#include "n7utility/platform/system/RegistryText_internal.h"

namespace n7platform::internal {
namespace {

constexpr std::size_t kMaxKeyNameLength = 255;
constexpr std::size_t kMaxValueNameLength = 16383;
constexpr std::size_t kMaxPathDepth = 512;
constexpr std::size_t kMaxSavedFileSize = 256u << 20;
constexpr REGSAM kEveryRight = KEY_ALL_ACCESS | ACCESS_SYSTEM_SECURITY;

// A handle's number has this bit set (no pointer has, and no predefined key), and counts up
// from there, so a closed handle is never valid again.

struct OpenKey {
  std::shared_ptr<HiveStore> store;
  KeyRef ref;
  REGSAM access = 0;
};

std::optional<Hive> PredefinedHive(HKEY key) {
  if (key == HKEY_CLASSES_ROOT) return Hive::kClassesRoot;
  if (key == HKEY_CURRENT_USER) return Hive::kCurrentUser;
  if (key == HKEY_LOCAL_MACHINE) return Hive::kLocalMachine;
  if (key == HKEY_USERS) return Hive::kUsers;
  return std::nullopt;
}

// The environment is read once per store set-up, under the registry's section.
const char* Environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  return value != nullptr && *value != '\0' ? value : nullptr;
}

std::string HomeDirectory() {
  if (const char* home = Environment("HOME")) return home;
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && entry.pw_dir != nullptr)
    return entry.pw_dir;
  return "/tmp";
}

std::string DefaultDirectory() {
  if (const char* dir = Environment("N7_REGISTRY_DIR")) return dir;
  if (geteuid() == 0) return "/var/lib/n7utility/registry";
  if (const char* state = Environment("XDG_STATE_HOME"); state != nullptr && *state == '/')
    return std::string(state) + "/n7utility/registry";
  return HomeDirectory() + "/.local/state/n7utility/registry";
}

std::string BootId() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string id;
  std::getline(file, id);
  return id.empty() ? "unknown" : id;
}

// The handles of the process and the stores they lead to.
class Registry {
 public:
  Registry() = default;
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;

  // The open key behind `key`, a predefined key (its store opened on first use) or a handle.
  DWORD Find(HKEY key, std::shared_ptr<const OpenKey>* open) EXCLUDES(section_) {
    if (const std::optional<Hive> hive = PredefinedHive(key)) {
      ServiceGuard lock(section_);
      return Root(*hive, open);
    }
    *open = handles_.Share(key);
    return *open != nullptr ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
  }

  // A new handle; null when the table is full.
  HKEY Insert(std::shared_ptr<const OpenKey> open) {
    return static_cast<HKEY>(handles_.Insert(std::move(open)));
  }

  DWORD Remove(HKEY key) {
    if (PredefinedHive(key)) return ERROR_SUCCESS;
    if (handles_.Remove(key) == nullptr) return ERROR_INVALID_HANDLE;
    EndRegistrations(reinterpret_cast<std::uintptr_t>(key));
    return ERROR_SUCCESS;
  }

  void Use(const StoreSettings* settings) EXCLUDES(section_) {
    handles_.RemoveAll();
    {
      ServiceGuard lock(section_);
      roots_ = {};
      settings_.reset();
      if (settings != nullptr) settings_ = *settings;
    }
    EndAllRegistrations();
  }

 private:
  DWORD Root(Hive hive, std::shared_ptr<const OpenKey>* open) REQUIRES(section_) {
    std::shared_ptr<const OpenKey>& root = roots_[static_cast<std::size_t>(hive)];
    if (root == nullptr) {
      if (!settings_) settings_ = StoreSettings{DefaultDirectory(), BootId()};
      std::shared_ptr<HiveStore> store;
      if (DWORD error = HiveStore::Open(*settings_, hive, &store)) return error;
      root = std::make_shared<const OpenKey>(
          OpenKey{std::move(store), KeyRef{kRootKeyId, "", false}, kEveryRight});
    }
    *open = root;
    return ERROR_SUCCESS;
  }

  ServiceMutex section_;
  std::optional<StoreSettings> settings_ GUARDED_BY(section_);
  std::array<std::shared_ptr<const OpenKey>, kHiveCount> roots_ GUARDED_BY(section_);
  HandleTable<const OpenKey> handles_{HandleKind::kRegistryKey};
};

Registry& TheRegistry() {
  static NoDestructor<Registry> registry;
  return *registry;
}

// The open key behind `key` when the handle carries every right in `needed`.
DWORD FindWithRights(HKEY key, REGSAM needed, std::shared_ptr<const OpenKey>* open) {
  if (DWORD error = TheRegistry().Find(key, open)) return error;
  return ((*open)->access & needed) == needed ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

// The rights a handle opened with `desired` carries; generic rights count as their key rights.
REGSAM Granted(REGSAM desired) {
  if ((desired & (MAXIMUM_ALLOWED | GENERIC_ALL)) != 0) return kEveryRight;
  if ((desired & GENERIC_READ) != 0) desired |= KEY_READ;
  if ((desired & GENERIC_WRITE) != 0) desired |= KEY_WRITE;
  if ((desired & GENERIC_EXECUTE) != 0) desired |= KEY_EXECUTE;
  return desired & kEveryRight;
}

DWORD ToName(std::wstring_view text, RegName* name) {
  const std::optional<std::string> utf8 = codec::ToUtf8(text);
  if (!utf8) return ERROR_INVALID_PARAMETER;
  name->name = *utf8;
  name->folded = *codec::ToUtf8(FoldCase(text));
  return ERROR_SUCCESS;
}

// Splits a key path at its backslashes. A trailing backslash is allowed; an empty name elsewhere
// is ERROR_BAD_PATHNAME, a name longer than 255 characters ERROR_INVALID_PARAMETER.
DWORD ParsePath(LPCWSTR sub_key, const KeyRef& parent, std::vector<RegName>* names) {
  if (sub_key == nullptr) return ERROR_SUCCESS;
  std::wstring_view rest(sub_key);
  if (!rest.empty() && rest.back() == L'\\') rest.remove_suffix(1);
  while (!rest.empty()) {
    const std::size_t end = rest.find(L'\\');
    const std::wstring_view text = rest.substr(0, end);
    if (text.empty()) return ERROR_BAD_PATHNAME;
    if (text.size() > kMaxKeyNameLength) return ERROR_INVALID_PARAMETER;
    if (DWORD error = ToName(text, &names->emplace_back())) return error;
    if (end == std::wstring_view::npos) break;
    rest.remove_prefix(end + 1);
    if (rest.empty()) return ERROR_BAD_PATHNAME;
  }
  const auto depth =
      static_cast<std::size_t>(std::count(parent.path.begin(), parent.path.end(), '\\'));
  return depth + names->size() > kMaxPathDepth ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
}

DWORD ParseValueName(LPCWSTR value_name, RegName* name) {
  const std::wstring_view text = value_name != nullptr ? value_name : L"";
  if (text.size() > kMaxValueNameLength) return ERROR_INVALID_PARAMETER;
  return ToName(text, name);
}

FILETIME ToFileTime(std::uint64_t time) {
  return FILETIME{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

// Copies `text` and its terminator into a buffer of `*length` characters, setting `*length` to
// the text's length; ERROR_MORE_DATA when it does not fit.
DWORD CopyText(const std::string& utf8, LPWSTR buffer, LPDWORD length) {
  const std::wstring text = Utf8ToWide(utf8);
  if (text.size() + 1 > *length) return ERROR_MORE_DATA;
  std::copy(text.begin(), text.end(), buffer);
  buffer[text.size()] = L'\0';
  *length = static_cast<DWORD>(text.size());
  return ERROR_SUCCESS;
}

// The length of a self-relative security descriptor, 0 when `descriptor` is not one.
std::size_t SelfRelativeLength(const BYTE* descriptor) {
  constexpr std::size_t kHeader = 20;
  constexpr std::size_t kMaxOffset = 0xFFFF;
  constexpr unsigned kSelfRelative = 0x8000, kDaclPresent = 0x0004, kSaclPresent = 0x0010;
  const auto word = [descriptor](std::size_t at) {
    return static_cast<unsigned>(descriptor[at] | descriptor[at + 1] << 8);
  };
  const auto dword = [&word](std::size_t at) {
    return std::size_t{word(at)} | std::size_t{word(at + 2)} << 16;
  };
  const unsigned control = word(2);
  if (descriptor[0] != 1 || (control & kSelfRelative) == 0) return 0;
  std::size_t end = kHeader;
  for (const std::size_t field : {4u, 8u}) {  // owner and group SIDs
    const std::size_t offset = dword(field);
    if (offset == 0) continue;
    if (offset < kHeader || offset > kMaxOffset || descriptor[offset] != 1) return 0;
    end = std::max(end, offset + 8 + 4 * std::size_t{descriptor[offset + 1]});
  }
  for (const auto& [field, present] :
       {std::pair{12u, kSaclPresent}, std::pair{16u, kDaclPresent}}) {
    const std::size_t offset = dword(field);
    if (offset == 0 || (control & present) == 0) continue;
    if (offset < kHeader || offset > kMaxOffset) return 0;
    end = std::max(end, offset + word(offset + 2));
  }
  return end;
}

DWORD ReadDescriptor(PSECURITY_DESCRIPTOR descriptor, std::vector<BYTE>* bytes) {
  const auto* begin = static_cast<const BYTE*>(descriptor);
  const std::size_t length = SelfRelativeLength(begin);
  if (length == 0) return ERROR_INVALID_SECURITY_DESCR;
  bytes->assign(begin, begin + length);
  return ERROR_SUCCESS;
}

DWORD OpenOrCreate(const OpenKey& parent, const std::vector<RegName>& names,
                   const std::string& class_name, bool is_volatile,
                   const std::vector<BYTE>& security, KeyRef* key, DWORD* disposition) {
  const DWORD error = parent.store->OpenKey(parent.ref, names, key);
  if (error != ERROR_FILE_NOT_FOUND) {
    *disposition = REG_OPENED_EXISTING_KEY;
    return error;
  }
  if ((parent.access & KEY_CREATE_SUB_KEY) == 0) return ERROR_ACCESS_DENIED;
  return parent.store->CreateKey(parent.ref, names, class_name, is_volatile, security, key,
                                 disposition);
}

HKEY NewHandle(const OpenKey& from, KeyRef key, REGSAM desired) {
  return TheRegistry().Insert(
      std::make_shared<const OpenKey>(OpenKey{from.store, std::move(key), Granted(desired)}));
}

bool IsThisMachine(LPCWSTR machine) {
  if (machine == nullptr) return true;
  std::wstring_view name(machine);
  while (!name.empty() && name.front() == L'\\') name.remove_prefix(1);
  if (name.empty()) return true;
  char host[256] = {};
  if (gethostname(host, sizeof host - 1) != 0) return false;
  const std::optional<std::string> given = codec::ToUtf8(FoldCase(name));
  return given && *given == *codec::ToUtf8(FoldCase(Utf8ToWide(host)));
}

DWORD ReadFile(const std::string& path, std::string* bytes) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return errno == ENOENT ? ERROR_FILE_NOT_FOUND : ERROR_ACCESS_DENIED;
  char chunk[65536];
  while (file.read(chunk, sizeof chunk) || file.gcount() > 0) {
    bytes->append(chunk, static_cast<std::size_t>(file.gcount()));
    if (bytes->size() > kMaxSavedFileSize) return ERROR_REGISTRY_CORRUPT;
  }
  return file.bad() ? ERROR_REGISTRY_IO_FAILED : ERROR_SUCCESS;
}

DWORD WriteNewFile(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) {
    if (errno == EEXIST) return ERROR_ALREADY_EXISTS;
    return errno == ENOENT ? ERROR_PATH_NOT_FOUND : ERROR_ACCESS_DENIED;
  }
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count = write(fd, bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    written += static_cast<std::size_t>(count);
  }
  const bool complete = written == bytes.size() && fsync(fd) == 0;
  close(fd);
  if (complete) return ERROR_SUCCESS;
  unlink(path.c_str());
  return ERROR_REGISTRY_IO_FAILED;
}

DWORD ToFilePath(LPCWSTR file, std::string* path) {
  if (file == nullptr) return ERROR_INVALID_PARAMETER;
  const std::optional<std::string> utf8 = codec::ToUtf8(file);
  if (!utf8 || utf8->empty()) return ERROR_INVALID_PARAMETER;
  *path = *utf8;
  return ERROR_SUCCESS;
}

DWORD WaitForChange(const Registration& registration) {
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) return GetLastError();
  Registration waiting = registration;
  waiting.event = event;
  DWORD error = AddRegistration(std::move(waiting));
  if (error == ERROR_SUCCESS && WaitForSingleObject(event, INFINITE) != WAIT_OBJECT_0)
    error = GetLastError();
  CloseHandle(event);
  return error;
}

}  // namespace

void UseRegistryStore(const StoreSettings* settings) { TheRegistry().Use(settings); }

}  // namespace n7platform::internal

using n7platform::internal::FindWithRights;
using n7platform::internal::KeyRef;
using n7platform::internal::OpenKey;
using n7platform::internal::RegName;
using n7platform::internal::TheRegistry;

namespace {
// Win32 calls return their error code as a signed LSTATUS.
constexpr LSTATUS Status(DWORD error) { return static_cast<LSTATUS>(error); }
}  // namespace

LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR sub_key, DWORD /*reserved*/, LPWSTR class_name,
                        DWORD options, REGSAM desired, const LPSECURITY_ATTRIBUTES security,
                        PHKEY result, LPDWORD disposition) {
  namespace internal = n7platform::internal;
  if (result == nullptr || sub_key == nullptr) return ERROR_INVALID_PARAMETER;
  if ((options & ~REG_OPTION_VOLATILE) != 0) return ERROR_INVALID_PARAMETER;
  std::shared_ptr<const OpenKey> parent;
  if (DWORD error = TheRegistry().Find(key, &parent)) return Status(error);
  std::vector<RegName> names;
  if (DWORD error = internal::ParsePath(sub_key, parent->ref, &names)) return Status(error);
  RegName class_text;
  if (class_name != nullptr) {
    if (DWORD error = internal::ToName(class_name, &class_text)) return Status(error);
  }
  std::vector<BYTE> descriptor;
  if (security != nullptr && security->lpSecurityDescriptor != nullptr) {
    if (DWORD error = internal::ReadDescriptor(security->lpSecurityDescriptor, &descriptor))
      return Status(error);
  }
  KeyRef created;
  DWORD outcome = 0;
  if (DWORD error =
          internal::OpenOrCreate(*parent, names, class_text.name, options == REG_OPTION_VOLATILE,
                                 descriptor, &created, &outcome))
    return Status(error);
  *result = internal::NewHandle(*parent, std::move(created), desired);
  if (*result == nullptr) return Status(ERROR_NOT_ENOUGH_MEMORY);
  if (disposition != nullptr) *disposition = outcome;
  return Status(ERROR_SUCCESS);
}

LSTATUS RegCreateKeyW(HKEY key, LPCWSTR sub_key, PHKEY result) {
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  if (sub_key == nullptr || *sub_key == L'\0') {
    std::shared_ptr<const OpenKey> open;
    if (DWORD error = TheRegistry().Find(key, &open)) return Status(error);
    *result = key;
    return Status(ERROR_SUCCESS);
  }
  return RegCreateKeyExW(key, sub_key, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                         result, nullptr);
}

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR sub_key, DWORD /*options*/, REGSAM desired, PHKEY result) {
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  std::shared_ptr<const OpenKey> parent;
  if (DWORD error = TheRegistry().Find(key, &parent)) return Status(error);
  std::vector<RegName> names;
  if (DWORD error = n7platform::internal::ParsePath(sub_key, parent->ref, &names))
    return Status(error);
  KeyRef opened;
  if (DWORD error = parent->store->OpenKey(parent->ref, names, &opened)) return Status(error);
  *result = n7platform::internal::NewHandle(*parent, std::move(opened), desired);
  return Status(*result != nullptr ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
}

LSTATUS RegOpenKeyW(HKEY key, LPCWSTR sub_key, PHKEY result) {
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  if (sub_key == nullptr || *sub_key == L'\0') {
    std::shared_ptr<const OpenKey> open;
    if (DWORD error = TheRegistry().Find(key, &open)) return Status(error);
    *result = key;
    return Status(ERROR_SUCCESS);
  }
  return RegOpenKeyExW(key, sub_key, 0, KEY_ALL_ACCESS, result);
}

LSTATUS RegConnectRegistryW(LPCWSTR machine, HKEY key, PHKEY result) {
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  if (!n7platform::internal::IsThisMachine(machine)) return ERROR_BAD_NETPATH;
  if (!n7platform::internal::PredefinedHive(key)) return ERROR_INVALID_HANDLE;
  return RegOpenKeyExW(key, nullptr, 0, KEY_ALL_ACCESS, result);
}

LSTATUS RegCloseKey(HKEY key) { return Status(TheRegistry().Remove(key)); }

LSTATUS RegDeleteKeyW(HKEY key, LPCWSTR sub_key) {
  if (sub_key == nullptr) return ERROR_INVALID_PARAMETER;
  std::shared_ptr<const OpenKey> parent;
  if (DWORD error = TheRegistry().Find(key, &parent)) return Status(error);
  std::vector<RegName> names;
  if (DWORD error = n7platform::internal::ParsePath(sub_key, parent->ref, &names))
    return Status(error);
  return Status(parent->store->DeleteKey(parent->ref, names));
}

LSTATUS RegDeleteValueW(HKEY key, LPCWSTR value_name) {
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, KEY_SET_VALUE, &open)) return Status(error);
  RegName name;
  if (DWORD error = n7platform::internal::ParseValueName(value_name, &name)) return Status(error);
  return Status(open->store->DeleteValue(open->ref, name.folded));
}

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD name_length, LPDWORD /*reserved*/,
                      LPWSTR class_name, LPDWORD class_length, PFILETIME last_write_time) {
  namespace internal = n7platform::internal;
  if (name == nullptr || name_length == nullptr) return ERROR_INVALID_PARAMETER;
  if (class_name != nullptr && class_length == nullptr) return ERROR_INVALID_PARAMETER;
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, KEY_ENUMERATE_SUB_KEYS, &open)) return Status(error);
  internal::SubkeyEntry entry;
  if (DWORD error = open->store->EnumKey(open->ref, index, &entry)) return Status(error);
  if (DWORD error = internal::CopyText(entry.name, name, name_length)) return Status(error);
  if (class_name != nullptr) {
    if (DWORD error = internal::CopyText(entry.class_name, class_name, class_length))
      return Status(error);
  }
  if (last_write_time != nullptr) *last_write_time = internal::ToFileTime(entry.last_write);
  return Status(ERROR_SUCCESS);
}

LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR value_name, LPDWORD name_length,
                      LPDWORD /*reserved*/, LPDWORD type, LPBYTE data, LPDWORD data_size) {
  namespace internal = n7platform::internal;
  if (value_name == nullptr || name_length == nullptr) return ERROR_INVALID_PARAMETER;
  if (data != nullptr && data_size == nullptr) return ERROR_INVALID_PARAMETER;
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, KEY_QUERY_VALUE, &open)) return Status(error);
  internal::ValueEntry entry;
  if (DWORD error = open->store->EnumValue(open->ref, index, &entry)) return Status(error);
  if (DWORD error = internal::CopyText(entry.name, value_name, name_length)) return Status(error);
  if (type != nullptr) *type = entry.type;
  if (data_size == nullptr) return ERROR_SUCCESS;
  const DWORD room = *data_size;
  *data_size = static_cast<DWORD>(entry.data.size());
  if (data == nullptr) return ERROR_SUCCESS;
  if (entry.data.size() > room) return ERROR_MORE_DATA;
  std::copy(entry.data.begin(), entry.data.end(), data);
  return Status(ERROR_SUCCESS);
}

LSTATUS RegFlushKey(HKEY key) {
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = TheRegistry().Find(key, &open)) return Status(error);
  return Status(open->store->Flush());
}

LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR class_name, LPDWORD class_length, LPDWORD /*reserved*/,
                         LPDWORD sub_keys, LPDWORD max_sub_key_length, LPDWORD max_class_length,
                         LPDWORD values, LPDWORD max_value_name_length, LPDWORD max_value_length,
                         LPDWORD security_descriptor_size, PFILETIME last_write_time) {
  namespace internal = n7platform::internal;
  if (class_name != nullptr && class_length == nullptr) return ERROR_INVALID_PARAMETER;
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, KEY_QUERY_VALUE, &open)) return Status(error);
  internal::KeyInfo info;
  if (DWORD error = open->store->QueryInfo(open->ref, &info)) return Status(error);
  if (class_name != nullptr) {
    if (DWORD error = internal::CopyText(info.class_name, class_name, class_length)) {
      *class_length = static_cast<DWORD>(internal::Utf8ToWide(info.class_name).size());
      return Status(error);
    }
  } else if (class_length != nullptr) {
    *class_length = static_cast<DWORD>(internal::Utf8ToWide(info.class_name).size());
  }
  const auto set = [](LPDWORD out, DWORD value) {
    if (out != nullptr) *out = value;
  };
  set(sub_keys, info.sub_keys);
  set(max_sub_key_length, info.max_sub_key_length);
  set(max_class_length, info.max_class_length);
  set(values, info.values);
  set(max_value_name_length, info.max_value_name_length);
  set(max_value_length, info.max_value_length);
  set(security_descriptor_size, info.security_size);
  if (last_write_time != nullptr) *last_write_time = internal::ToFileTime(info.last_write);
  return Status(ERROR_SUCCESS);
}

LSTATUS RegQueryValueExW(HKEY key, LPCWSTR value_name, LPDWORD /*reserved*/, LPDWORD type,
                         LPBYTE data, LPDWORD data_size) {
  if (data != nullptr && data_size == nullptr) return ERROR_INVALID_PARAMETER;
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, KEY_QUERY_VALUE, &open)) return Status(error);
  RegName name;
  if (DWORD error = n7platform::internal::ParseValueName(value_name, &name)) return Status(error);
  return Status(open->store->QueryValue(open->ref, name.folded, type, data, data_size));
}

LSTATUS RegSetValueExW(HKEY key, LPCWSTR value_name, DWORD /*reserved*/, DWORD type,
                       const BYTE* data, DWORD data_size) {
  if (data == nullptr && data_size != 0) return ERROR_INVALID_PARAMETER;
  if (data_size > n7platform::internal::kMaxDataSize) return ERROR_INVALID_PARAMETER;
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, KEY_SET_VALUE, &open)) return Status(error);
  RegName name;
  if (DWORD error = n7platform::internal::ParseValueName(value_name, &name)) return Status(error);
  return Status(
      open->store->SetValue(open->ref, name, type, std::span<const BYTE>(data, data_size)));
}

LSTATUS RegSaveKeyW(HKEY key, LPCWSTR file, const LPSECURITY_ATTRIBUTES /*security*/) {
  namespace internal = n7platform::internal;
  std::string path;
  if (DWORD error = internal::ToFilePath(file, &path)) return Status(error);
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS, &open))
    return Status(error);
  internal::SavedKey tree;
  if (DWORD error = open->store->Save(open->ref, &tree)) return Status(error);
  return Status(internal::WriteNewFile(path, internal::EncodeSavedKey(tree)));
}

LSTATUS RegRestoreKeyW(HKEY key, LPCWSTR file, DWORD flags) {
  namespace internal = n7platform::internal;
  if ((flags & ~REG_FORCE_RESTORE) != 0) return ERROR_INVALID_PARAMETER;
  std::string path;
  if (DWORD error = internal::ToFilePath(file, &path)) return Status(error);
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, KEY_SET_VALUE | KEY_CREATE_SUB_KEY, &open))
    return Status(error);
  std::string bytes;
  if (DWORD error = internal::ReadFile(path, &bytes)) return Status(error);
  internal::SavedKey tree;
  if (!internal::DecodeSavedKey(bytes, &tree)) return ERROR_REGISTRY_CORRUPT;
  return Status(open->store->Restore(open->ref, tree));
}

LSTATUS RegGetKeySecurity(HKEY key, SECURITY_INFORMATION information,
                          PSECURITY_DESCRIPTOR descriptor, LPDWORD descriptor_size) {
  if (descriptor_size == nullptr) return ERROR_INVALID_PARAMETER;
  REGSAM needed = READ_CONTROL;
  if ((information & SACL_SECURITY_INFORMATION) != 0) needed |= ACCESS_SYSTEM_SECURITY;
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, needed, &open)) return Status(error);
  std::vector<BYTE> stored;
  if (DWORD error = open->store->GetSecurity(open->ref, &stored)) return Status(error);
  const DWORD room = *descriptor_size;
  *descriptor_size = static_cast<DWORD>(stored.size());
  if (descriptor == nullptr || stored.size() > room) return ERROR_INSUFFICIENT_BUFFER;
  std::copy(stored.begin(), stored.end(), static_cast<BYTE*>(descriptor));
  return Status(ERROR_SUCCESS);
}

LSTATUS RegSetKeySecurity(HKEY key, SECURITY_INFORMATION information,
                          PSECURITY_DESCRIPTOR descriptor) {
  if (descriptor == nullptr || information == 0) return ERROR_INVALID_PARAMETER;
  REGSAM needed = 0;
  if ((information & (OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION)) != 0)
    needed |= WRITE_OWNER;
  if ((information & DACL_SECURITY_INFORMATION) != 0) needed |= WRITE_DAC;
  if ((information & SACL_SECURITY_INFORMATION) != 0) needed |= ACCESS_SYSTEM_SECURITY;
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, needed, &open)) return Status(error);
  std::vector<BYTE> bytes;
  if (DWORD error = n7platform::internal::ReadDescriptor(descriptor, &bytes)) return Status(error);
  return Status(open->store->SetSecurity(open->ref, bytes));
}

LSTATUS RegNotifyChangeKeyValue(HKEY key, BOOL watch_subtree, DWORD filter, HANDLE event,
                                BOOL asynchronous) {
  constexpr DWORD kKinds = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_ATTRIBUTES |
                           REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_CHANGE_SECURITY;
  if ((filter & kKinds) == 0 || (filter & ~(kKinds | REG_NOTIFY_THREAD_AGNOSTIC)) != 0)
    return Status(ERROR_INVALID_PARAMETER);
  if (asynchronous != FALSE && event == nullptr) return ERROR_INVALID_PARAMETER;
  std::shared_ptr<const OpenKey> open;
  if (DWORD error = FindWithRights(key, KEY_NOTIFY, &open)) return Status(error);
  n7platform::internal::Registration registration;
  registration.store = open->store;
  registration.owner = reinterpret_cast<std::uintptr_t>(key);
  registration.path = open->ref.path;
  registration.subtree = watch_subtree != FALSE;
  registration.filter = filter & kKinds;
  if (asynchronous == FALSE) return Status(n7platform::internal::WaitForChange(registration));
  registration.event = event;
  return Status(n7platform::internal::AddRegistration(std::move(registration)));
}
