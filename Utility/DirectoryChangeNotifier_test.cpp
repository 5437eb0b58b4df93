#include "n7utility/Utility/DirectoryChangeNotifier.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>

#include "n7utility/Utility/WaitableObjects.h"
#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/kernel/KernelObjects.h"

namespace {

namespace fs = std::filesystem;

// Long enough for any change to arrive; a correct run never waits that long.
constexpr unsigned long kArrival = 30000;

using n7platform::test_support::TempDir;

void Touch(const fs::path& path) { std::ofstream(path) << "x"; }

std::unique_ptr<CFileSystemChangeNotifier> Watch(const fs::path& directory) {
  return std::unique_ptr<CFileSystemChangeNotifier>(
      CFileSystemChangeNotifier::Create(directory.wstring().c_str()));
}

TEST(FileSystemChangeNotifierTest, FileNameChangesSignalUntilRearmed) {
  TempDir dir;
  auto notifier = Watch(dir.path());
  EXPECT_EQ(notifier->GetDirectory(), CString(dir.path().wstring().c_str()));
  EXPECT_EQ(notifier->WaitForEvent(0), WAIT_TIMEOUT);

  Touch(dir.path() / "created");
  EXPECT_EQ(notifier->WaitForEvent(kArrival), WAIT_OBJECT_0);
  EXPECT_EQ(notifier->WaitForEvent(0), WAIT_OBJECT_0);  // stays signalled until re-armed
  EXPECT_TRUE(notifier->FindNextChangeNotification());
  EXPECT_EQ(notifier->WaitForEvent(0), WAIT_TIMEOUT);

  fs::rename(dir.path() / "created", dir.path() / "renamed");
  EXPECT_TRUE(notifier->Lock(kArrival));
  EXPECT_TRUE(notifier->FindNextChangeNotification());
  fs::remove(dir.path() / "renamed");
  EXPECT_EQ(notifier->WaitForEvent(kArrival), WAIT_OBJECT_0);

  notifier->FindCloseChangeNotification();
  EXPECT_EQ(notifier->WaitForEvent(0), WAIT_FAILED);
  EXPECT_FALSE(notifier->FindNextChangeNotification());
}

// A change made while the client looks at the directory, after its wait returned and before it
// re-arms, satisfies the next wait at once; without one, the re-armed handle stays quiet.
TEST(FileSystemChangeNotifierTest, AChangeBeforeTheRearmIsNotLost) {
  for (int round = 0; round < 50; ++round) {
    TempDir dir;
    auto notifier = Watch(dir.path());
    Touch(dir.path() / "a");
    ASSERT_EQ(notifier->WaitForEvent(kArrival), WAIT_OBJECT_0);
    Touch(dir.path() / "b");
    ASSERT_TRUE(notifier->FindNextChangeNotification());
    ASSERT_EQ(notifier->WaitForEvent(0), WAIT_OBJECT_0) << "round " << round;
    ASSERT_TRUE(notifier->FindNextChangeNotification());
    ASSERT_EQ(notifier->WaitForEvent(0), WAIT_TIMEOUT) << "round " << round;
  }
}

TEST(FileSystemChangeNotifierTest, WritesAndChangesInSubdirectoriesDoNotSignal) {
  TempDir dir;
  TempDir marker_dir;
  fs::create_directory(dir.path() / "sub");
  Touch(dir.path() / "existing");
  auto notifier = Watch(dir.path());
  auto marker = Watch(marker_dir.path());

  std::ofstream(dir.path() / "existing", std::ios::app) << "more";
  Touch(dir.path() / "sub" / "nested");
  // Changes arrive in order, so once the marker's is in, the ones above have been seen.
  Touch(marker_dir.path() / "marker");
  ASSERT_EQ(marker->WaitForEvent(kArrival), WAIT_OBJECT_0);
  EXPECT_EQ(notifier->WaitForEvent(0), WAIT_TIMEOUT);
}

TEST(FileSystemChangeNotifierTest, NotifierWithoutHandleFailsCleanly) {
  TempDir dir;
  auto missing = Watch(dir.path() / "missing");
  EXPECT_EQ(static_cast<HANDLE>(*missing), nullptr);
  EXPECT_EQ(missing->WaitForEvent(0), WAIT_FAILED);
  EXPECT_FALSE(missing->FindNextChangeNotification());

  CFileSystemChangeNotifier other_kind;
  const std::wstring path = dir.path().wstring();
  CHANGE_SPEC spec{2, path.c_str(), 1};
  other_kind.FindFirstChangeNotificationW(&spec, 0);
  EXPECT_EQ(other_kind.WaitForEvent(0), WAIT_FAILED);
  EXPECT_TRUE(other_kind.GetDirectory().IsEmpty());
}

TEST(FileSystemChangeNotifierTest, WaitsInAWaitableSetBesideEvents) {
  TempDir dir;
  CWaitableObjects set;
  ASSERT_TRUE(set.Add(new CEvent));
  auto* notifier = CFileSystemChangeNotifier::Create(dir.path().wstring().c_str());
  ASSERT_TRUE(set.Add(notifier));
  auto wait = std::async(std::launch::async, [&] { return set.WaitForObject(kArrival); });
  Touch(dir.path() / "created");
  EXPECT_EQ(wait.get(), 1u);
}

TEST(FileSystemChangeNotifierTest, IsASynchronisationObjectByItsClassRecord) {
  const CRuntimeClass* notifier_class = RUNTIME_CLASS(CFileSystemChangeNotifier);
  EXPECT_STREQ(notifier_class->m_lpszClassName, "CFileSystemChangeNotifier");
  EXPECT_EQ(notifier_class->GetBaseClass(), RUNTIME_CLASS(CSyncObject));
  EXPECT_EQ(notifier_class->m_pfnCreateObject, nullptr);
}

TEST(ChangeNotificationTest, RefusedSetUpsSayWhy) {
  TempDir dir;
  Touch(dir.path() / "file");
  const auto refused = [](const fs::path& path, BOOL subtree, DWORD filter) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(FindFirstChangeNotificationW(path.wstring().c_str(), subtree, filter),
              INVALID_HANDLE_VALUE);
    return GetLastError();
  };
  EXPECT_EQ(refused(dir.path() / "missing", FALSE, FILE_NOTIFY_CHANGE_FILE_NAME),
            ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(refused(dir.path() / "file", FALSE, FILE_NOTIFY_CHANGE_FILE_NAME), ERROR_DIRECTORY);
  EXPECT_EQ(refused(dir.path(), TRUE, FILE_NOTIFY_CHANGE_FILE_NAME), ERROR_NOT_SUPPORTED);
  EXPECT_EQ(refused(dir.path(), FALSE, 0), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(refused(dir.path(), FALSE, 0x80000000u), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(FindNextChangeNotification(nullptr));
  EXPECT_FALSE(FindCloseChangeNotification(INVALID_HANDLE_VALUE));
}

}  // namespace
