// Test helper: a service manager whose units a test sets, installed for the helper's lifetime.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/Services.h"
#include "n7utility/platform/system/Services_internal.h"

namespace n7platform::test_support {

class FakeServiceManager final : public internal::ServiceBackend {
 public:
  FakeServiceManager() { internal::SetServiceBackend(this); }
  ~FakeServiceManager() override { internal::SetServiceBackend(nullptr); }
  FakeServiceManager(const FakeServiceManager&) = delete;
  FakeServiceManager& operator=(const FakeServiceManager&) = delete;

  // Units by full name ("cron.service"). Set before opening the manager.
  void SetUnit(const std::string& unit, internal::UnitState state) {
    units_[unit] = std::move(state);
  }
  // Connect fails with `error` (ERROR_SUCCESS: succeeds).
  void SetConnectError(DWORD error) { connect_error_ = error; }
  // Every status query calls `thrower` first, which may throw what a backend might.
  void ThrowOnQuery(std::function<void()> thrower) { query_thrower_ = std::move(thrower); }
  // Connections not yet released: each open manager or service handle holds its manager's.
  long OpenConnections() const { return *live_connections_.get(); }

  std::unique_ptr<internal::ServiceManagerConnection> Connect(DWORD* error) override {
    if (connect_error_ != ERROR_SUCCESS) {
      *error = connect_error_;
      return nullptr;
    }
    return std::make_unique<Connection>(units_, query_thrower_, live_connections_);
  }

 private:
  class Connection final : public internal::ServiceManagerConnection {
   public:
    Connection(std::map<std::string, internal::UnitState> units, std::function<void()> thrower,
               std::shared_ptr<long> live)
        : units_(std::move(units)), thrower_(std::move(thrower)), live_(std::move(live)) {
      ++*live_;
    }
    ~Connection() override { --*live_; }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    DWORD FindUnit(const std::string& unit, std::string* id) override {
      if (units_.count(unit) == 0) return ERROR_SERVICE_DOES_NOT_EXIST;
      *id = unit;
      return ERROR_SUCCESS;
    }
    DWORD QueryState(const std::string& id, internal::UnitState* state) override {
      if (thrower_) thrower_();
      *state = units_.at(id);
      return ERROR_SUCCESS;
    }

   private:
    const std::map<std::string, internal::UnitState> units_;
    const std::function<void()> thrower_;
    const std::shared_ptr<long> live_;
  };

  std::map<std::string, internal::UnitState> units_;
  DWORD connect_error_ = ERROR_SUCCESS;
  std::function<void()> query_thrower_;
  std::shared_ptr<long> live_connections_ = std::make_shared<long>(0);
};

}  // namespace n7platform::test_support
