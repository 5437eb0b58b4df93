// Test helper: a service manager whose units a test sets, installed for the helper's lifetime.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/KernelObjects.h"
#include "platform/Services.h"
#include "platform/Services_internal.h"

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

  std::unique_ptr<internal::ServiceManagerConnection> Connect(DWORD* error) override {
    if (connect_error_ != ERROR_SUCCESS) {
      *error = connect_error_;
      return nullptr;
    }
    return std::make_unique<Connection>(units_);
  }

 private:
  class Connection final : public internal::ServiceManagerConnection {
   public:
    explicit Connection(std::map<std::string, internal::UnitState> units)
        : units_(std::move(units)) {}
    DWORD FindUnit(const std::string& unit, std::string* id) override {
      if (units_.count(unit) == 0) return ERROR_SERVICE_DOES_NOT_EXIST;
      *id = unit;
      return ERROR_SUCCESS;
    }
    DWORD QueryState(const std::string& id, internal::UnitState* state) override {
      *state = units_.at(id);
      return ERROR_SUCCESS;
    }

   private:
    const std::map<std::string, internal::UnitState> units_;
  };

  std::map<std::string, internal::UnitState> units_;
  DWORD connect_error_ = ERROR_SUCCESS;
};

}  // namespace n7platform::test_support
