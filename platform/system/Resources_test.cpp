#include "n7utility/platform/system/Resources.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <string_view>

#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/FormatMessage.h"

namespace {

const wchar_t* const kModulePath = L"" N7_TEST_RESOURCE_MODULE;

std::string_view ItemText(HMODULE module, HRSRC found) {
  return {static_cast<const char*>(LockResource(LoadResource(module, found))),
          SizeofResource(module, found)};
}

// The text of RCDATA `id` found for `language` in the program, or "error N".
std::string FindText(WORD id, WORD language) {
  const HRSRC found = FindResourceExW(nullptr, RT_RCDATA, MAKEINTRESOURCEW(id), language);
  if (found == nullptr) return "error " + std::to_string(GetLastError());
  return std::string(ItemText(nullptr, found));
}

std::wstring ModuleFileName(HMODULE module) {
  std::array<wchar_t, 4096> path{};
  const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
  return {path.data(), length};
}

// The last error after a call that failed by returning zero or null, or kDidNotFail.
constexpr DWORD kDidNotFail = 0xFFFFFFFF;
template <typename Result>
DWORD ErrorOf(const Result& result) {
  return result == Result{} ? GetLastError() : kDidNotFail;
}

// The language resource module, loaded for the test and freed after it.
class LoadedModuleTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(module_, nullptr) << GetLastError(); }
  void TearDown() override { EXPECT_TRUE(FreeLibrary(module_)); }

  HMODULE module_ = LoadLibraryW(kModulePath);
};

TEST(ModuleTest, MainProgramIsTheNullModule) {
  const HMODULE program = GetModuleHandleW(nullptr);
  ASSERT_NE(program, nullptr);
  EXPECT_EQ(program, n7platform::ModuleFromAddress(reinterpret_cast<const void*>(&ItemText)));
  const std::wstring exe = std::filesystem::read_symlink("/proc/self/exe").wstring();
  EXPECT_EQ(ModuleFileName(nullptr), exe);
  EXPECT_EQ(ModuleFileName(program), exe);

  // A name longer than the buffer is cut to it.
  std::array<wchar_t, 5> path{};
  path.fill(L'x');
  EXPECT_EQ(GetModuleFileNameW(nullptr, path.data(), 5), 5u);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(std::wstring(path.data()), exe.substr(0, 4));
}

TEST(ModuleTest, MissingModulesAndBadHandlesFail) {
  EXPECT_EQ(ErrorOf(LoadLibraryW(L"/nonexistent/NoSuch.dll")), ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(ErrorOf(LoadLibraryW(L"")), ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(ErrorOf(GetModuleHandleW(kModulePath)), ERROR_MOD_NOT_FOUND);  // not loaded yet

  const auto bad =
      reinterpret_cast<HMODULE>(reinterpret_cast<char*>(GetModuleHandleW(nullptr)) + 16);
  std::array<wchar_t, 16> path{};
  EXPECT_EQ(ErrorOf(GetModuleFileNameW(bad, path.data(), 16)), ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(ErrorOf(FreeLibrary(bad)), ERROR_INVALID_HANDLE);
  EXPECT_EQ(ErrorOf(FindResourceW(bad, MAKEINTRESOURCEW(5), RT_RCDATA)), ERROR_INVALID_HANDLE);
  EXPECT_EQ(ErrorOf(LoadLibraryExW(kModulePath, nullptr, 0x8)), ERROR_INVALID_PARAMETER);
}

TEST_F(LoadedModuleTest, LoadedModuleIsFoundByPathAndCountsItsLoads) {
  EXPECT_EQ(GetModuleHandleW(kModulePath), module_);
  EXPECT_EQ(ModuleFileName(module_), std::filesystem::absolute(N7_TEST_RESOURCE_MODULE).wstring());
  const HMODULE again = LoadLibraryExW(kModulePath, nullptr, LOAD_LIBRARY_AS_DATAFILE);
  EXPECT_EQ(again, module_);
  EXPECT_TRUE(FreeLibrary(again));
  EXPECT_EQ(GetModuleHandleW(kModulePath), module_);  // still loaded once
}

TEST_F(LoadedModuleTest, ModuleHasItsOwnTableNotTheProgramsOne) {
  std::array<wchar_t, 16> text{};
  EXPECT_EQ(LoadStringW(module_, 1, text.data(), 16), 5);
  EXPECT_EQ(std::wstring(text.data()), L"Hallo");
  EXPECT_EQ(ErrorOf(LoadStringW(module_, 17, text.data(), 16)),
            ERROR_RESOURCE_NAME_NOT_FOUND);  // only the program has it
  EXPECT_EQ(ErrorOf(FindResourceW(module_, MAKEINTRESOURCEW(5), RT_RCDATA)),
            ERROR_RESOURCE_TYPE_NOT_FOUND);
  EXPECT_EQ(n7platform::LoadMessageText(module_, 0x100, 0), L"erste");
}

TEST(ResourceTest, ItemsAreFoundByNumberNameAndType) {
  const HRSRC numbered = FindResourceW(nullptr, MAKEINTRESOURCEW(5), RT_RCDATA);
  ASSERT_NE(numbered, nullptr);
  EXPECT_EQ(ItemText(nullptr, numbered), "\x01\x02\x03");
  EXPECT_EQ(FindResourceW(nullptr, L"#5", RT_RCDATA), numbered);
  const HRSRC named = FindResourceW(nullptr, L"Settings", RT_RCDATA);
  ASSERT_NE(named, nullptr);
  EXPECT_EQ(ItemText(nullptr, named), "key=value");
  const HRSRC custom = FindResourceW(nullptr, MAKEINTRESOURCEW(7), L"cUsToM");
  ASSERT_NE(custom, nullptr);
  EXPECT_EQ(ItemText(nullptr, custom), "custom");
}

TEST(ResourceTest, MissingItemsSayWhatIsMissing) {
  EXPECT_EQ(ErrorOf(FindResourceW(nullptr, MAKEINTRESOURCEW(5), L"NOTYPE")),
            ERROR_RESOURCE_TYPE_NOT_FOUND);
  EXPECT_EQ(ErrorOf(FindResourceW(nullptr, MAKEINTRESOURCEW(6), RT_RCDATA)),
            ERROR_RESOURCE_NAME_NOT_FOUND);
  const HMODULE libc = GetModuleHandleW(L"libc.so.6");  // loaded, without a resource table
  ASSERT_NE(libc, nullptr);
  EXPECT_EQ(ErrorOf(FindResourceW(libc, MAKEINTRESOURCEW(5), RT_RCDATA)),
            ERROR_RESOURCE_DATA_NOT_FOUND);
  EXPECT_EQ(ErrorOf(LoadResource(nullptr, nullptr)), ERROR_INVALID_HANDLE);
  EXPECT_EQ(SizeofResource(nullptr, nullptr), 0u);
}

TEST(ResourceTest, LanguageFallsBackToPrimaryThenNeutral) {
  EXPECT_EQ(FindText(20, 0x0407), "de-DE");
  EXPECT_EQ(FindText(20, 0x0807), "de");  // German (Switzerland): the primary language
  EXPECT_EQ(FindText(20, 0x040C), "neutral");
  EXPECT_EQ(FindText(21, 0x0407), "error 1815");
  EXPECT_EQ(FindText(21, 0x0000), "en-US");  // a neutral request goes on to English
  EXPECT_EQ(FindText(21, 0x0400), "en-US");
  EXPECT_EQ(FindText(22, 0x0000), "only French");  // and then to any language
  EXPECT_EQ(FindText(22, 0x0409), "error 1815");
}

TEST(StringTest, LoadStringCopiesCutsPointsAtTheStringOrGivesZero) {
  std::array<wchar_t, 32> text{};
  EXPECT_EQ(LoadStringW(nullptr, 17, text.data(), 32), 17);
  EXPECT_EQ(std::wstring(text.data()), L"Second of block 2");
  EXPECT_EQ(LoadStringW(nullptr, 1, text.data(), 3), 2);
  EXPECT_EQ(std::wstring(text.data()), L"He");
  EXPECT_EQ(LoadStringW(nullptr, 1, text.data(), 1), 0);
  EXPECT_EQ(text[0], L'\0');

  LPCWSTR pointer = nullptr;
  EXPECT_EQ(LoadStringW(nullptr, 1, reinterpret_cast<LPWSTR>(&pointer), 0), 5);
  EXPECT_EQ(std::wstring_view(pointer, 5), L"Hello");

  EXPECT_EQ(ErrorOf(LoadStringW(nullptr, 2, text.data(), 8)),
            ERROR_RESOURCE_NAME_NOT_FOUND);  // its block exists
  EXPECT_EQ(ErrorOf(LoadStringW(nullptr, 1000, text.data(), 8)),
            ERROR_RESOURCE_NAME_NOT_FOUND);  // its block does not
  EXPECT_EQ(ErrorOf(LoadStringW(nullptr, 1, nullptr, 8)), ERROR_INVALID_PARAMETER);
}

TEST(StringTest, MessageTextsComeFromTheMessageTable) {
  EXPECT_EQ(n7platform::LoadMessageText(nullptr, 0x101, 0), L"second line\r\n");
  EXPECT_EQ(n7platform::LoadMessageText(nullptr, 0x40000005, 0), L"far");
  EXPECT_EQ(ErrorOf(n7platform::LoadMessageText(nullptr, 0x102, 0)), ERROR_MR_MID_NOT_FOUND);
}

TEST(UserResourceTest, HandlesPointAtTheResourceBytes) {
  const HMENU menu = LoadMenuW(nullptr, MAKEINTRESOURCEW(1));
  ASSERT_NE(menu, nullptr);
  EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(menu), 4), "MENU");
  EXPECT_NE(LoadIconW(nullptr, L"app"), nullptr);
  EXPECT_NE(LoadImageW(nullptr, MAKEINTRESOURCEW(3), IMAGE_BITMAP, 0, 0, 0), nullptr);
  EXPECT_EQ(ErrorOf(LoadCursorW(nullptr, MAKEINTRESOURCEW(1))), ERROR_RESOURCE_TYPE_NOT_FOUND);
  EXPECT_EQ(LoadAcceleratorsW(nullptr, MAKEINTRESOURCEW(1)), nullptr);
  EXPECT_EQ(ErrorOf(LoadImageW(nullptr, MAKEINTRESOURCEW(3), 1, 0, 0, 0)), ERROR_INVALID_PARAMETER);
}

}  // namespace
