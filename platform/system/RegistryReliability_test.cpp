// The registry store under several processes: concurrent writers, a writer killed in the
// middle of its work, and a change made by another process reaching a waiting one.
//
// The test binary is also its own child process: run with a role as first argument, it plays
// that role on the store directory given after it, instead of running the tests.

#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/RegistryFixture_internal.h"

namespace n7platform {
namespace {

constexpr const wchar_t* kKeyPath = L"Software\\Shared";
constexpr int kWritersValues = 10000;

std::wstring ValueName(const std::string& prefix, int index) {
  return std::wstring(prefix.begin(), prefix.end()) + L"." + std::to_wstring(index);
}

HKEY OpenShared() {
  HKEY key = nullptr;
  RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKeyPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                  nullptr);
  return key;
}

LSTATUS WriteIndex(HKEY key, const std::string& prefix, int index) {
  const DWORD data = static_cast<DWORD>(index);
  return RegSetValueExW(key, ValueName(prefix, index).c_str(), 0, REG_DWORD,
                        reinterpret_cast<const BYTE*>(&data), sizeof data);
}

// ---- The child roles ----

// Writes `count` values named PREFIX.N; reports on standard output once `report_after` are in.
int Writer(const std::string& prefix, int count, int report_after) {
  HKEY key = OpenShared();
  for (int i = 0; i < count; ++i) {
    if (WriteIndex(key, prefix, i) != ERROR_SUCCESS) return 1;
    if (i + 1 == report_after) {
      std::puts("ready");
      std::fflush(stdout);
    }
  }
  return 0;
}

// Starts a transaction that would delete every value if it committed, writes enough to reach
// the log on disk, reports, and waits to be killed.
int HoldTransaction(const std::string& directory) {
  sqlite3* db = nullptr;
  const std::string file = directory + "/" + internal::HiveFileName(internal::Hive::kLocalMachine);
  if (sqlite3_open(file.c_str(), &db) != SQLITE_OK) return 1;
  sqlite3_busy_timeout(db, 10000);
  const char* kWork =
      "PRAGMA cache_size=8; BEGIN IMMEDIATE; DELETE FROM vals;"
      "CREATE TABLE filler(x BLOB);"
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 256) "
      "INSERT INTO filler SELECT randomblob(4096) FROM n;";
  if (sqlite3_exec(db, kWork, nullptr, nullptr, nullptr) != SQLITE_OK) return 1;
  std::puts("ready");
  std::fflush(stdout);
  for (;;) pause();
}

int SetOnce() {
  HKEY key = OpenShared();
  return WriteIndex(key, "other", 1) == ERROR_SUCCESS ? 0 : 1;
}

int RunRole(const std::vector<std::string>& args) {
  const internal::StoreSettings settings{args[1], "boot"};
  internal::UseRegistryStore(&settings);
  if (args[0] == "writer") return Writer(args[2], std::stoi(args[3]), std::stoi(args[4]));
  if (args[0] == "hold-transaction") return HoldTransaction(args[1]);
  if (args[0] == "set-once") return SetOnce();
  return 2;
}

// ---- The tests ----

// A child process in a role, with its standard output readable by the test.
class Child {
 public:
  explicit Child(std::vector<std::string> args) {
    int fds[2];
    if (pipe(fds) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    args.insert(args.begin(), "/proc/self/exe");
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, "/proc/self/exe", &actions, nullptr, argv.data(), environ) != 0)
      pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    output_ = fdopen(fds[0], "r");
  }
  ~Child() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      Wait();
    }
    if (output_ != nullptr) std::fclose(output_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool started() const { return pid_ > 0; }
  // Blocks until the child reports "ready" (false if it ends first).
  bool AwaitReady() {
    char line[16] = {};
    return std::fgets(line, sizeof line, output_) != nullptr && std::string_view(line) == "ready\n";
  }
  int Wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }
  void Kill() {
    kill(pid_, SIGKILL);
    const int status = Wait();
    EXPECT_TRUE(WIFSIGNALED(status));
  }

 private:
  pid_t pid_ = -1;
  FILE* output_ = nullptr;
};

class RegistryProcessesTest : public RegistryTest {
 protected:
  void SetUp() override {
    key_ = OpenShared();
    ASSERT_NE(key_, nullptr);
  }
  void TearDown() override { RegCloseKey(key_); }

  std::vector<std::string> Role(std::vector<std::string> args) {
    args.insert(args.begin() + 1, registry_.directory());
    return args;
  }

  // The number of values PREFIX.0, PREFIX.1, ... present in a row, each holding its index;
  // -1 when a later one is present after a gap.
  int PresentInARow(const std::string& prefix, int limit) {
    int present = 0;
    for (int i = 0; i < limit; ++i) {
      DWORD data = 0, size = sizeof data;
      const LSTATUS error = RegQueryValueExW(key_, ValueName(prefix, i).c_str(), nullptr, nullptr,
                                             reinterpret_cast<BYTE*>(&data), &size);
      if (error == ERROR_SUCCESS && data == static_cast<DWORD>(i) && present == i) {
        ++present;
      } else if (error != ERROR_FILE_NOT_FOUND) {
        return -1;
      }
    }
    return present;
  }

  HKEY key_ = nullptr;
};

TEST_F(RegistryProcessesTest, FourWritersAtOnceLoseNothing) {
  std::vector<std::unique_ptr<Child>> writers;
  for (const char* prefix : {"a", "b", "c", "d"}) {
    writers.push_back(
        std::make_unique<Child>(Role({"writer", prefix, std::to_string(kWritersValues), "0"})));
    ASSERT_TRUE(writers.back()->started());
  }
  for (auto& writer : writers) {
    const int status = writer->Wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  for (const char* prefix : {"a", "b", "c", "d"})
    EXPECT_EQ(PresentInARow(prefix, kWritersValues), kWritersValues) << prefix;
}

TEST_F(RegistryProcessesTest, KilledWriterLeavesAConsistentStore) {
  for (int i = 0; i < 100; ++i) ASSERT_EQ(WriteIndex(key_, "before", i), 0);
  {
    Child holder(Role({"hold-transaction"}));
    ASSERT_TRUE(holder.AwaitReady());
    holder.Kill();
  }
  {
    Child writer(Role({"writer", "w", std::to_string(kWritersValues), "50"}));
    ASSERT_TRUE(writer.AwaitReady());
    writer.Kill();
  }
  registry_.Restart("boot-1");  // a fresh connection reads what is on disk
  key_ = OpenShared();
  ASSERT_NE(key_, nullptr);
  EXPECT_EQ(PresentInARow("before", 100), 100);
  const int written = PresentInARow("w", kWritersValues);
  EXPECT_GE(written, 50);
  EXPECT_LT(written, kWritersValues);
  EXPECT_EQ(WriteIndex(key_, "after", 0), 0);
}

TEST_F(RegistryProcessesTest, ChangeByAnotherProcessIsSeen) {
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ASSERT_EQ(RegNotifyChangeKeyValue(key_, FALSE, REG_NOTIFY_CHANGE_LAST_SET, event, TRUE), 0);
  Child setter(Role({"set-once"}));
  const int status = setter.Wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(WaitForSingleObject(event, 30000), WAIT_OBJECT_0);
  CloseHandle(event);
}

}  // namespace
}  // namespace n7platform

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() >= 2 && args[0].front() != '-') return n7platform::RunRole(args);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
