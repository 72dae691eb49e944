#pragma once

/// What clang's -Wthread-safety is told about a lock; nothing for other compilers.
///
/// ENGINE_GUARDED_BY on a field needs lock guards that are annotated: the standard library's own are not, so a field that
/// one of those guards has a comment instead.

#if defined(__clang__)
#define ENGINE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ENGINE_THREAD_ANNOTATION(x)
#endif

#define ENGINE_CAPABILITY(name) ENGINE_THREAD_ANNOTATION(capability(name))
#define ENGINE_SCOPED_CAPABILITY ENGINE_THREAD_ANNOTATION(scoped_lockable)
#define ENGINE_GUARDED_BY(lock) ENGINE_THREAD_ANNOTATION(guarded_by(lock))
#define ENGINE_REQUIRES(...) ENGINE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ENGINE_REQUIRES_SHARED(...) ENGINE_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define ENGINE_ACQUIRE(...) ENGINE_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ENGINE_ACQUIRE_SHARED(...) ENGINE_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define ENGINE_TRY_ACQUIRE(...) ENGINE_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ENGINE_RELEASE(...) ENGINE_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define ENGINE_RELEASE_SHARED(...) ENGINE_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
/// For a lock that is taken or not by what the code finds.
#define ENGINE_NOT_CHECKED ENGINE_THREAD_ANNOTATION(no_thread_safety_analysis)
