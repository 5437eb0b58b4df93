// Built with -fnon-call-exceptions: the faults below must unwind out of the faulting instruction.
#include "n7utility/platform/kernel/StructuredExceptions.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <thread>

#include "n7utility/platform/base/Faults_test.h"

namespace {

// What the test translator keeps of a fault.
struct Fault {
  unsigned code;
  EXCEPTION_RECORD record;
  CONTEXT context;
};

void ThrowFault(unsigned code, EXCEPTION_POINTERS* pointers) {
  throw Fault{code, *pointers->ExceptionRecord, *pointers->ContextRecord};
}

using n7platform::testing::DivideByZero;
using n7platform::testing::ReadNull;
using n7platform::testing::WriteNull;

template <typename Operation>
Fault CatchFault(Operation operation) {
  try {
    operation();
  } catch (const Fault& fault) {
    return fault;
  }
  ADD_FAILURE() << "no fault";
  return {};
}

// The process ended because of the signal, whoever reported it.
bool Died(int status) {
  return WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) != 0);
}

TEST(SeTranslatorTest, InstalledPerThreadReturningThePreviousOne) {
  EXPECT_EQ(_set_se_translator(&ThrowFault), nullptr);
  std::thread([] { EXPECT_EQ(_set_se_translator(nullptr), nullptr); }).join();
  EXPECT_EQ(_set_se_translator(nullptr), &ThrowFault);
}

TEST(SeTranslatorTest, FaultsReachTheTranslatorWithTheirRegistersAndTheThreadGoesOn) {
  if (!n7platform::testing::kFaultsUnwind) GTEST_SKIP() << "faults cannot unwind in this build";
  std::thread([] {
    _set_se_translator(&ThrowFault);
    const Fault read = CatchFault([] { ReadNull(); });
    EXPECT_EQ(read.code, EXCEPTION_ACCESS_VIOLATION);
    EXPECT_EQ(read.record.ExceptionCode, EXCEPTION_ACCESS_VIOLATION);
    EXPECT_EQ(read.record.NumberParameters, 2u);
    EXPECT_EQ(read.record.ExceptionInformation[0], 0u);  // a read
    EXPECT_EQ(read.record.ExceptionInformation[1], 0u);  // of address 0
    EXPECT_EQ(read.record.ExceptionRecord, nullptr);
    EXPECT_EQ(reinterpret_cast<DWORD64>(read.record.ExceptionAddress), read.context.Rip);
    EXPECT_EQ(read.context.ContextFlags & CONTEXT_FULL, CONTEXT_FULL);
    EXPECT_NE(read.context.Rsp, 0u);

    // The same signal again on the same thread: the handler's exit left it deliverable.
    const Fault write = CatchFault([] { WriteNull(); });
    EXPECT_EQ(write.code, EXCEPTION_ACCESS_VIOLATION);
    EXPECT_EQ(write.record.ExceptionInformation[0], 1u);

    const Fault divide = CatchFault([] { DivideByZero(7); });
    EXPECT_EQ(divide.code, EXCEPTION_INT_DIVIDE_BY_ZERO);
    EXPECT_EQ(divide.record.NumberParameters, 0u);
    _set_se_translator(nullptr);
  }).join();
}

TEST(SeTranslatorDeathTest, WithoutTranslatorTheProcessStillCrashes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        _set_se_translator(&ThrowFault);         // the handlers are in place ...
        std::thread([] { ReadNull(); }).join();  // ... but this thread has no translator
      },
      Died, "");
  // A signal that is sent, not raised by a fault, is no structured exception.
  EXPECT_EXIT(
      {
        _set_se_translator(&ThrowFault);
        raise(SIGFPE);
      },
      Died, "");
}

}  // namespace
