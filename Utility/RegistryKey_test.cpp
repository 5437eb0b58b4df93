#include "n7utility/Utility/RegistryKey.h"

#include <gtest/gtest.h>

#include <string>

#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/RegistryFixture_internal.h"

namespace {

using n7platform::RegistryTest;
using n7platform::TemporaryRegistry;

using RegistryKeyTest = RegistryTest;

LONG SetText(CRegistryKey& key, const wchar_t* name, const std::wstring& text) {
  return key.SetValue(name, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                      static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

TEST_F(RegistryKeyTest, CreateReturnsTheDisposition) {
  CRegistryKey first, second;
  EXPECT_EQ(first.Create(HKEY_LOCAL_MACHINE, L"Software\\N7\\Key", 0, KEY_ALL_ACCESS, nullptr), 1);
  EXPECT_EQ(first.GetLastError(), 0);
  EXPECT_EQ(second.Create(HKEY_LOCAL_MACHINE, L"Software\\N7\\Key", 0, KEY_READ, nullptr), 2);

  // The object converts to its handle, so it serves as a parent.
  CRegistryKey child;
  EXPECT_EQ(child.Create(first, L"Child", 0, KEY_ALL_ACCESS, nullptr), 1);
  CRegistryKey opened;
  EXPECT_EQ(opened.Open(static_cast<HKEY>(first), L"child", KEY_READ), 0);
  EXPECT_EQ(opened.Open(first, L"Missing", KEY_READ), -1);
  EXPECT_EQ(opened.GetLastError(), static_cast<LONG>(ERROR_FILE_NOT_FOUND));
}

TEST_F(RegistryKeyTest, CloseOnAnEmptyKeyFailsWithBadKey) {
  CRegistryKey key;
  EXPECT_EQ(key.Close(), -1);
  EXPECT_EQ(key.GetLastError(), 1010);

  ASSERT_EQ(key.ConnectRegistry(HKEY_LOCAL_MACHINE, nullptr), 0);
  EXPECT_EQ(key.Close(), 0);
  EXPECT_EQ(static_cast<HKEY>(key), nullptr);
  EXPECT_EQ(key.ConnectRegistry(HKEY_LOCAL_MACHINE, L"elsewhere.invalid"), -1);
  EXPECT_EQ(key.GetLastError(), static_cast<LONG>(ERROR_BAD_NETPATH));
  // Other operations pass a null handle on, and keep what the platform said.
  DWORD number = 0;
  EXPECT_EQ(CRegistryKey().GetValue(L"n", number), -1);
}

TEST_F(RegistryKeyTest, TextReadsAtMost1024CharactersAndANumberFourBytes) {
  CRegistryKey key;
  ASSERT_EQ(key.Create(HKEY_LOCAL_MACHINE, L"Software\\Text", 0, KEY_ALL_ACCESS, nullptr), 1);
  CString text;
  const std::wstring longest(1023, L'x');  // with its terminator: 1024 characters
  ASSERT_EQ(SetText(key, L"Longest", longest), 0);
  EXPECT_EQ(key.GetValue(L"Longest", text), 0);
  EXPECT_EQ(text, longest.c_str());

  ASSERT_EQ(SetText(key, L"TooLong", longest + L'x'), 0);
  text = L"stale";
  EXPECT_EQ(key.GetValue(L"TooLong", text), -1);
  EXPECT_EQ(key.GetLastError(), static_cast<LONG>(ERROR_MORE_DATA));
  EXPECT_EQ(text, L"");

  // The type is not checked: a number's bytes are read as characters.
  const DWORD letter = L'Y';
  ASSERT_EQ(key.SetValue(L"Number", REG_DWORD, reinterpret_cast<const BYTE*>(&letter), 4), 0);
  EXPECT_EQ(key.GetValue(L"Number", text), 0);
  EXPECT_EQ(text, L"Y");

  // A number reads at most four bytes, and only a successful read changes it.
  DWORD number = 0;
  const DWORD seven = 7;
  ASSERT_EQ(key.SetValue(L"Seven", REG_DWORD, reinterpret_cast<const BYTE*>(&seven), 4), 0);
  EXPECT_EQ(key.GetValue(L"Seven", number), 0);
  EXPECT_EQ(number, 7u);
  const BYTE one_byte = 5;
  ASSERT_EQ(key.SetValue(L"Short", REG_BINARY, &one_byte, 1), 0);
  EXPECT_EQ(key.GetValue(L"Short", number), 0);
  EXPECT_EQ(number, 5u);
  const ULONGLONG wide = 1;
  ASSERT_EQ(key.SetValue(L"Wide", REG_QWORD, reinterpret_cast<const BYTE*>(&wide), 8), 0);
  EXPECT_EQ(key.GetValue(L"Wide", number), -1);
  EXPECT_EQ(key.GetLastError(), static_cast<LONG>(ERROR_MORE_DATA));
  EXPECT_EQ(number, 5u);
}

TEST_F(RegistryKeyTest, QueryInfoRefusesAClassOfMoreThan31Characters) {
  for (const std::size_t length : {31u, 32u}) {
    const std::wstring path = L"Software\\Class" + std::to_wstring(length);
    std::wstring class_name(length, L'c');
    HKEY raw = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, class_name.data(), 0,
                              KEY_ALL_ACCESS, nullptr, &raw, nullptr),
              0);
    RegCloseKey(raw);
    CRegistryKey key;
    ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ), 0);
    DWORD sub_keys, max_sub_key, values, max_value_name, max_value, security;
    FILETIME written;
    const LONG expected = length == 31 ? 0 : -1;
    EXPECT_EQ(
        key.QueryInfo(sub_keys, max_sub_key, values, max_value_name, max_value, security, written),
        expected);
    EXPECT_EQ(key.GetLastError(), length == 31 ? 0 : static_cast<LONG>(ERROR_MORE_DATA));
  }
}

TEST_F(RegistryKeyTest, NotifyChangeWithAnEventReturnsAtOnce) {
  CRegistryKey key;
  ASSERT_EQ(key.Create(HKEY_LOCAL_MACHINE, L"Software\\Watched", 0, KEY_ALL_ACCESS, nullptr), 1);
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ASSERT_EQ(key.NotifyChange(REG_NOTIFY_CHANGE_LAST_SET, FALSE, event), 0);
  EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
  ASSERT_EQ(SetText(key, L"v", L"changed"), 0);
  EXPECT_EQ(WaitForSingleObject(event, 30000), WAIT_OBJECT_0);
  CloseHandle(event);
}

TEST(RegistryKeyVolatileTest, VolatileKeyDoesNotSurviveARestart) {
  TemporaryRegistry registry("first boot");
  {
    CRegistryKey parent, key;
    ASSERT_EQ(parent.Create(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_ALL_ACCESS, nullptr), 1);
    ASSERT_EQ(key.Create(parent, L"Fleeting", 1, KEY_ALL_ACCESS, nullptr), 1);
  }
  registry.Restart("second boot");
  CRegistryKey key;
  EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"Software\\Fleeting", KEY_READ), -1);
  EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, L"Software", KEY_READ), 0);
}

TEST_F(RegistryKeyTest, CopiesShareTheHandle) {
  CRegistryKey key;
  ASSERT_EQ(key.Create(HKEY_LOCAL_MACHINE, L"Software\\Shared", 0, KEY_ALL_ACCESS, nullptr), 1);
  CRegistryKey copy = key;
  EXPECT_EQ(static_cast<HKEY>(copy), static_cast<HKEY>(key));
  EXPECT_EQ(SetText(copy, L"v", L"through the copy"), 0);
  copy = CRegistryKey();
  CString text;
  EXPECT_EQ(key.GetValue(L"v", text), 0);
  EXPECT_EQ(text, L"through the copy");
}

}  // namespace
