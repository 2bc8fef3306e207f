// Compiled once per vector width, as unpack_kernels.cpp is.
#include "imagedata/kernel_tables.h"

#include "imagedata/block_columns.h"

#include <algorithm>
#include <cstdint>  // SIZE_MAX
#include <cstring>  // std::memcpy
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


// The vector work with 16-byte vectors and, in the 32-byte build, with
// 32-byte vectors too.
namespace narrow {
constexpr std::size_t kVectorBytes = 16;
#include "imagedata/vector_ops.inc"
#include "imagedata/pack_body.inc"
}  // namespace narrow
#if TIFFGATE_VECTOR_BYTES == 32
namespace wide {
constexpr std::size_t kVectorBytes = 32;
#include "imagedata/vector_ops.inc"
#include "imagedata/pack_body.inc"
}  // namespace wide
#endif

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
void narrow_blocks(const SourceView& in, std::size_t rows, const ChunkView& chunk) {
  if constexpr (H > 2) {
    if (rows < H) return narrow_blocks<T, Width, H / 2>(in, rows, chunk);
  }
  narrow::columns_to_blocks<T, H, Width>(in, rows, chunk);
}

template <std::size_t Width, std::size_t H = 16>
void narrow_bit_blocks(const SourceView& in, std::size_t rows, std::size_t fullBytes, const ChunkView& chunk,
                    std::size_t rowBytes) {
  if constexpr (H > 2) {
    if (rows < H) return narrow_bit_blocks<Width, H / 2>(in, rows, fullBytes, chunk, rowBytes);
  }
  narrow::columns_to_bit_blocks<H, Width>(in, rows, fullBytes, chunk, rowBytes);
}

/// One chunk row from source rows of one element column stride: a copy for
/// one sample, the unriffle merge for 2 to 4. False when neither applies.
template <class T>
bool interleave(const SourceView& in, const ChunkView& chunk) {
  const std::size_t n = in.columns;
  if (chunk.samples == 1) {
    std::memcpy(chunk.data, in.data, n * sizeof(T));
    return true;
  }
  using Row = void (*)(const SourceView&, std::size_t, unsigned char*);
  constexpr std::size_t lane = 16 / sizeof(T);
  std::size_t pixels = 2 * lane;  // pixels one step takes
  Row merge[] = {narrow::interleave_row<T, 2>, narrow::interleave_row<T, 3>, narrow::interleave_row<T, 4>};
#if TIFFGATE_VECTOR_BYTES == 32
  {
    pixels = 4 * lane;
    merge[0] = wide::interleave_row<T, 2>;
    merge[1] = wide::interleave_row<T, 3>;
    merge[2] = wide::interleave_row<T, 4>;
  }
#endif
  if (chunk.samples > 4 || n < pixels) return false;
  merge[chunk.samples - 2](in, n, chunk.data);
  return true;
}

template <class T>
void pack_elements(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk) {
  if (rows == 0 || columns == 0) return;
  const SourceView in{source.data, source.rows * sizeof(T), source.rows * source.columns * sizeof(T), columns,
                      std::min(source.planes, chunk.samples)};
  const std::size_t elements = columns * chunk.samples;
  if (rows >= 2 && with_block_width(elements * sizeof(T), [&](auto width) {
#if TIFFGATE_VECTOR_BYTES == 32
        constexpr std::size_t lane = 16 / sizeof(T);
        const std::size_t stride = chunk.width * chunk.samples * sizeof(T);
        // Bytes whose 32-byte blocks would go through the buffer go faster
        // through 16-byte ones (measured): half the rows in flight.
        if (rows >= 2 * lane && !(sizeof(T) == 1 && crowded(stride, 2 * lane, 2))) {
          // Wide elements of a chunk beyond the nearer caches: four lines
          // of each chunk row a visit rather than one (measured).
          if (sizeof(T) >= 4 && elements * sizeof(T) >= 256 && rows * stride > (std::size_t{1} << 20))
            return wide::columns_to_blocks<T, 2 * lane, 256>(in, rows, chunk);
          return wide::columns_to_blocks<T, 2 * lane, decltype(width)::value>(in, rows, chunk);
        }
#endif
        narrow_blocks<T, decltype(width)::value>(in, rows, chunk);
      }))
    return;
  if (rows == 1 && in.column == sizeof(T) && in.planes > 0 && interleave<T>(in, chunk)) return;
  scalar_columns_to_rows<T>(in, rows, 0, elements, chunk);
}

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
#if TIFFGATE_VECTOR_BYTES == 32
        if (rows >= 32)
          return wide::columns_to_bit_blocks<32, decltype(width)::value>(in, rows, fullBytes, chunk, rowBytes);
#endif
        narrow_bit_blocks<decltype(width)::value>(in, rows, fullBytes, chunk, rowBytes);
      }))
    done = fullBytes;
  scalar_columns_to_bits(in, rows, done, ceil_div(bits, 8), bits, chunk, rowBytes);
}

}  // namespace

namespace TIFFGATE_WIDTH_NS {

// One element kernel serves every sample count: it reads the count from the
// chunk.
extern const PackTable pack_table = {
    {nullptr, pack_elements<std::uint8_t>, pack_elements<std::uint16_t>, nullptr, pack_elements<std::uint32_t>,
     nullptr, nullptr, nullptr, pack_elements<std::uint64_t>},
    pack_bits_with};

}  // namespace TIFFGATE_WIDTH_NS
}  // namespace tiffgate::detail
