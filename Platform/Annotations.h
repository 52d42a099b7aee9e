// Names for Clang's thread-safety analysis; empty for every other compiler.
#pragma once

#if defined(__clang__)
#define ORV_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ORV_THREAD_ATTRIBUTE(x)
#endif

#define ORV_CAPABILITY(x) ORV_THREAD_ATTRIBUTE(capability(x))
#define ORV_SCOPED_CAPABILITY ORV_THREAD_ATTRIBUTE(scoped_lockable)
#define ORV_GUARDED_BY(x) ORV_THREAD_ATTRIBUTE(guarded_by(x))
#define ORV_PT_GUARDED_BY(x) ORV_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define ORV_REQUIRES(...) ORV_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ORV_ACQUIRE(...) ORV_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ORV_RELEASE(...) ORV_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ORV_TRY_ACQUIRE(...) ORV_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define ORV_EXCLUDES(...) ORV_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ORV_NO_THREAD_SAFETY_ANALYSIS ORV_THREAD_ATTRIBUTE(no_thread_safety_analysis)
