// Compiler attributes under one name each.
#pragma once

#if defined(__GNUC__)
// For the one body of a kernel that is compiled for several CPUs: it must take on the target of its caller.
#define NEB_INLINE inline __attribute__((always_inline))
#define NEB_RESTRICT __restrict__
#else
#define NEB_INLINE inline
#define NEB_RESTRICT
#endif

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define NEB_TARGET(features) __attribute__((target(features)))
#endif
