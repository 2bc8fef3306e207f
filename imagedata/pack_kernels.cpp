#include "imagedata/pack_kernels.h"

#include "imagedata/block_columns.h"

#include <algorithm>
#include <cstdint>  // SIZE_MAX
#include <cstring>  // std::memcpy
#include <initializer_list>
#include <utility>
#if defined(__x86_64__)
#include <immintrin.h>  // non-temporal stores
#endif

namespace tiffgate::detail {
namespace {

/// The source columns as the kernels walk them: column c of plane k starts
/// at data + c * column + k * plane (bytes); planes at or past `planes`
/// are absent and read as zero.
struct SourceView {
  const unsigned char* data;
  std::size_t column;
  std::size_t plane;
  std::size_t columns;
  std::size_t planes;
};

}  // namespace

// The vector work, as in unpack_kernels.cpp: a 16-byte build and, on
// x86-64, a 32-byte build for AVX2, both with internal linkage.
namespace {
namespace v16 {
constexpr std::size_t kVectorBytes = 16;
#include "imagedata/vector_ops.inc"
#include "imagedata/pack_body.inc"
}  // namespace v16
}  // namespace

#if TIFFGATE_HAVE_VECTOR32
TIFFGATE_BEGIN_AVX2
namespace {
namespace v32 {
constexpr std::size_t kVectorBytes = 32;
#include "imagedata/vector_ops.inc"
#include "imagedata/pack_body.inc"
}  // namespace v32
}  // namespace
TIFFGATE_END_AVX2
#endif

namespace {


// Chunk sizes saturate instead of wrapping: a wrapped size could pass for a
// small buffer that the kernel would then overrun.
std::size_t product(std::initializer_list<std::size_t> factors) {
  std::size_t result = 1;
  for (std::size_t f : factors)
    if (__builtin_mul_overflow(result, f, &result)) return SIZE_MAX;
  return result;
}

// --- what the vector code does not cover -----------------------------------

/// Rows [0, rows) of element columns [first, last), column by column.
template <class T>
void scalar_columns_to_rows(const SourceView& in, std::size_t rows, std::size_t first, std::size_t last,
                            const ChunkView& chunk) {
  const std::size_t stride = chunk.width * chunk.samples * sizeof(T);
  ColumnWalk walk(in.column, in.plane, chunk.samples, in.planes, first);
  for (std::size_t j = first; j < last; ++j) {
    const std::size_t offset = walk.next();
    unsigned char* dst = chunk.data + j * sizeof(T);
    if (offset == BlockColumns::kAbsent) {
      for (std::size_t r = 0; r < rows; ++r, dst += stride) std::memset(dst, 0, sizeof(T));
    } else {
      const unsigned char* src = in.data + offset;
      for (std::size_t r = 0; r < rows; ++r, src += sizeof(T), dst += stride) std::memcpy(dst, src, sizeof(T));
    }
  }
}

/// Bytes [first, last) of rows [0, rows) of a 1-bit chunk whose rows hold
/// `bits` samples of the region; later bits of the last byte are zero.
void scalar_columns_to_bits(const SourceView& in, std::size_t rows, std::size_t first, std::size_t last,
                            std::size_t bits, const ChunkView& chunk, std::size_t rowBytes) {
  // A bit with no source reads one zero byte over and over (step 0), so
  // the loop over rows has no branch.
  static const unsigned char kZero = 0;
  ColumnWalk walk(in.column, in.plane, chunk.samples, in.planes, 8 * first);
  for (std::size_t b = first; b < last; ++b) {
    const unsigned char* src[8];
    std::size_t step[8];
    for (std::size_t p = 0; p < 8; ++p) {
      const std::size_t offset = 8 * b + p < bits ? walk.next() : BlockColumns::kAbsent;
      const bool present = offset != BlockColumns::kAbsent;
      src[p] = present ? in.data + offset : &kZero;
      step[p] = present ? 1 : 0;
    }
    unsigned char* dst = chunk.data + b;
    for (std::size_t r = 0; r < rows; ++r, dst += rowBytes) {
      unsigned byte = 0;
      for (std::size_t p = 0; p < 8; ++p) byte |= static_cast<unsigned>(src[p][r * step[p]] != 0) << (7 - p);
      *dst = static_cast<unsigned char>(byte);
    }
  }
}

// --- choosing the kernel for a chunk -----------------------------------------

/// 16-byte blocks of the tallest height H (a power of two, at most the
/// elements in a lane) that `rows` rows fill.
template <class T, std::size_t Width, std::size_t H = 16 / sizeof(T)>
void v16_blocks(const SourceView& in, std::size_t rows, const ChunkView& chunk) {
  if constexpr (H > 2) {
    if (rows < H) return v16_blocks<T, Width, H / 2>(in, rows, chunk);
  }
  v16::columns_to_blocks<T, H, Width>(in, rows, chunk);
}

template <std::size_t Width, std::size_t H = 16>
void v16_bit_blocks(const SourceView& in, std::size_t rows, std::size_t fullBytes, const ChunkView& chunk,
                    std::size_t rowBytes) {
  if constexpr (H > 2) {
    if (rows < H) return v16_bit_blocks<Width, H / 2>(in, rows, fullBytes, chunk, rowBytes);
  }
  v16::columns_to_bit_blocks<H, Width>(in, rows, fullBytes, chunk, rowBytes);
}

/// One chunk row from source rows of one element column stride: a copy for
/// one sample, the unriffle merge for 2 to 4. False when neither applies.
template <class T, Isa I>
bool interleave(const SourceView& in, const ChunkView& chunk) {
  const std::size_t n = in.columns;
  if (chunk.samples == 1) {
    std::memcpy(chunk.data, in.data, n * sizeof(T));
    return true;
  }
  using Row = void (*)(const SourceView&, std::size_t, unsigned char*);
  constexpr std::size_t lane = 16 / sizeof(T);
  std::size_t pixels = 2 * lane;  // pixels one step takes
  Row merge[] = {v16::interleave_row<T, 2>, v16::interleave_row<T, 3>, v16::interleave_row<T, 4>};
#if TIFFGATE_HAVE_VECTOR32
  if (I == Isa::vector32) {
    pixels = 4 * lane;
    merge[0] = v32::interleave_row<T, 2>;
    merge[1] = v32::interleave_row<T, 3>;
    merge[2] = v32::interleave_row<T, 4>;
  }
#endif
  if (chunk.samples > 4 || n < pixels) return false;
  merge[chunk.samples - 2](in, n, chunk.data);
  return true;
}

template <class T, Isa I>
void pack_elements(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk) {
  if (rows == 0 || columns == 0) return;
  constexpr std::size_t lane = 16 / sizeof(T);
  const SourceView in{source.data, source.rows * sizeof(T), source.rows * source.columns * sizeof(T), columns,
                      std::min(source.planes, chunk.samples)};
  const std::size_t elements = columns * chunk.samples;
  const std::size_t stride = chunk.width * chunk.samples * sizeof(T);
  if (rows >= 2 && with_block_width(elements * sizeof(T), [&](auto width) {
#if TIFFGATE_HAVE_VECTOR32
        // Bytes whose 32-byte blocks would go through the buffer go faster
        // through 16-byte ones (measured): half the rows in flight.
        if (I == Isa::vector32 && rows >= 2 * lane && !(sizeof(T) == 1 && crowded(stride, 2 * lane, 2))) {
          // Wide elements of a chunk beyond the nearer caches: four lines
          // of each chunk row a visit rather than one (measured).
          if (sizeof(T) >= 4 && elements * sizeof(T) >= 256 && rows * stride > (std::size_t{1} << 20))
            return v32::columns_to_blocks<T, 2 * lane, 256>(in, rows, chunk);
          return v32::columns_to_blocks<T, 2 * lane, decltype(width)::value>(in, rows, chunk);
        }
#endif
        v16_blocks<T, decltype(width)::value>(in, rows, chunk);
      }))
    return;
  if (rows == 1 && in.column == sizeof(T) && in.planes > 0 && interleave<T, I>(in, chunk)) return;
  scalar_columns_to_rows<T>(in, rows, 0, elements, chunk);
}

template <Isa I>
void pack_bits_with(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk) {
  if (rows == 0 || columns == 0) return;
  const std::size_t rowBytes = bit_row_bytes(chunk.width, chunk.samples);
  // Column stride `rows`, not source.rows: see the header.
  const SourceView in{source.data, rows, source.rows * source.columns, columns,
                      std::min(source.planes, chunk.samples)};
  const std::size_t bits = columns * chunk.samples;
  const std::size_t fullBytes = bits / 8;
  std::size_t done = 0;  // bytes written by vector code
  if (rows >= 2 && with_block_width(fullBytes, [&](auto width) {
#if TIFFGATE_HAVE_VECTOR32
        if (I == Isa::vector32 && rows >= 32)
          return v32::columns_to_bit_blocks<32, decltype(width)::value>(in, rows, fullBytes, chunk, rowBytes);
#endif
        v16_bit_blocks<decltype(width)::value>(in, rows, fullBytes, chunk, rowBytes);
      }))
    done = fullBytes;
  scalar_columns_to_bits(in, rows, done, ceil_div(bits, 8), bits, chunk, rowBytes);
}

/// Unit rows in bands, and within a band unit column by unit column, so
/// that the Y columns are read in order. Clamping to Y's own extent keeps
/// every read inside the array when the data's rows or columns are not
/// multiples of the subsampling (the edge sample repeats); units wholly
/// inside it need no clamping. Hc and Vc are the subsampling when known at
/// compile time (0: read from the argument), so that a whole unit's loops
/// have constant trip counts.
template <std::size_t Bytes, std::size_t Hc, std::size_t Vc>
void pack_ycbcr_with(const HostView& y, const HostView& cb, const HostView& cr, std::size_t rows,
                     std::size_t columns, Subsampling subsampling, const ChunkView& chunk) {
  const std::size_t h = Hc ? Hc : subsampling.horizontal;
  const std::size_t v = Vc ? Vc : subsampling.vertical;
  const std::size_t unitBytes = (h * v + 2) * Bytes;
  const std::size_t rowBytes = ycbcr_units_per_row(chunk.width, subsampling) * unitBytes;
  const std::size_t unitRows = ceil_div(rows, v);
  const std::size_t unitColumns = ceil_div(columns, h);
  if (unitRows == 0 || unitColumns == 0) return;
  const std::size_t lastRow = y.rows - 1;
  const std::size_t lastColumn = y.columns - 1;
  const std::size_t wholeRows = y.rows / v, wholeColumns = y.columns / h;
  constexpr std::size_t kBandUnits = 8;
  for (std::size_t top = 0; top < unitRows; top += kBandUnits) {
    const std::size_t bottom = std::min(top + kBandUnits, unitRows);
    const std::size_t wholeBottom = std::min(bottom, std::max(top, wholeRows));
    for (std::size_t uc = 0; uc < unitColumns; ++uc) {
      std::size_t ur = top;
      if (uc < wholeColumns) {
        for (; ur < wholeBottom; ++ur) {
          unsigned char* out = chunk.data + ur * rowBytes + uc * unitBytes;
          const unsigned char* luma = y.data + (ur * v + uc * h * y.rows) * Bytes;
          for (std::size_t dy = 0; dy < v; ++dy)
            for (std::size_t dx = 0; dx < h; ++dx, out += Bytes)
              std::memcpy(out, luma + (dy + dx * y.rows) * Bytes, Bytes);
        }
      }
      for (; ur < bottom; ++ur) {
        unsigned char* out = chunk.data + ur * rowBytes + uc * unitBytes;
        for (std::size_t dy = 0; dy < v; ++dy) {
          const unsigned char* row = y.data + std::min(ur * v + dy, lastRow) * Bytes;
          for (std::size_t dx = 0; dx < h; ++dx, out += Bytes)
            std::memcpy(out, row + std::min(uc * h + dx, lastColumn) * y.rows * Bytes, Bytes);
        }
      }
      for (ur = top; ur < bottom; ++ur) {
        unsigned char* out = chunk.data + ur * rowBytes + uc * unitBytes + h * v * Bytes;
        std::memcpy(out, cb.data + (ur + uc * cb.rows) * Bytes, Bytes);
        std::memcpy(out + Bytes, cr.data + (ur + uc * cr.rows) * Bytes, Bytes);
      }
    }
  }
}

/// The packer for the subsampling's factors: a build for each of 1, 2 and 4
/// in either direction; any other with run-time loops.
template <std::size_t Bytes>
void pack_ycbcr(const HostView& y, const HostView& cb, const HostView& cr, std::size_t rows, std::size_t columns,
                Subsampling subsampling, const ChunkView& chunk) {
  static constexpr YCbCrPacker kBuilds[3][3] = {
      {pack_ycbcr_with<Bytes, 1, 1>, pack_ycbcr_with<Bytes, 1, 2>, pack_ycbcr_with<Bytes, 1, 4>},
      {pack_ycbcr_with<Bytes, 2, 1>, pack_ycbcr_with<Bytes, 2, 2>, pack_ycbcr_with<Bytes, 2, 4>},
      {pack_ycbcr_with<Bytes, 4, 1>, pack_ycbcr_with<Bytes, 4, 2>, pack_ycbcr_with<Bytes, 4, 4>}};
  const auto index = [](std::size_t factor) { return factor == 1 ? 0 : factor == 2 ? 1 : factor == 4 ? 2 : 3; };
  const std::size_t i = index(subsampling.horizontal), j = index(subsampling.vertical);
  const YCbCrPacker run = i < 3 && j < 3 ? kBuilds[i][j] : pack_ycbcr_with<Bytes, 0, 0>;
  run(y, cb, cr, rows, columns, subsampling, chunk);
}

template <Isa I>
ElementPacker element_packer_for(std::size_t elementBytes) {
  switch (elementBytes) {
    case 1: return &pack_elements<std::uint8_t, I>;
    case 2: return &pack_elements<std::uint16_t, I>;
    case 4: return &pack_elements<std::uint32_t, I>;
    case 8: return &pack_elements<std::uint64_t, I>;
    default: return nullptr;
  }
}

}  // namespace

ElementPacker element_packer(std::size_t elementBytes, std::size_t samples, Isa isa) {
  // One kernel serves every sample count: it reads the count from the chunk.
  (void)samples;
  return isa == Isa::vector32 && isa_supported(isa) ? element_packer_for<Isa::vector32>(elementBytes)
                                                    : element_packer_for<Isa::vector16>(elementBytes);
}

ElementPacker element_packer(std::size_t elementBytes, std::size_t samples) {
  return element_packer(elementBytes, samples, best_isa());
}

std::size_t element_chunk_bytes(std::size_t width, std::size_t length, std::size_t samples,
                                std::size_t elementBytes) {
  return product({width, length, samples, elementBytes});
}

BitPacker bit_packer(Isa isa) {
  return isa == Isa::vector32 && isa_supported(isa) ? pack_bits_with<Isa::vector32> : pack_bits_with<Isa::vector16>;
}

void pack_bits(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk) {
  bit_packer(best_isa())(source, rows, columns, chunk);
}

std::size_t bit_row_bytes(std::size_t width, std::size_t samples) {
  return ceil_div(product({width, samples}), 8);
}

std::size_t bit_chunk_bytes(std::size_t width, std::size_t length, std::size_t samples) {
  return product({bit_row_bytes(width, samples), length});
}

YCbCrPacker ycbcr_packer(std::size_t elementBytes) {
  switch (elementBytes) {
    case 1: return &pack_ycbcr<1>;
    case 2: return &pack_ycbcr<2>;
    case 4: return &pack_ycbcr<4>;
    case 8: return &pack_ycbcr<8>;
    default: return nullptr;
  }
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

}  // namespace tiffgate::detail
