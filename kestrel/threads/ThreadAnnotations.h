// Names for clang's thread-safety attributes (-Wthread-safety); they mean nothing to other
// compilers.
#pragma once

#if defined(__clang__)
#define KESTREL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KESTREL_THREAD_ATTRIBUTE(x)
#endif

#define KESTREL_CAPABILITY(x) KESTREL_THREAD_ATTRIBUTE(capability(x))
#define KESTREL_SCOPED_CAPABILITY KESTREL_THREAD_ATTRIBUTE(scoped_lockable)
#define KESTREL_GUARDED_BY(x) KESTREL_THREAD_ATTRIBUTE(guarded_by(x))
#define KESTREL_REQUIRES(...) KESTREL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KESTREL_ACQUIRE(...) KESTREL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KESTREL_RELEASE(...) KESTREL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define KESTREL_NO_THREAD_SAFETY_ANALYSIS KESTREL_THREAD_ATTRIBUTE(no_thread_safety_analysis)
