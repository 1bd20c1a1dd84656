/*
 * The one place that chooses where the NEON intrinsics come from: the
 * compiler's <arm_neon.h> on ARM, SIMDe's portable implementation elsewhere.
 * Vector kernels are written once against these names.
 */
#ifndef TRV_SIMD_H
#define TRV_SIMD_H

#if defined(__ARM_NEON) || defined(__ARM_NEON__)
#include <arm_neon.h>
#else
/* Alias only the ARMv7 (A32) intrinsic names. SIMDe's blanket alias switch
 * would also accept AArch64-only intrinsics here, which the armv7 product
 * build then rejects; this way a host build fails the same way. */
#define SIMDE_ARM_NEON_A32V7_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif

#endif /* TRV_SIMD_H */
