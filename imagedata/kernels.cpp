// The one place that chooses a vector width: the processor is asked once,
// and every kernel lookup reads the chosen build's tables.
#include "imagedata/kernel_tables.h"

#include <cstdint>  // SIZE_MAX
#include <initializer_list>

namespace tiffgate {
namespace detail {
namespace {

/// The tables of one build: an isa the processor lacks gives the 16-byte one.
struct Build {
  const UnpackTable& unpack;
  const PackTable& pack;
};

Build build(Isa isa) {
#if TIFFGATE_HAVE_VECTOR32
  if (isa == Isa::vector32 && isa_supported(isa)) return {v32::unpack_table, v32::pack_table};
#endif
  (void)isa;
  return {v16::unpack_table, v16::pack_table};
}

// Chunk sizes saturate instead of wrapping: a wrapped size could pass for a
// small buffer that the kernel would then overrun.
std::size_t product(std::initializer_list<std::size_t> factors) {
  std::size_t result = 1;
  for (std::size_t f : factors)
    if (__builtin_mul_overflow(result, f, &result)) return SIZE_MAX;
  return result;
}

}  // namespace

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

Isa best_isa() {
  static const Isa best = isa_supported(Isa::vector32) ? Isa::vector32 : Isa::vector16;
  return best;
}

ElementPacker element_packer(std::size_t elementBytes, std::size_t samples, Isa isa) {
  (void)samples;  // one kernel serves every sample count
  return elementBytes < kElementSizes ? build(isa).pack.elements[elementBytes] : nullptr;
}

ElementPacker element_packer(std::size_t elementBytes, std::size_t samples) {
  return element_packer(elementBytes, samples, best_isa());
}

BitPacker bit_packer(Isa isa) { return build(isa).pack.bits; }

void pack_bits(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk) {
  bit_packer(best_isa())(source, rows, columns, chunk);
}

std::size_t element_chunk_bytes(std::size_t width, std::size_t length, std::size_t samples,
                                std::size_t elementBytes) {
  return product({width, length, samples, elementBytes});
}

std::size_t bit_row_bytes(std::size_t width, std::size_t samples) { return ceil_div(product({width, samples}), 8); }

std::size_t bit_chunk_bytes(std::size_t width, std::size_t length, std::size_t samples) {
  return product({bit_row_bytes(width, samples), length});
}

std::size_t ycbcr_units_per_row(std::size_t width, Subsampling subsampling) {
  return ceil_div(width, subsampling.horizontal);
}

std::size_t ycbcr_chunk_bytes(std::size_t width, std::size_t length, Subsampling subsampling,
                              std::size_t elementBytes) {
  const std::size_t unitSamples = subsampling.horizontal * subsampling.vertical + 2;
  return product({ycbcr_units_per_row(width, subsampling), ceil_div(length, subsampling.vertical), unitSamples,
                  elementBytes});
}

}  // namespace detail

ElementUnpacker element_unpacker(std::size_t elementSize, detail::Isa isa) {
  return elementSize < detail::kElementSizes ? detail::build(isa).unpack.elements[elementSize] : nullptr;
}

ElementUnpacker element_unpacker(std::size_t elementSize) { return element_unpacker(elementSize, detail::best_isa()); }

StridedElementUnpacker strided_element_unpacker(std::size_t elementSize, detail::Isa isa) {
  return elementSize < detail::kElementSizes ? detail::build(isa).unpack.strided[elementSize] : nullptr;
}

StridedElementUnpacker strided_element_unpacker(std::size_t elementSize) {
  return strided_element_unpacker(elementSize, detail::best_isa());
}

BitUnpacker bit_unpacker(detail::Isa isa) { return detail::build(isa).unpack.bits; }

StridedBitUnpacker strided_bit_unpacker(detail::Isa isa) { return detail::build(isa).unpack.strided_bits; }

void unpack_bits(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, bool* out) {
  bit_unpacker(detail::best_isa())(chunk, bytes, shape, out);
}

}  // namespace tiffgate
