#include "n7utility/platform/system/Services.h"

#include <gtest/gtest.h>

#include <string>

#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/Services_test.h"

namespace {

using n7platform::internal::UnitState;
using n7platform::test_support::FakeServiceManager;

struct StateCase {
  UnitState unit;
  DWORD service_state;
};

TEST(ServicesTest, EachUnitStateMapsToItsServiceState) {
  const StateCase cases[] = {
      {{"active", ""}, SERVICE_RUNNING},
      {{"active", "running"}, SERVICE_RUNNING},
      {{"reloading", "running"}, SERVICE_RUNNING},
      {{"active", "freezing"}, SERVICE_PAUSE_PENDING},
      {{"active", "frozen"}, SERVICE_PAUSED},
      {{"active", "thawing"}, SERVICE_CONTINUE_PENDING},
      {{"activating", "running"}, SERVICE_START_PENDING},
      {{"deactivating", "running"}, SERVICE_STOP_PENDING},
      {{"inactive", "running"}, SERVICE_STOPPED},
      {{"failed", "running"}, SERVICE_STOPPED},
      {{"maintenance", ""}, SERVICE_STOPPED},
  };
  FakeServiceManager fake;
  for (const StateCase& c : cases)
    fake.SetUnit(c.unit.active + c.unit.freezer + ".service", c.unit);
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  ASSERT_NE(manager, nullptr);
  for (const StateCase& c : cases) {
    const std::string name = c.unit.active + c.unit.freezer;
    SC_HANDLE service =
        OpenServiceW(manager, std::wstring(name.begin(), name.end()).c_str(), SERVICE_QUERY_STATUS);
    ASSERT_NE(service, nullptr) << name;
    SERVICE_STATUS status{};
    EXPECT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_EQ(status.dwCurrentState, c.service_state) << name;
    EXPECT_EQ(status.dwServiceType, SERVICE_WIN32_OWN_PROCESS);
    EXPECT_TRUE(CloseServiceHandle(service));
  }
  EXPECT_TRUE(CloseServiceHandle(manager));
}

TEST(ServicesTest, UnknownAndMalformedServicesAreRefused) {
  FakeServiceManager fake;
  fake.SetUnit("cron.service", {"active", ""});
  SC_HANDLE manager = OpenSCManagerW(nullptr, L"ServicesActive", SC_MANAGER_CONNECT);
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(OpenServiceW(manager, L"missing", SERVICE_QUERY_STATUS), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_SERVICE_DOES_NOT_EXIST);
  for (LPCWSTR name : {static_cast<LPCWSTR>(nullptr), L"", L"a/b", L"caf\u00e9"}) {
    EXPECT_EQ(OpenServiceW(manager, name, SERVICE_QUERY_STATUS), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_NAME);
  }
  // The full unit name works as well as the service name.
  SC_HANDLE service = OpenServiceW(manager, L"cron.service", SERVICE_QUERY_STATUS);
  ASSERT_NE(service, nullptr);

  // A service handle outlives its manager's; a manager handle has no status.
  SERVICE_STATUS status{};
  EXPECT_FALSE(QueryServiceStatus(manager, &status));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_TRUE(CloseServiceHandle(manager));
  EXPECT_TRUE(QueryServiceStatus(service, &status));
  EXPECT_EQ(status.dwCurrentState, SERVICE_RUNNING);
  EXPECT_TRUE(CloseServiceHandle(service));
  EXPECT_FALSE(CloseServiceHandle(service));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(ServicesTest, AnUnreachableOrRemoteManagerIsRefused) {
  FakeServiceManager fake;
  EXPECT_EQ(OpenSCManagerW(L"\\\\elsewhere.invalid", nullptr, SC_MANAGER_CONNECT), nullptr);
  EXPECT_EQ(GetLastError(), RPC_S_SERVER_UNAVAILABLE);
  EXPECT_EQ(OpenSCManagerW(nullptr, L"ServicesFailed", SC_MANAGER_CONNECT), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_DATABASE_DOES_NOT_EXIST);
  fake.SetConnectError(RPC_S_SERVER_UNAVAILABLE);
  EXPECT_EQ(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT), nullptr);
  EXPECT_EQ(GetLastError(), RPC_S_SERVER_UNAVAILABLE);
}

// The real manager: on a machine without a system bus the manager cannot be opened; with one, an
// unknown service is reported as such.
TEST(ServicesTest, TheSystemManagerAnswersOrIsUnavailable) {
  SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  if (manager == nullptr) {
    EXPECT_TRUE(GetLastError() == RPC_S_SERVER_UNAVAILABLE || GetLastError() == ERROR_ACCESS_DENIED)
        << GetLastError();
    GTEST_SKIP() << "no service manager on the system bus";
  }
  EXPECT_EQ(OpenServiceW(manager, L"n7-no-such-service-4711", SERVICE_QUERY_STATUS), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_SERVICE_DOES_NOT_EXIST);
  EXPECT_TRUE(CloseServiceHandle(manager));
}

}  // namespace
