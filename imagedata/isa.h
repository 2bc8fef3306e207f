#pragma once
/// The vector widths the copy kernels are built for, and the one this
/// processor runs best. Every kernel exists with 16-byte vectors (SSE2, the
/// x86-64 baseline, or any other 128-bit unit); on x86-64 a second build
/// with 32-byte vectors runs where the processor has AVX2. The choice is
/// made once per process and read once per call.

namespace tiffgate::detail {

enum class Isa { vector16, vector32 };

/// Whether this build and this processor can run kernels for isa.
bool isa_supported(Isa isa);
/// The widest supported: vector32 on an AVX2 processor, else vector16.
Isa best_isa();

}  // namespace tiffgate::detail

// Brackets code that is compiled a second time for AVX2 (see
// unpack_kernels.cpp); only x86-64 has that second build.
#if defined(__x86_64__)
#define TIFFGATE_HAVE_VECTOR32 1
#if defined(__clang__)
#define TIFFGATE_BEGIN_AVX2 _Pragma("clang attribute push(__attribute__((target(\"avx2\"))), apply_to = function)")
#define TIFFGATE_END_AVX2 _Pragma("clang attribute pop")
#else
#define TIFFGATE_BEGIN_AVX2 _Pragma("GCC push_options") _Pragma("GCC target(\"avx2\")")
#define TIFFGATE_END_AVX2 _Pragma("GCC pop_options")
#endif
#else
#define TIFFGATE_HAVE_VECTOR32 0
#endif
