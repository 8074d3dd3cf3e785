#pragma once

// Lock contracts that clang checks (-Wthread-safety): which mutex guards a
// member, which lock a function needs held or takes itself. Other compilers
// see nothing.
//   GUARDED_BY(m)     member read or written only with m held
//   REQUIRES(m)       the caller holds m
//   EXCLUDES(m)       the caller does not hold m (the function takes it)
//   ACQUIRE / RELEASE a function that takes / gives back a lock
//   CAPABILITY        a type that is a lock; SCOPED_CAPABILITY one that
//                     holds a lock for its lifetime

#if defined(__clang__)
#define USBMEDIA_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define USBMEDIA_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(name) USBMEDIA_THREAD_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY USBMEDIA_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(m) USBMEDIA_THREAD_ATTRIBUTE(guarded_by(m))
#define PT_GUARDED_BY(m) USBMEDIA_THREAD_ATTRIBUTE(pt_guarded_by(m))
#define REQUIRES(...) USBMEDIA_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) USBMEDIA_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) USBMEDIA_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) USBMEDIA_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
// Lock order: checked by clang with -Wthread-safety-beta.
#define ACQUIRED_BEFORE(...) USBMEDIA_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) USBMEDIA_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
// A function that returns (a reference to) the named capability.
#define RETURN_CAPABILITY(x) USBMEDIA_THREAD_ATTRIBUTE(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS USBMEDIA_THREAD_ATTRIBUTE(no_thread_safety_analysis)
