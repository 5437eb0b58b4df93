#include "n7utility/platform/framework/File.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/kernel/KernelObjects.h"

namespace {

namespace fs = std::filesystem;
using n7platform::test_support::ScopedEnv;
using n7platform::test_support::TempDir;

std::wstring Wide(const std::string& text) { return {text.begin(), text.end()}; }

std::wstring TempPath() {
  const DWORD needed = GetTempPathW(0, nullptr);
  std::wstring path(needed, L'\0');
  EXPECT_EQ(GetTempPathW(needed, path.data()), needed - 1);
  path.resize(needed - 1);
  return path;
}

TEST(TempPathTest, TheEnvironmentIsReadInOrderAndTheSeparatorAppended) {
  ScopedEnv tmpdir("TMPDIR", "/first");
  ScopedEnv tmp("TMP", "/second/");
  ScopedEnv temp("TEMP", "/third");
  EXPECT_EQ(TempPath(), L"/first/");
  {
    ScopedEnv empty("TMPDIR", "");
    EXPECT_EQ(TempPath(), L"/second/");
    ScopedEnv not_utf8("TMP", "/\xff");
    EXPECT_EQ(TempPath(), L"/third/");
    ScopedEnv unset("TEMP", std::nullopt);
    EXPECT_EQ(TempPath(), L"/tmp/");
  }
  // Too small a buffer is left alone and the size it needs is returned.
  wchar_t small[7] = L"xxxxxx";
  EXPECT_EQ(GetTempPathW(7, small), 8u);
  EXPECT_STREQ(small, L"xxxxxx");
}

TEST(TempFileNameTest, UniqueFilesAreCreatedAndNamesFormed) {
  TempDir dir;
  const std::wstring path = Wide(dir.path().string());
  std::set<std::wstring> names;
  for (int i = 0; i < 5; ++i) {
    wchar_t name[260];
    ASSERT_NE(GetTempFileNameW(path.c_str(), L"TMPX", 0, name), 0u);
    EXPECT_TRUE(fs::is_regular_file(fs::path(std::wstring(name))));
    EXPECT_EQ(std::wstring(name).rfind(path + L"/TMP", 0), 0u);
    EXPECT_TRUE(std::wstring(name).ends_with(L".TMP"));
    names.insert(name);
  }
  EXPECT_EQ(names.size(), 5u);

  wchar_t formed[260];
  EXPECT_EQ(GetTempFileNameW(L"/nowhere/", L"ab", 0x12ab, formed), 0x12abu);
  EXPECT_STREQ(formed, L"/nowhere/ab12AB.TMP");
  EXPECT_EQ(GetTempFileNameW((path + L"/missing").c_str(), L"TMP", 0, formed), 0u);
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(GetTempFileNameW(std::wstring(300, L'd').c_str(), L"TMP", 0, formed), 0u);
  EXPECT_EQ(GetLastError(), ERROR_BUFFER_OVERFLOW);
}

TEST(FileTest, AttributesOpenCloseAndRemove) {
  TempDir dir;
  const std::wstring file = Wide(dir / "file");
  EXPECT_EQ(GetFileAttributesW(Wide(dir.path().string()).c_str()), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(GetFileAttributesW(file.c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);

  CFile out;
  ASSERT_TRUE(out.Open(file.c_str(), CFile::modeCreate | CFile::modeWrite));
  out.Close();
  EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_NORMAL);
  CFile::Remove(file.c_str());
  EXPECT_FALSE(fs::exists(dir / "file"));

  CFileException error;
  EXPECT_FALSE(out.Open(Wide(dir / "missing/file").c_str(), CFile::modeRead, &error));
  EXPECT_EQ(error.m_cause, CFileException::fileNotFound);
  try {
    CFile::Remove(file.c_str());
    ADD_FAILURE() << "removed a file that is not there";
  } catch (CFileException* e) {
    EXPECT_EQ(e->m_cause, CFileException::fileNotFound);
    delete e;
  }
}

}  // namespace
