#include "n7utility/Utility/ResourceMgr.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>

#include "n7utility/core/text.h"
#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/kernel/KernelObjects.h"

namespace {

namespace fs = std::filesystem;
using n7platform::test_support::TempDir;

// A host module Host.EXE with its German and French (France) resource modules in res/ beside it,
// laid out once in a directory of the test's own: copies, so that each is a module of its own.
class ResourceMgrTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    static const TempDir scratch;
    const fs::path& dir = scratch.path();
    fs::create_directories(dir / "res");
    fs::copy_file(N7_TEST_MODULE_HOST, dir / "Host.EXE", fs::copy_options::overwrite_existing);
    fs::copy_file(N7_TEST_MODULE_DE, dir / "res" / "HostRes.de.dll",
                  fs::copy_options::overwrite_existing);
    fs::copy_file(N7_TEST_MODULE_FR_FR, dir / "res" / "HostRes.fr-FR.dll",
                  fs::copy_options::overwrite_existing);
    host_ = LoadLibraryW((dir / "Host.EXE").wstring().c_str());
  }

  void SetUp() override { ASSERT_NE(host_, nullptr); }

  static HINSTANCE host_;
  HINSTANCE instance_ = host_;
  CResourceMgr manager_{instance_};
};

HINSTANCE ResourceMgrTest::host_ = nullptr;

TEST_F(ResourceMgrTest, LanguageFallsBackToThePrimaryLanguageModuleThenTheHost) {
  EXPECT_EQ(manager_.LoadStringW(1), L"host one");
  EXPECT_EQ(manager_.LoadStringW(1, 0, 0x040C), L"Bonjour");  // fr-FR has its own module
  EXPECT_EQ(manager_.LoadStringW(1, 0, 0x0407), L"Hallo");    // de-DE has none: de's
  EXPECT_EQ(manager_.LoadStringW(1, 0, 0x0028), L"host one");  // no code for the language
  EXPECT_EQ(manager_.LoadStringW(1, 0, 0x0C0C), L"host one");  // fr-CA and fr: no module
  // A block the language module lacks comes from the host through the system's loader; a string
  // missing from a block it has is missing.
  EXPECT_EQ(manager_.LoadStringW(17, 0, 0x040C), L"host seventeen");
  EXPECT_EQ(manager_.LoadStringW(17, 0, 0x0007), L"siebzehn");  // block 2, second string
  EXPECT_EQ(manager_.LoadStringW(3, 1, 0x040C), L"");
}

// Hosts named as Linux names programs and shared objects, in a directory whose name is not
// ASCII while the process runs in the C locale: each finds its German module where the naming
// rules put it, and a name without language modules keeps to the host's own strings.
TEST(ResourceMgrNamingTest, LinuxNamesAndNonAsciiDirectoriesFindTheirLanguageModule) {
  const struct {
    const char* host;
    const char* german;
    const wchar_t* expected;
  } layouts[] = {
      {"prog", "progRes.de.so", L"Hallo"},
      {"libfoo.so", "libfooRes.de.so", L"Hallo"},
      {"libbar.so.1.2", "libbarRes.de.so", L"Hallo"},
      {"Host.Dll", "HostRes.de.dll", L"Hallo"},
      {"pr\xC3\xB6g", "pr\xC3\xB6gRes.de.so", L"Hallo"},
      {"data.bin", "dataRes.de.so", L"host one"},
      {"libbaz.so.x", "libbazRes.de.so", L"host one"},
  };
  const TempDir scratch;
  const fs::path dir = scratch.path() /
                       "\xC3\x9C"
                       "ber";
  for (const auto& layout : layouts) {
    SCOPED_TRACE(layout.host);
    const fs::path place = dir / layout.host;
    fs::create_directories(place / "res");
    fs::copy_file(N7_TEST_MODULE_HOST, place / layout.host, fs::copy_options::overwrite_existing);
    fs::copy_file(N7_TEST_MODULE_DE, place / "res" / layout.german,
                  fs::copy_options::overwrite_existing);
    HINSTANCE host = LoadLibraryW(n7core::to_wstring((place / layout.host).string()).c_str());
    ASSERT_NE(host, nullptr);
    CResourceMgr manager(host);
    EXPECT_EQ(manager.LoadStringW(1, 0, 0x0407), layout.expected);
  }
}

TEST_F(ResourceMgrTest, MissingStringGivesThePlaceholderOrNothing) {
  const CString placeholder =
      L"[English Only: Error: Unable to Load String resource '18'. System Error: '']";
  EXPECT_EQ(manager_.LoadStringW(18), placeholder);
  EXPECT_EQ(manager_.LoadStringW(18, 1), L"");
  EXPECT_EQ(manager_.LoadStringW(1000, 1, 0x0407), L"");
  EXPECT_EQ(manager_.FormatString(3, L"here", L"there"), L"From here to there.");
  EXPECT_EQ(manager_.FormatString(18, L"x"), placeholder);
}

TEST_F(ResourceMgrTest, FailedLoadRecordsTheErrorTextForItsThreadOnly) {
  EXPECT_EQ(manager_.LoadIconW(5u), nullptr);
  const CString text = manager_.GetLastError();
  EXPECT_EQ(text, L"The specified resource type cannot be found in the image file.\r\n");
  CString other_thread(L"not run");
  std::thread([&] { other_thread = manager_.GetLastError(); }).join();
  EXPECT_EQ(other_thread, L"");
  EXPECT_EQ(manager_.LoadStringW(18),
            L"[English Only: Error: Unable to Load String resource "
            L"'18'. System Error: '" +
                text.str() + L"']");
}

TEST_F(ResourceMgrTest, LoadsReturnHandlesToTheHostsResourcesOrRecordTheFailure) {
  EXPECT_NE(manager_.LoadDialog(7u), nullptr);
  EXPECT_EQ(manager_.LoadDialog(L"MISSING"), nullptr);
  EXPECT_EQ(manager_.GetLastError(),
            L"The specified resource name cannot be found in the image file.\r\n");
  EXPECT_NE(manager_.LoadMenuW(1u), nullptr);
  EXPECT_EQ(manager_.LoadBitmapEx(1u, 0), nullptr);
  EXPECT_EQ(manager_.LoadCursorW(L"ARROW"), nullptr);
  EXPECT_EQ(manager_.LoadAcceleratorsW(1u), nullptr);
  EXPECT_EQ(manager_.LoadBitmapW(1u), nullptr);
  EXPECT_EQ(manager_.GetLastError(),
            L"The specified resource type cannot be found in the image file.\r\n");
}

TEST_F(ResourceMgrTest, ManagerFollowsTheInstanceVariable) {
  instance_ = nullptr;  // the test program: its table is the library's own
  EXPECT_EQ(manager_.LoadStringW(1, 1).Find(L"Internal error"), 0);
  CWinApp application;
  CResourceMgr by_application(application);
  application.m_hInstance = host_;
  EXPECT_EQ(by_application.LoadStringW(1), L"host one");
}

}  // namespace
