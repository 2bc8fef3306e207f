#include "imagedata/isa.h"

namespace tiffgate::detail {

bool isa_supported(Isa isa) {
  if (isa == Isa::vector16) return true;
#if TIFFGATE_HAVE_VECTOR32
  // Asked once: the answer cannot change while the process runs.
  static const bool avx2 = __builtin_cpu_supports("avx2");
  return avx2;
#else
  return false;
#endif
}

Isa best_isa() { return isa_supported(Isa::vector32) ? Isa::vector32 : Isa::vector16; }

}  // namespace tiffgate::detail
