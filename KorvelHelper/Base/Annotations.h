#pragma once

// Names for clang's thread-safety attributes. Under another compiler they vanish: the guards are
// checked by every clang build and cost nothing anywhere.
#if defined(__clang__)
#define KORVEL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KORVEL_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(name) KORVEL_THREAD_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY KORVEL_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) KORVEL_THREAD_ATTRIBUTE(guarded_by(x))
#define REQUIRES(...) KORVEL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) KORVEL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) KORVEL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KORVEL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(x) KORVEL_THREAD_ATTRIBUTE(assert_capability(x))
#define NO_THREAD_SAFETY_ANALYSIS KORVEL_THREAD_ATTRIBUTE(no_thread_safety_analysis)
