// The service probe's D-Bus path against a real message bus, with a stand-in service manager on it
// that speaks the manager's interface: each unit state must come through, and a bus or manager
// that goes away must turn into "not running" within a bounded time.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <string>
#include <utility>

#include "Daemons.h"
#include "n7utility/Utility/SystemProbes.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/Services.h"

namespace {

using n7test::ChildProcess;
using n7test::MessageBus;
using n7test::TempDir;
using Clock = std::chrono::steady_clock;

// The manager's calls time out after 5 seconds; anything well past that is a hang.
constexpr std::chrono::seconds kBound{8};

class ServicesDaemonTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(manager_.ReadLine(n7test::kDaemonDeadline), "ready");
    // The tests run one at a time, with no other thread of theirs left running.
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.address().c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
  }
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  void TearDown() override { unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

  // The state QueryServiceStatus reports for `name`, or 0 when the service cannot be opened.
  static DWORD State(SC_HANDLE manager, const wchar_t* name) {
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_QUERY_STATUS);
    if (service == nullptr) return 0;
    SERVICE_STATUS status{};
    EXPECT_TRUE(QueryServiceStatus(service, &status)) << GetLastError();
    EXPECT_EQ(status.dwServiceType, SERVICE_WIN32_OWN_PROCESS);
    CloseServiceHandle(service);
    return status.dwCurrentState;
  }

  TempDir dir_;
  MessageBus bus_{dir_.path()};
  ChildProcess manager_{{N7_SERVICE_MANAGER_STANDIN, bus_.address()}};
};

TEST_F(ServicesDaemonTest, EachUnitReportsItsState) {
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  ASSERT_NE(manager, nullptr) << GetLastError();
  EXPECT_EQ(State(manager, L"n7-running"), SERVICE_RUNNING);
  EXPECT_EQ(State(manager, L"n7-stopped.service"), SERVICE_STOPPED);
  EXPECT_EQ(State(manager, L"n7-frozen"), SERVICE_PAUSED);
  EXPECT_EQ(OpenServiceW(manager, L"n7-unknown", SERVICE_QUERY_STATUS), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_SERVICE_DOES_NOT_EXIST);
  CloseServiceHandle(manager);

  EXPECT_EQ(IsServiceRunning(L"n7-running"), 1);
}

TEST_F(ServicesDaemonTest, ABusWithoutAManagerMeansNotRunning) {
  manager_.Stop();
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(OpenServiceW(manager, L"n7-running", SERVICE_QUERY_STATUS), nullptr);
  EXPECT_EQ(GetLastError(), RPC_S_SERVER_UNAVAILABLE);
  CloseServiceHandle(manager);
}

TEST_F(ServicesDaemonTest, ABusStoppedMidTestMeansNotRunningPromptly) {
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  ASSERT_NE(manager, nullptr);
  SC_HANDLE service = OpenServiceW(manager, L"n7-running", SERVICE_QUERY_STATUS);
  ASSERT_NE(service, nullptr);
  bus_.process().Stop();
  const auto start = Clock::now();
  SERVICE_STATUS status{};
  EXPECT_FALSE(QueryServiceStatus(service, &status));
  EXPECT_EQ(GetLastError(), RPC_S_SERVER_UNAVAILABLE);
  EXPECT_EQ(IsServiceRunning(L"n7-running"), 0);
  EXPECT_LT(Clock::now() - start, kBound);
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
}

TEST_F(ServicesDaemonTest, AManagerThatStopsAnsweringMeansNotRunningWithinTheTimeout) {
  manager_.Signal(SIGSTOP);
  const auto start = Clock::now();
  EXPECT_EQ(IsServiceRunning(L"n7-running"), 0);
  EXPECT_LT(Clock::now() - start, kBound);
}

TEST_F(ServicesDaemonTest, TheToolProbesTheSameBus) {
  ChildProcess running({N7_N7UTIL, "probe", "service", "n7-running"},
                       {"DBUS_SYSTEM_BUS_ADDRESS=" + bus_.address()});
  EXPECT_EQ(running.Finish(), std::make_pair(std::string("running\n"), 0));
}

}  // namespace
