// Test helper: runs an action and reports the core error it threw, so a test states the expected
// code name and message in one line.
#pragma once

#include <string>

#include "n7utility/core/error.h"

namespace n7core::test_support {

struct ThrownError {
  std::string code;  // empty when nothing was thrown
  std::string message;
  std::string function;  // where it was raised
};

template <typename Action>
ThrownError thrown_error(Action&& action) {
  try {
    action();
  } catch (const ErrorException& e) {
    return {e.info().code().name(), e.info().message(), e.info().location().function()};
  }
  return {};
}

}  // namespace n7core::test_support
