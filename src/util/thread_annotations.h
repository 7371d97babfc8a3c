// Locking rules that clang checks (-Wthread-safety); other compilers see nothing of them.
#pragma once

#if defined(__clang__)
#define TLM_ANNOTATION(x) __attribute__((x))
#else
#define TLM_ANNOTATION(x)
#endif

#define CAPABILITY(x) TLM_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY TLM_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) TLM_ANNOTATION(guarded_by(x))
#define REQUIRES(...) TLM_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) TLM_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) TLM_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) TLM_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS TLM_ANNOTATION(no_thread_safety_analysis)
