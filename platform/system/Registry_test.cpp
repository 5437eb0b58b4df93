#include "n7utility/platform/system/Registry.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "n7utility/platform/base/ConcurrentRun_test.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/Time.h"
#include "n7utility/platform/system/RegistryFile_internal.h"
#include "n7utility/platform/system/RegistryFixture_internal.h"
#include "n7utility/platform/system/ScopedKey_internal.h"

namespace n7platform {
namespace {

using n7platform::test_support::RunConcurrently;

using internal::Hive;

using Key = n7platform::internal::ScopedKey;

LSTATUS Create(HKEY parent, const wchar_t* path, Key& key, DWORD* disposition = nullptr,
               REGSAM access = KEY_ALL_ACCESS, DWORD options = REG_OPTION_NON_VOLATILE) {
  return RegCreateKeyExW(parent, path, 0, nullptr, options, access, nullptr, key.out(),
                         disposition);
}

LSTATUS SetText(HKEY key, const wchar_t* name, const std::wstring& text) {
  return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

LSTATUS SetNumber(HKEY key, const wchar_t* name, DWORD number) {
  return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                        sizeof number);
}

std::wstring GetText(HKEY key, const wchar_t* name) {
  wchar_t buffer[256] = {};
  DWORD size = sizeof buffer - sizeof(wchar_t);
  if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size) !=
      ERROR_SUCCESS)
    return L"<missing>";
  return buffer;
}

LSTATUS Open(HKEY parent, const wchar_t* path, Key& key, REGSAM access = KEY_READ) {
  return RegOpenKeyExW(parent, path, 0, access, key.out());
}

// The names RegEnumKeyExW or RegEnumValueW lists, in their order.
template <typename Enumerate>
std::vector<std::wstring> Names(HKEY key, Enumerate enumerate) {
  std::vector<std::wstring> names;
  wchar_t name[256];
  for (DWORD index = 0;; ++index) {
    DWORD length = 256;
    if (enumerate(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
      return names;
    names.emplace_back(name, length);
  }
}
std::vector<std::wstring> SubkeyNames(HKEY key) { return Names(key, RegEnumKeyExW); }
std::vector<std::wstring> ValueNames(HKEY key) { return Names(key, RegEnumValueW); }

TEST_F(RegistryTest, CreateReportsNewThenExistingKey) {
  Key first, second, opened;
  DWORD disposition = 0;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\N7\\Test", first, &disposition), 0);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\N7\\Test\\", second, &disposition), 0);
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"Software\\N7", opened), 0);
  EXPECT_EQ(SubkeyNames(opened), std::vector<std::wstring>{L"Test"});

  Key missing;
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"Software\\Nope", missing), ERROR_FILE_NOT_FOUND);
  // The hives are separate stores.
  EXPECT_EQ(Open(HKEY_CURRENT_USER, L"Software\\N7", missing), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryTest, MalformedArgumentsAreRefused) {
  Key key;
  EXPECT_EQ(Create(HKEY_LOCAL_MACHINE, L"a\\\\b", key), ERROR_BAD_PATHNAME);
  EXPECT_EQ(Create(HKEY_LOCAL_MACHINE, L"\\a", key), ERROR_BAD_PATHNAME);
  EXPECT_EQ(Create(HKEY_LOCAL_MACHINE, std::wstring(256, L'k').c_str(), key),
            ERROR_INVALID_PARAMETER);
  const wchar_t not_unicode[] = {L'a', static_cast<wchar_t>(0xD800), L'\0'};
  EXPECT_EQ(Create(HKEY_LOCAL_MACHINE, not_unicode, key), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(
      RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"a", 0, nullptr, 0, KEY_READ, nullptr, nullptr, nullptr),
      ERROR_INVALID_PARAMETER);
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  const HKEY bogus = reinterpret_cast<HKEY>(std::uintptr_t{0x1234});
  EXPECT_EQ(RegCloseKey(bogus), ERROR_INVALID_HANDLE);
  EXPECT_EQ(SetNumber(bogus, L"v", 1), ERROR_INVALID_HANDLE);

  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"a", key), 0);
  HKEY copy = key;
  Key closed;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"a", closed), 0);
  const HKEY stale = closed;
  ASSERT_EQ(RegCloseKey(stale), 0);
  EXPECT_EQ(RegCloseKey(stale), ERROR_INVALID_HANDLE);
  *closed.out() = nullptr;
  EXPECT_EQ(SetNumber(copy, L"v", 1), 0);
}

TEST_F(RegistryTest, ConnectReachesOnlyThisMachine) {
  Key key;
  EXPECT_EQ(RegConnectRegistryW(nullptr, HKEY_LOCAL_MACHINE, key.out()), 0);
  Key remote;
  EXPECT_EQ(RegConnectRegistryW(L"\\\\some-other-host.invalid", HKEY_LOCAL_MACHINE, remote.out()),
            ERROR_BAD_NETPATH);
  char host[256] = {};
  ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
  const std::wstring local = L"\\\\" + std::wstring(host, host + std::strlen(host));
  Key named;
  EXPECT_EQ(RegConnectRegistryW(local.c_str(), HKEY_LOCAL_MACHINE, named.out()), 0);
}

TEST_F(RegistryTest, NamesIgnoreCaseAndKeepIt) {
  Key key, again;
  ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Software\\MyApp\\Ärger", key), 0);
  DWORD disposition = 0;
  ASSERT_EQ(Create(HKEY_CURRENT_USER, L"SOFTWARE\\myapp\\äRGER", again, &disposition), 0);
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);

  ASSERT_EQ(SetText(key, L"Colour", L"red"), 0);
  ASSERT_EQ(SetText(again, L"COLOUR", L"blue"), 0);
  EXPECT_EQ(GetText(key, L"colour"), L"blue");
  EXPECT_EQ(ValueNames(key), std::vector<std::wstring>{L"Colour"});

  Key parent;
  ASSERT_EQ(Open(HKEY_CURRENT_USER, L"software\\MYAPP", parent), 0);
  EXPECT_EQ(SubkeyNames(parent), std::vector<std::wstring>{L"Ärger"});
}

TEST_F(RegistryTest, QueryValueFollowsTheBufferRules) {
  Key key;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Values", key), 0);
  ASSERT_EQ(SetText(key, L"Text", L"hello"), 0);
  constexpr DWORD kTextSize = 6 * sizeof(wchar_t);

  DWORD type = 0, size = 0;
  EXPECT_EQ(RegQueryValueExW(key, L"Text", nullptr, &type, nullptr, &size), 0);
  EXPECT_EQ(type, REG_SZ);
  EXPECT_EQ(size, kTextSize);

  BYTE small[8] = {};
  size = sizeof small;
  EXPECT_EQ(RegQueryValueExW(key, L"Text", nullptr, nullptr, small, &size), ERROR_MORE_DATA);
  EXPECT_EQ(size, kTextSize);
  EXPECT_EQ(RegQueryValueExW(key, L"Text", nullptr, nullptr, small, nullptr),
            ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegQueryValueExW(key, L"Missing", nullptr, nullptr, nullptr, &size),
            ERROR_FILE_NOT_FOUND);

  // The default value has the empty name, and empty data is a value too.
  ASSERT_EQ(RegSetValueExW(key, nullptr, 0, REG_BINARY, nullptr, 0), 0);
  size = 99;
  EXPECT_EQ(RegQueryValueExW(key, L"", nullptr, &type, nullptr, &size), 0);
  EXPECT_EQ(type, REG_BINARY);
  EXPECT_EQ(size, 0u);

  EXPECT_EQ(RegDeleteValueW(key, L"TEXT"), 0);
  EXPECT_EQ(RegDeleteValueW(key, L"TEXT"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(GetText(key, L"Text"), L"<missing>");
}

TEST_F(RegistryTest, HandlesCarryOnlyTheRightsAskedFor) {
  Key full;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Rights", full), 0);
  ASSERT_EQ(SetNumber(full, L"n", 7), 0);
  Key reader, writer, plain;
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, L"Software\\Rights", reader), 0);
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, L"Software\\Rights", writer, KEY_WRITE), 0);
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, L"Software\\Rights", plain, KEY_QUERY_VALUE), 0);

  EXPECT_EQ(SetNumber(reader, L"n", 8), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteValueW(reader, L"n"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegQueryValueExW(writer, L"n", nullptr, nullptr, nullptr, nullptr),
            ERROR_ACCESS_DENIED);
  EXPECT_EQ(SetNumber(writer, L"n", 8), 0);
  EXPECT_EQ(RegQueryValueExW(plain, L"n", nullptr, nullptr, nullptr, nullptr), 0);
  wchar_t name[16];
  DWORD length = 16;
  EXPECT_EQ(RegEnumKeyExW(plain, 0, name, &length, nullptr, nullptr, nullptr, nullptr),
            ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegNotifyChangeKeyValue(plain, FALSE, REG_NOTIFY_CHANGE_LAST_SET, nullptr, FALSE),
            ERROR_ACCESS_DENIED);

  // Creating a subkey needs KEY_CREATE_SUB_KEY; opening an existing one through create does not.
  Key child;
  EXPECT_EQ(Create(reader, L"Child", child), ERROR_ACCESS_DENIED);
  ASSERT_EQ(Create(writer, L"Child", child), 0);
  Key existing;
  DWORD disposition = 0;
  EXPECT_EQ(Create(reader, L"Child", existing, &disposition, KEY_READ), 0);
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
  // Generic rights count as the key rights they stand for.
  Key generic;
  ASSERT_EQ(Open(full, nullptr, generic, GENERIC_READ), 0);
  EXPECT_EQ(RegQueryValueExW(generic, L"n", nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(SetNumber(generic, L"n", 9), ERROR_ACCESS_DENIED);
}

TEST_F(RegistryTest, EnumerationOrderAndLimits) {
  Key key;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Order", key), 0);
  for (const wchar_t* name : {L"beta", L"Alpha", L"gamma"}) {
    Key child;
    ASSERT_EQ(Create(key, name, child), 0);
  }
  for (const wchar_t* name : {L"zulu", L"Yankee", L"alpha"}) ASSERT_EQ(SetNumber(key, name, 1), 0);
  EXPECT_EQ(SubkeyNames(key), (std::vector<std::wstring>{L"Alpha", L"beta", L"gamma"}));
  EXPECT_EQ(ValueNames(key), (std::vector<std::wstring>{L"zulu", L"Yankee", L"alpha"}));

  wchar_t name[8];
  DWORD length = 5;  // "gamma" and its terminator need 6
  EXPECT_EQ(RegEnumKeyExW(key, 2, name, &length, nullptr, nullptr, nullptr, nullptr),
            ERROR_MORE_DATA);
  length = 8;
  EXPECT_EQ(RegEnumKeyExW(key, 3, name, &length, nullptr, nullptr, nullptr, nullptr),
            ERROR_NO_MORE_ITEMS);
  BYTE data[2];
  DWORD size = sizeof data;
  DWORD type = 0;
  length = 8;
  EXPECT_EQ(RegEnumValueW(key, 0, name, &length, nullptr, &type, data, &size), ERROR_MORE_DATA);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(type, REG_DWORD);
}

TEST_F(RegistryTest, QueryInfoCountsAndClassBuffer) {
  Key key;
  const std::wstring long_class(32, L'c');
  ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Info", 0,
                            const_cast<wchar_t*>(long_class.c_str()), 0, KEY_ALL_ACCESS, nullptr,
                            key.out(), nullptr),
            0);
  Key child;
  ASSERT_EQ(Create(key, L"LongerName", child), 0);
  ASSERT_EQ(SetText(key, L"Value", L"four"), 0);

  DWORD sub_keys = 0, max_sub_key = 0, values = 0, max_value_name = 0, max_value = 0, sd = 0;
  EXPECT_EQ(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &sub_keys, &max_sub_key, nullptr,
                             &values, &max_value_name, &max_value, &sd, nullptr),
            0);
  EXPECT_EQ(sub_keys, 1u);
  EXPECT_EQ(max_sub_key, 10u);
  EXPECT_EQ(values, 1u);
  EXPECT_EQ(max_value_name, 5u);
  EXPECT_EQ(max_value, 5 * sizeof(wchar_t));
  EXPECT_EQ(sd, 20u);

  wchar_t class_name[32];
  DWORD class_length = 32;
  EXPECT_EQ(RegQueryInfoKeyW(key, class_name, &class_length, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr, nullptr),
            ERROR_MORE_DATA);
  EXPECT_EQ(class_length, 32u);
}

std::uint64_t Number(FILETIME time) {
  return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

// The last-write time of `key` as RegQueryInfoKeyW reports it.
std::uint64_t LastWrite(HKEY key) {
  FILETIME time{};
  EXPECT_EQ(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr, &time),
            0);
  return Number(time);
}

// The last-write time of the first subkey of `parent` as its enumeration reports it.
std::uint64_t FirstSubkeyLastWrite(HKEY parent) {
  wchar_t name[256];
  DWORD length = 256;
  FILETIME time{};
  EXPECT_EQ(RegEnumKeyExW(parent, 0, name, &length, nullptr, nullptr, nullptr, &time), 0);
  return Number(time);
}

// A key keeps the last-write time it was restored with, values and all, until something is
// written to it; every view of the key then reports the time of that write.
TEST_F(RegistryTest, LastWriteTimeFollowsWritesToTheKey) {
  constexpr std::uint64_t kLongAgo = 0x01D9'0000'1234'5678ull;
  internal::SavedKey tree;
  internal::SavedKey& old = tree.subkeys.emplace_back();
  old.name = "Old";
  old.last_write = kLongAgo;
  old.values.push_back({"Kept", REG_DWORD, {1, 0, 0, 0}});
  const std::string dir = registry_.directory();
  std::ofstream(dir + "/old.reg", std::ios::binary) << internal::EncodeSavedKey(tree);
  const std::wstring wide_dir(dir.begin(), dir.end());

  Key parent, key;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Times", parent), 0);
  ASSERT_EQ(RegRestoreKeyW(parent, (wide_dir + L"/old.reg").c_str(), 0), 0);
  ASSERT_EQ(Open(parent, L"Old", key, KEY_ALL_ACCESS), 0);
  EXPECT_EQ(LastWrite(key), kLongAgo);
  EXPECT_EQ(FirstSubkeyLastWrite(parent), kLongAgo);

  FILETIME before;
  GetSystemTimeAsFileTime(&before);
  ASSERT_EQ(SetNumber(key, L"Kept", 2), 0);
  const std::uint64_t written = LastWrite(key);
  EXPECT_GE(written, Number(before));
  EXPECT_EQ(FirstSubkeyLastWrite(parent), written);

  // A save carries the time of the write.
  ASSERT_EQ(RegSaveKeyW(parent, (wide_dir + L"/new.reg").c_str(), nullptr), 0);
  Key copy;
  ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Copy", copy), 0);
  ASSERT_EQ(RegRestoreKeyW(copy, (wide_dir + L"/new.reg").c_str(), 0), 0);
  EXPECT_EQ(FirstSubkeyLastWrite(copy), written);

  // Deleting a value is a write too.
  ASSERT_EQ(RegRestoreKeyW(parent, (wide_dir + L"/old.reg").c_str(), 0), 0);
  Key again;
  ASSERT_EQ(Open(parent, L"Old", again, KEY_ALL_ACCESS), 0);
  EXPECT_EQ(LastWrite(again), kLongAgo);
  ASSERT_EQ(RegDeleteValueW(again, L"Kept"), 0);
  EXPECT_GE(LastWrite(again), written);
}

TEST_F(RegistryTest, DeletingKeys) {
  Key parent, child;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Del\\Child", child), 0);
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"Software\\Del"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"Software\\Del\\Nope"), ERROR_FILE_NOT_FOUND);
  ASSERT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"software\\del\\CHILD"), 0);
  // A handle to a deleted key stays valid but every use reports the deletion.
  EXPECT_EQ(SetNumber(child, L"n", 1), ERROR_KEY_DELETED);
  EXPECT_EQ(RegQueryValueExW(child, L"n", nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, L""), ERROR_ACCESS_DENIED);
  // A key of the same name made afterwards is another key.
  Key recreated;
  DWORD disposition = 0;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Del\\Child", recreated, &disposition), 0);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  EXPECT_EQ(SetNumber(child, L"n", 1), ERROR_KEY_DELETED);
}

TEST_F(RegistryTest, SaveAndRestoreRoundTrip) {
  Key key;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Saved", key), 0);
  ASSERT_EQ(SetText(key, L"Top", L"top"), 0);
  {
    Key child;
    ASSERT_EQ(Create(key, L"Child\\Grandchild", child), 0);
    ASSERT_EQ(SetNumber(child, L"Deep", 42), 0);
    Key fleeting;
    ASSERT_EQ(Create(key, L"Fleeting", fleeting, nullptr, KEY_ALL_ACCESS, REG_OPTION_VOLATILE), 0);
  }
  const std::wstring file =
      std::wstring(registry_.directory().begin(), registry_.directory().end()) + L"/saved.reg";
  ASSERT_EQ(RegSaveKeyW(key, file.c_str(), nullptr), 0);
  EXPECT_EQ(RegSaveKeyW(key, file.c_str(), nullptr), ERROR_ALREADY_EXISTS);

  Key target;
  ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Restored", target), 0);
  ASSERT_EQ(SetText(target, L"Old", L"gone after the restore"), 0);
  ASSERT_EQ(RegRestoreKeyW(target, file.c_str(), 0), 0);
  EXPECT_EQ(ValueNames(target), std::vector<std::wstring>{L"Top"});
  EXPECT_EQ(SubkeyNames(target), std::vector<std::wstring>{L"Child"});  // volatile keys stay out
  Key deep;
  ASSERT_EQ(Open(target, L"child\\grandchild", deep), 0);
  DWORD number = 0, size = sizeof number;
  EXPECT_EQ(
      RegQueryValueExW(deep, L"Deep", nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &size),
      0);
  EXPECT_EQ(number, 42u);

  EXPECT_EQ(RegRestoreKeyW(target, (file + L".none").c_str(), 0), ERROR_FILE_NOT_FOUND);
}

// A save file is outside input: a file the store could not have written is refused whole, since
// a name holding U+0000 or a class that is not UTF-8 could be neither listed, opened nor deleted.
TEST_F(RegistryTest, RestoreRefusesDamagedFilesAndContentTheStoreCannotHold) {
  Key target;
  ASSERT_EQ(Create(HKEY_CURRENT_USER, L"Target", target), 0);
  ASSERT_EQ(SetText(target, L"Kept", L"kept"), 0);
  const auto tree = [](auto spoil) {
    internal::SavedKey root;
    root.values.push_back({"Good", REG_DWORD, {1, 0, 0, 0}});
    root.subkeys.emplace_back().name = "Child";
    spoil(root);
    return internal::EncodeSavedKey(root);
  };
  const std::string spoilt[] = {
      tree([](internal::SavedKey&) {}).substr(0, 20),  // cut short
      tree([](internal::SavedKey& k) {
        k.values.push_back({std::string("a\0b", 3), 4, {}});
      }),
      tree([](internal::SavedKey& k) { k.subkeys.emplace_back().name = std::string("c\0", 2); }),
      tree([](internal::SavedKey& k) { k.subkeys.front().class_name = "\xC3("; }),
      tree([](internal::SavedKey& k) { k.subkeys.front().class_name = std::string("x\0", 2); }),
      tree([](internal::SavedKey& k) {
        k.values.push_back({"Huge", REG_BINARY, std::vector<BYTE>((16u << 20) + 1)});
      }),
  };
  const std::string directory = registry_.directory();
  int n = 0;
  for (const std::string& saved : spoilt) {
    const std::string path = directory + "/spoilt" + std::to_string(n++);
    std::ofstream(path, std::ios::binary) << saved;
    const std::wstring file(path.begin(), path.end());
    EXPECT_EQ(RegRestoreKeyW(target, file.c_str(), 0), ERROR_REGISTRY_CORRUPT) << n;
    EXPECT_EQ(ValueNames(target), std::vector<std::wstring>{L"Kept"});
    EXPECT_TRUE(SubkeyNames(target).empty());
  }
}

TEST(RegistryVolatileTest, VolatileKeysEndWithTheBoot) {
  TemporaryRegistry registry("boot-A");
  {
    Key key, lasting, child;
    ASSERT_EQ(
        Create(HKEY_LOCAL_MACHINE, L"Fleeting", key, nullptr, KEY_ALL_ACCESS, REG_OPTION_VOLATILE),
        0);
    ASSERT_EQ(Create(key, L"Child", child, nullptr, KEY_ALL_ACCESS, REG_OPTION_VOLATILE), 0);
    ASSERT_EQ(SetNumber(child, L"n", 1), 0);
    EXPECT_EQ(Create(key, L"Lasting", lasting), ERROR_CHILD_MUST_BE_VOLATILE);
    ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Lasting", lasting), 0);
  }
  registry.Restart("boot-A");  // the process restarts, the machine does not
  Key survivor;
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"Fleeting\\Child", survivor), 0);
  *survivor.out() = nullptr;  // closed by the restart

  registry.Restart("boot-B");
  Key gone, lasting;
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"Fleeting", gone), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"Lasting", lasting), 0);
}

TEST_F(RegistryTest, SecurityDescriptorsAreKeptAsBytes) {
  Key key;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Secure", key), 0);
  BYTE buffer[64] = {};
  DWORD size = 4;
  EXPECT_EQ(RegGetKeySecurity(key, DACL_SECURITY_INFORMATION, buffer, &size),
            ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(size, 20u);

  // Self-relative, with an owner SID (S-1-5-18) after the header.
  BYTE descriptor[32] = {1, 0, 0x00, 0x80, 20, 0, 0, 0};
  const BYTE owner[] = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};
  std::memcpy(descriptor + 20, owner, sizeof owner);
  ASSERT_EQ(RegSetKeySecurity(key, OWNER_SECURITY_INFORMATION, descriptor), 0);
  size = sizeof buffer;
  ASSERT_EQ(RegGetKeySecurity(key, OWNER_SECURITY_INFORMATION, buffer, &size), 0);
  ASSERT_EQ(size, sizeof descriptor);
  EXPECT_EQ(std::memcmp(buffer, descriptor, size), 0);

  BYTE absolute[20] = {1, 0, 0, 0};
  EXPECT_EQ(RegSetKeySecurity(key, OWNER_SECURITY_INFORMATION, absolute),
            ERROR_INVALID_SECURITY_DESCR);
  Key reader;
  ASSERT_EQ(Open(key, nullptr, reader), 0);
  EXPECT_EQ(RegSetKeySecurity(reader, DACL_SECURITY_INFORMATION, descriptor), ERROR_ACCESS_DENIED);
}

// Stores made before values carried their own write time open, read and take writes.
TEST_F(RegistryTest, StoreWithoutValueTimesIsBroughtUpToDate) {
  {
    Key key;
    ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Older", key), 0);
    ASSERT_EQ(SetText(key, L"Kept", L"kept"), 0);
  }
  registry_.Restart("boot-1");
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(registry_.HiveFile(Hive::kLocalMachine).c_str(), &db), SQLITE_OK);
  const int dropped =
      sqlite3_exec(db, "ALTER TABLE vals DROP COLUMN written", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  ASSERT_EQ(dropped, SQLITE_OK);

  Key key;
  ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, L"Software\\Older", key, KEY_ALL_ACCESS), 0);
  EXPECT_EQ(GetText(key, L"Kept"), L"kept");
  const std::uint64_t before = LastWrite(key);
  ASSERT_EQ(SetText(key, L"Kept", L"changed"), 0);
  EXPECT_EQ(GetText(key, L"Kept"), L"changed");
  EXPECT_GE(LastWrite(key), before);
}

// A store file that is not a database, or one cut short, is reported as corrupt; another hive is
// unaffected.
TEST_F(RegistryTest, DamagedStoreFilesGiveAClearError) {
  {
    Key key;
    ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Big", key), 0);
    const std::vector<BYTE> data(3000, 0xAB);
    for (int i = 0; i < 100; ++i) {
      const std::wstring name = L"v" + std::to_wstring(i);
      ASSERT_EQ(RegSetValueExW(key, name.c_str(), 0, REG_BINARY, data.data(), 3000), 0);
    }
  }
  registry_.Restart("boot-1");  // closes the store, which folds the log into the file
  const std::string file = registry_.HiveFile(Hive::kLocalMachine);
  std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
  Key key;
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, L"Software\\Big", key), ERROR_REGISTRY_CORRUPT);

  std::ofstream(registry_.HiveFile(Hive::kUsers), std::ios::binary) << std::string(8192, 'x');
  EXPECT_EQ(Create(HKEY_USERS, L"Anything", key), ERROR_REGISTRY_CORRUPT);
  EXPECT_EQ(Create(HKEY_CLASSES_ROOT, L"Anything", key), 0);
}

// ---- Change notification ----

class RegistryNotifyTest : public RegistryTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Watched\\Child", child_), 0);
    ASSERT_EQ(Open(HKEY_LOCAL_MACHINE, L"Software\\Watched", watched_, KEY_ALL_ACCESS), 0);
  }
  void TearDown() override {
    for (HANDLE event : events_) CloseHandle(event);
  }

  HANDLE Watch(HKEY key, DWORD filter, BOOL subtree = FALSE) {
    HANDLE event = events_.emplace_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    EXPECT_EQ(RegNotifyChangeKeyValue(key, subtree, filter, event, TRUE), 0);
    return event;
  }

  static bool Signalled(HANDLE event, DWORD timeout = 0) {
    return WaitForSingleObject(event, timeout) == WAIT_OBJECT_0;
  }

  static constexpr DWORD kLongEnough = 30000;  // only reached when the test fails

  Key watched_, child_;
  std::vector<HANDLE> events_;
};

TEST_F(RegistryNotifyTest, EventIsSetByAChangeOfTheKindsAsked) {
  HANDLE values = Watch(watched_, REG_NOTIFY_CHANGE_LAST_SET);
  HANDLE names = Watch(watched_, REG_NOTIFY_CHANGE_NAME);
  HANDLE below = Watch(watched_, REG_NOTIFY_CHANGE_LAST_SET, TRUE);
  HANDLE child_only = Watch(child_, REG_NOTIFY_CHANGE_LAST_SET);
  ASSERT_EQ(SetNumber(watched_, L"n", 1), 0);
  EXPECT_TRUE(Signalled(values, kLongEnough));
  EXPECT_TRUE(Signalled(below, kLongEnough));
  // The same pass over the log saw the change and found it no concern of these.
  EXPECT_FALSE(Signalled(names));
  EXPECT_FALSE(Signalled(child_only));

  ASSERT_EQ(SetNumber(child_, L"n", 1), 0);
  EXPECT_TRUE(Signalled(child_only, kLongEnough));
  EXPECT_FALSE(Signalled(names));
  Key grandchild;
  ASSERT_EQ(Create(watched_, L"New", grandchild), 0);
  EXPECT_TRUE(Signalled(names, kLongEnough));
}

TEST_F(RegistryNotifyTest, EachCallReportsOneChange) {
  HANDLE event = Watch(watched_, REG_NOTIFY_CHANGE_LAST_SET);
  ASSERT_EQ(SetNumber(watched_, L"n", 1), 0);
  ASSERT_TRUE(Signalled(event, kLongEnough));
  ResetEvent(event);
  HANDLE probe = Watch(watched_, REG_NOTIFY_CHANGE_LAST_SET);
  ASSERT_EQ(SetNumber(watched_, L"n", 2), 0);
  ASSERT_TRUE(Signalled(probe, kLongEnough));
  EXPECT_FALSE(Signalled(event));
}

TEST_F(RegistryNotifyTest, ClosingOrDeletingTheKeyEndsTheWait) {
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExW(watched_, nullptr, 0, KEY_NOTIFY, &key), 0);
  HANDLE closed = Watch(key, REG_NOTIFY_CHANGE_LAST_SET);
  HANDLE deleted = Watch(child_, REG_NOTIFY_CHANGE_SECURITY);
  ASSERT_EQ(RegCloseKey(key), 0);
  EXPECT_TRUE(Signalled(closed));
  ASSERT_EQ(RegDeleteKeyW(watched_, L"Child"), 0);
  EXPECT_TRUE(Signalled(deleted, kLongEnough));
}

TEST_F(RegistryNotifyTest, SynchronousCallReturnsAfterAChange) {
  HANDLE returned = events_.emplace_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  LSTATUS result = -1;
  std::thread waiter([&] {
    result = RegNotifyChangeKeyValue(watched_, TRUE, REG_NOTIFY_CHANGE_LAST_SET, nullptr, FALSE);
    SetEvent(returned);
  });
  // The waiter may not have registered yet: keep changing until it reports one.
  DWORD round = 0;
  do {
    ASSERT_EQ(SetNumber(child_, L"n", ++round), 0);
  } while (!Signalled(returned, 20));
  waiter.join();
  EXPECT_EQ(result, 0);
}

TEST_F(RegistryTest, ThreadsWriteOneKeyAtOnce) {
  Key key;
  ASSERT_EQ(Create(HKEY_LOCAL_MACHINE, L"Software\\Threads", key), 0);
  constexpr int kThreads = 4, kValues = 200;
  RunConcurrently(kThreads, [&key](int t) {
    for (int i = 0; i < kValues; ++i) {
      const std::wstring name = std::to_wstring(t) + L"." + std::to_wstring(i);
      EXPECT_EQ(SetNumber(key, name.c_str(), static_cast<DWORD>(i)), 0);
      EXPECT_NE(GetText(key, name.c_str()), L"<missing>");
    }
  });
  DWORD values = 0;
  ASSERT_EQ(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values,
                             nullptr, nullptr, nullptr, nullptr),
            0);
  EXPECT_EQ(values, static_cast<DWORD>(kThreads * kValues));
}

}  // namespace
}  // namespace n7platform
