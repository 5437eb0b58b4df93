#include "n7utility/Utility/SystemProbes.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "n7utility/core/text.h"
#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/framework/CountedException_test.h"
#include "n7utility/platform/framework/Exceptions.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/RegistryFixture_internal.h"
#include "n7utility/platform/system/Resources.h"
#include "n7utility/platform/system/Services_test.h"

namespace {

namespace fs = std::filesystem;
using n7platform::test_support::FakeServiceManager;
using n7platform::test_support::ScopedEnv;
using n7platform::test_support::TempDir;

CString Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

TEST(IsWritableDirTest, OnlyAWritableDirectoryPassesAndNothingIsLeftBehind) {
  TempDir dir;
  std::ofstream(dir / "file") << "x";
  EXPECT_TRUE(IsWritableDir(Wide(dir.path().string())));
  EXPECT_TRUE(IsWritableDir(Wide(dir.path().string() + "/")));
  EXPECT_FALSE(IsWritableDir(Wide(dir / "file")));
  EXPECT_FALSE(IsWritableDir(Wide(dir / "missing")));
  fs::remove(dir / "file");
  EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST(IsWritableDirTest, AReadOnlyDirectoryFails) {
  if (geteuid() == 0) GTEST_SKIP() << "running as root: permission bits do not stop writes";
  TempDir dir;
  const std::string locked = dir / "locked";
  fs::create_directory(locked);
  fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_FALSE(IsWritableDir(Wide(locked)));
  fs::permissions(locked, fs::perms::owner_all);
  EXPECT_TRUE(fs::is_empty(locked));
}

TEST(GetValidTempDirTest, TheEnvironmentsDirectoryOrTheSystemsIsChosen) {
  TempDir dir;
  std::ofstream(dir / "file") << "x";
  ScopedEnv tmp("TMP", std::nullopt);
  ScopedEnv temp("TEMP", std::nullopt);
  CString out;
  {
    ScopedEnv tmpdir("TMPDIR", dir.path().string());
    EXPECT_TRUE(GetValidTempDir(out));
    EXPECT_EQ(out, Wide(dir.path().string() + "/"));
  }
  const bool system_writable = access("/tmp", W_OK) == 0;
  for (const std::string& unusable : {dir / "file", dir / "missing"}) {
    ScopedEnv tmpdir("TMPDIR", unusable);
    EXPECT_EQ(GetValidTempDir(out), system_writable);
    EXPECT_EQ(out, system_writable ? L"/tmp/" : L"/tmp");
  }
}

TEST(IsServiceRunningTest, RunningLikeStatesCountAsRunning) {
  FakeServiceManager fake;
  const struct {
    const wchar_t* name;
    const char *active, *sub;
    int running;
  } states[] = {{L"starting", "activating", "running", 1},
                {L"stopping", "deactivating", "running", 1},
                {L"paused", "active", "frozen", 0},
                {L"stopped", "inactive", "running", 0},
                {L"running", "active", "running", 1}};
  for (const auto& s : states) {
    fake.SetUnit(n7core::to_string(s.name) + ".service", {s.active, s.sub});
    EXPECT_EQ(IsServiceRunning(s.name), s.running) << n7core::to_string(s.name);
  }
  EXPECT_EQ(IsServiceRunning(L"missing"), 0);
  EXPECT_EQ(IsServiceRunning(nullptr), 0);
  fake.SetConnectError(RPC_S_SERVER_UNAVAILABLE);
  EXPECT_EQ(IsServiceRunning(L"running"), 0);
}

// An exception out of the service query closes both handles (each holds the manager's
// connection) and ends a caught framework exception through Delete(): freed when it is on the
// heap, left alone when it is not.
TEST(IsServiceRunningTest, AnExceptionOnTheWayClosesTheHandlesAndEndsTheException) {
  FakeServiceManager fake;
  fake.SetUnit("running.service", {"active", "running"});
  int destroyed = 0;
  fake.ThrowOnQuery([&destroyed] { throw new CountedException(TRUE, &destroyed); });
  EXPECT_EQ(IsServiceRunning(L"running"), 0);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(fake.OpenConnections(), 0);

  static int static_destroyed = 0;
  static CountedException not_on_the_heap(FALSE, &static_destroyed);
  fake.ThrowOnQuery([] { throw &not_on_the_heap; });
  EXPECT_EQ(IsServiceRunning(L"running"), 0);
  EXPECT_EQ(static_destroyed, 0);
  EXPECT_EQ(fake.OpenConnections(), 0);

  fake.ThrowOnQuery([] { throw std::runtime_error("backend failed"); });
  EXPECT_EQ(IsServiceRunning(L"running"), 0);
  EXPECT_EQ(fake.OpenConnections(), 0);
}

// The probe's lookup: a function is found in a loaded module only. No COM library is ever loaded
// here, so the probe answers 1.
TEST(IsDCOMReadyTest, TheLookupFindsOnlyWhatLoadedModulesExport) {
  HMODULE libc = GetModuleHandleW(L"libc.so.6");
  ASSERT_NE(libc, nullptr);
  EXPECT_NE(GetProcAddress(libc, "malloc"), nullptr);
  EXPECT_EQ(GetProcAddress(libc, "CoInitializeEx"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
  EXPECT_EQ(GetModuleHandleW(L"OLE32"), nullptr);
  EXPECT_EQ(IsDCOMReady(), 1);
}

class DcomTest : public ::testing::Test {
 protected:
  static constexpr wchar_t kOle[] = L"SOFTWARE\\Microsoft\\Ole";

  void SetValue(const wchar_t* text) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, kOle, &key), ERROR_SUCCESS);
    const std::wstring value(text);
    RegSetValueExW(key, L"EnableDCOM", 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                   static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
  }

  n7platform::TemporaryRegistry registry_;
};

TEST_F(DcomTest, TheSwitchIsReadWithoutRegardToCaseAndSetOnlyInAnExistingKey) {
  EXPECT_EQ(IsDCOMEnabled(), 0);  // no key
  EXPECT_EQ(DCOMEnables(1), 0);   // the key is not created
  SetValue(L"y");
  EXPECT_EQ(IsDCOMEnabled(), 1);
  SetValue(L"Yes");
  EXPECT_EQ(IsDCOMEnabled(), 0);
  EXPECT_EQ(DCOMEnables(1), 1);
  EXPECT_EQ(IsDCOMEnabled(), 1);
  EXPECT_EQ(DCOMEnables(0), 1);
  EXPECT_EQ(IsDCOMEnabled(), 0);
}

}  // namespace
