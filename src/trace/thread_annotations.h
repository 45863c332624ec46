#pragma once

// Names for clang's thread-safety analysis (clang.llvm.org/docs/ThreadSafetyAnalysis.html): checked
// by the clang build, nothing elsewhere.

#if defined(__clang__)
#define ZORN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZORN_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) ZORN_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY ZORN_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) ZORN_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) ZORN_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) ZORN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) ZORN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) ZORN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RETURN_CAPABILITY(x) ZORN_THREAD_ANNOTATION(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS ZORN_THREAD_ANNOTATION(no_thread_safety_analysis)
