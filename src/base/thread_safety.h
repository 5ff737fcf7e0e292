#pragma once

// What clang needs to know to check the use of locks, as `./dev lint` lets it; nothing to other
// compilers. Constructors and destructors are not looked into, and a lambda is a function of its
// own: one that is called with a section held says so, between its parameters and its body.
#if defined(__clang__)
#define VSC_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define VSC_ATTRIBUTE(attribute)
#endif

// Of types: what can be held, and what holds it as long as it lives.
#define VSC_CAPABILITY VSC_ATTRIBUTE(capability("section"))
#define VSC_SCOPED_CAPABILITY VSC_ATTRIBUTE(scoped_lockable)

// Of sections: locked before others. It is checked where one function holds both.
#define VSC_ACQUIRED_BEFORE(...) VSC_ATTRIBUTE(acquired_before(__VA_ARGS__))

// Of members: reached only with the section held; for a pointer, what it points to.
#define VSC_GUARDED_BY(section) VSC_ATTRIBUTE(guarded_by(section))
#define VSC_POINTEE_GUARDED_BY(section) VSC_ATTRIBUTE(pt_guarded_by(section))

// Of functions: the caller holds the section, or must not hold it.
#define VSC_REQUIRES(...) VSC_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define VSC_EXCLUDES(...) VSC_ATTRIBUTE(locks_excluded(__VA_ARGS__))

// Of functions: the section is held afterwards, or no longer. Without arguments, it is the object.
#define VSC_ACQUIRE(...) VSC_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VSC_TRY_ACQUIRE(...) VSC_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define VSC_RELEASE(...) VSC_ATTRIBUTE(release_capability(__VA_ARGS__))
#define VSC_RETURN_CAPABILITY(section) VSC_ATTRIBUTE(lock_returned(section))

// Of functions that do with locks what cannot be told: a comment says why it is right.
#define VSC_NO_ANALYSIS VSC_ATTRIBUTE(no_thread_safety_analysis)
