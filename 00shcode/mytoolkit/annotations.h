// Names for clang's thread-safety analysis; they mean nothing to other compilers.
#pragma once

#if defined(__clang__)
#define FT_ANNOTATE(x) __attribute__((x))
#else
#define FT_ANNOTATE(x)
#endif

#define FT_LOCK_TYPE FT_ANNOTATE(capability("lock"))
#define FT_LOCK_SCOPE FT_ANNOTATE(scoped_lockable)
#define FT_GUARDED_BY(lock) FT_ANNOTATE(guarded_by(lock))
#define FT_REQUIRES(...) FT_ANNOTATE(requires_capability(__VA_ARGS__))
#define FT_ACQUIRE(...) FT_ANNOTATE(acquire_capability(__VA_ARGS__))
#define FT_RELEASE(...) FT_ANNOTATE(release_capability(__VA_ARGS__))
#define FT_TRY_ACQUIRE(...) FT_ANNOTATE(try_acquire_capability(__VA_ARGS__))
#define FT_RETURNS_LOCK(lock) FT_ANNOTATE(lock_returned(lock))
#define FT_UNCHECKED FT_ANNOTATE(no_thread_safety_analysis)
