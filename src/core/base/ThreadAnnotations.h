#pragma once

// Lock annotations for clang's thread-safety analysis (-Wthread-safety). A
// member marked GUARDED_BY(mutex_) may only be touched with mutex_ held; a
// function marked REQUIRES(mutex_) may only be called with it held. Clang
// checks both at compile time (scripts/check-threads); other compilers see
// empty macros, so the annotations cost nothing in the g++ build.
//
// The names follow clang's documentation. Each is defined only when nothing
// else defined it first, so a library bringing the same macros along does not
// clash with these.

#if defined(__clang__) && defined(__has_attribute)
#if __has_attribute(guarded_by)
#define QUORIN_THREAD_ANNOTATION(x) __attribute__((x))
#endif
#endif
#ifndef QUORIN_THREAD_ANNOTATION
#define QUORIN_THREAD_ANNOTATION(x)
#endif

// On a type: it is a lock (a capability) the analysis tracks.
#ifndef CAPABILITY
#define CAPABILITY(name) QUORIN_THREAD_ANNOTATION(capability(name))
#endif
// On a type: an object that holds a lock for its lifetime (a scoped lock).
#ifndef SCOPED_CAPABILITY
#define SCOPED_CAPABILITY QUORIN_THREAD_ANNOTATION(scoped_lockable)
#endif

// On a data member: read and written only with the lock held.
#ifndef GUARDED_BY
#define GUARDED_BY(x) QUORIN_THREAD_ANNOTATION(guarded_by(x))
#endif
// On a pointer member: what it points to is accessed only with the lock held.
#ifndef PT_GUARDED_BY
#define PT_GUARDED_BY(x) QUORIN_THREAD_ANNOTATION(pt_guarded_by(x))
#endif

// On a lock member: the order in which locks may be taken.
#ifndef ACQUIRED_BEFORE
#define ACQUIRED_BEFORE(...) QUORIN_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#endif
#ifndef ACQUIRED_AFTER
#define ACQUIRED_AFTER(...) QUORIN_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#endif

// On a function: the caller must hold the lock (exclusively, or at least shared).
#ifndef REQUIRES
#define REQUIRES(...) QUORIN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#endif
#ifndef REQUIRES_SHARED
#define REQUIRES_SHARED(...) QUORIN_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#endif
// On a function: the caller must not hold the lock (the function takes it).
#ifndef EXCLUDES
#define EXCLUDES(...) QUORIN_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#endif

// On a function: it takes or gives up the lock (no argument: `this`).
#ifndef ACQUIRE
#define ACQUIRE(...) QUORIN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#endif
#ifndef RELEASE
#define RELEASE(...) QUORIN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#endif
// On a function: it takes the lock when it returns the given value.
#ifndef TRY_ACQUIRE
#define TRY_ACQUIRE(...) QUORIN_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#endif
// On a function: it checks at run time that the lock is held; afterwards the analysis assumes so.
#ifndef ASSERT_CAPABILITY
#define ASSERT_CAPABILITY(x) QUORIN_THREAD_ANNOTATION(assert_capability(x))
#endif
// On a function: it returns a reference to the lock named.
#ifndef RETURN_CAPABILITY
#define RETURN_CAPABILITY(x) QUORIN_THREAD_ANNOTATION(lock_returned(x))
#endif

// On a function: the analysis skips its body. Each use says why it is safe.
#ifndef NO_THREAD_SAFETY_ANALYSIS
#define NO_THREAD_SAFETY_ANALYSIS QUORIN_THREAD_ANNOTATION(no_thread_safety_analysis)
#endif
