// Operations that make the processor fault, for tests of structured exceptions. The test files
// that use them are built with -fnon-call-exceptions, so the faults can unwind.
#pragma once

namespace n7platform::testing {

// ThreadSanitizer runs signal handlers from its own frames, which have no unwind information: an
// exception thrown by a translator cannot leave them, so fault translation is not tested there.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool kFaultsUnwind = false;
#elif defined(__has_feature)
inline constexpr bool kFaultsUnwind = !__has_feature(thread_sanitizer);
#else
inline constexpr bool kFaultsUnwind = true;
#endif

// Volatile, so the optimiser can neither drop nor fold the faulting operations.
inline volatile int* volatile g_null = nullptr;
inline volatile int g_zero = 0;
inline volatile int g_sink = 0;

// The sanitizers would report these operations before the processor faults. (The GNU spelling
// of the attribute is the one both g++ and clang accept.)
#define N7_FAULTING __attribute__((noinline, no_sanitize("address", "undefined")))

N7_FAULTING inline void ReadNull() { g_sink = *g_null; }
N7_FAULTING inline void WriteNull() { *g_null = 1; }
N7_FAULTING inline void DivideByZero(int value) { g_sink = value / g_zero; }

#undef N7_FAULTING

}  // namespace n7platform::testing
