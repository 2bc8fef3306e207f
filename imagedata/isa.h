#pragma once
/// The vector widths the copy kernels are built for. Every kernel exists
/// with 16-byte vectors (SSE2, the x86-64 baseline, or any other 128-bit
/// unit); on x86-64 a second build with 32-byte vectors runs where the
/// processor has AVX2. kernels.cpp makes the choice once per process.

namespace tiffgate::detail {

enum class Isa { vector16, vector32 };

/// Whether this build and this processor can run kernels for isa.
bool isa_supported(Isa isa);
/// The widest supported: vector32 on an AVX2 processor, else vector16.
Isa best_isa();

}  // namespace tiffgate::detail
