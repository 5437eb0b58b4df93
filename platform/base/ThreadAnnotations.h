// Clang thread-safety annotations. They compile to nothing on other compilers; the ThreadSanitizer
// build uses clang with -Wthread-safety, so the annotations are checked there.
#pragma once

#if defined(__clang__)
#define N7_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define N7_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) N7_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY N7_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) N7_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) N7_THREAD_ANNOTATION(pt_guarded_by(x))
#define ACQUIRED_BEFORE(...) N7_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) N7_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define REQUIRES(...) N7_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) N7_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) N7_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) N7_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) N7_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(x) N7_THREAD_ANNOTATION(assert_capability(x))
#define RETURN_CAPABILITY(x) N7_THREAD_ANNOTATION(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS N7_THREAD_ANNOTATION(no_thread_safety_analysis)
