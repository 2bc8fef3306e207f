#include "core/memory_limit.h"

#include <unistd.h>  // sysconf

#include <limits>

namespace tiffgate {

std::uint64_t memory_limit() {
  static const std::uint64_t limit = [] {
    const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGE_SIZE);
    // A system that cannot tell sets no limit of its own here.
    if (pages <= 0 || pageSize <= 0) return std::numeric_limits<std::uint64_t>::max();
    return saturating_product({static_cast<std::uint64_t>(pages), static_cast<std::uint64_t>(pageSize)});
  }();
  return limit;
}

std::uint64_t saturating_product(std::initializer_list<std::uint64_t> factors) {
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t product = 1;
  for (const std::uint64_t f : factors) {
    if (f != 0 && product > kMax / f) return kMax;
    product *= f;
  }
  return product;
}

}  // namespace tiffgate
