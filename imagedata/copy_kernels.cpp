// The copy kernels that use vectors, both directions. Compiled once per
// vector width (TIFFGATE_VECTOR_BYTES, 16 or 32; see CMakeLists.txt), into
// namespace TIFFGATE_WIDTH_NS; everything else here has internal linkage,
// so that no function compiled for AVX2 can stand in for a baseline one at
// link time.
#include "imagedata/kernel_tables.h"

#include "imagedata/block_columns.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>
#if defined(__x86_64__)
#include <immintrin.h>  // non-temporal stores
#endif

namespace tiffgate::detail {
namespace {

/// The output planes: element (r, c, k) at data + r * element size + c *
/// column + k * plane (strides in bytes; compact when column is rows
/// elements and plane is columns of them).
struct PlaneView {
  unsigned char* data;
  std::size_t rows;
  std::size_t columns;
  std::size_t samples;
  std::size_t column;
  std::size_t plane;
  /// Whether a single row's elements follow each other, plane after plane.
  bool compact_row(std::size_t size) const { return column == size && plane == columns * size; }
};

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
// 32-byte vectors too: short blocks still go 16 bytes at a time.
namespace narrow {
constexpr std::size_t kVectorBytes = 16;
#include "imagedata/vector_ops.inc"
#include "imagedata/unpack_body.inc"
#include "imagedata/pack_body.inc"
}  // namespace narrow
#if TIFFGATE_VECTOR_BYTES == 32
namespace wide {
constexpr std::size_t kVectorBytes = 32;
#include "imagedata/vector_ops.inc"
#include "imagedata/unpack_body.inc"
#include "imagedata/pack_body.inc"
}  // namespace wide
namespace widest = wide;
#else
namespace widest = narrow;
#endif

/// Pixels one step of the row riffles takes: two vectors of elements.
template <class T>
constexpr std::size_t kRowStep = 2 * TIFFGATE_VECTOR_BYTES / sizeof(T);

// === chunk to host ===========================================================


/// Zeroes rows [from, rows) of every element column of a plane view.
template <class T>
void zero_view_rows(const PlaneView& out, std::size_t from) {
  if (from >= out.rows) return;
  detail::ColumnWalk walk(out.column, out.plane, out.samples, out.samples, 0);
  for (std::size_t j = 0; j < out.columns * out.samples; ++j) {
    T* first = reinterpret_cast<T*>(out.data + walk.next());
    std::fill(first + from, first + out.rows, T{});
  }
}

// --- what the vector code does not cover -----------------------------------

/// Rows [0, kept) of element columns [first, last), column by column.
template <class T>
void scalar_rows_to_columns(const unsigned char* chunk, std::size_t stride, std::size_t kept, std::size_t first,
                            std::size_t last, const PlaneView& out) {
  detail::ColumnWalk walk(out.column, out.plane, out.samples, out.samples, first);
  for (std::size_t j = first; j < last; ++j) {
    unsigned char* dst = out.data + walk.next();
    const unsigned char* src = chunk + j * sizeof(T);
    for (std::size_t r = 0; r < kept; ++r, src += stride, dst += sizeof(T)) std::memcpy(dst, src, sizeof(T));
  }
}

/// The same for 1-bit samples: bit j of each row, most significant first.
void scalar_bits_to_columns(const unsigned char* chunk, std::size_t stride, std::size_t kept, std::size_t first,
                            std::size_t last, const PlaneView& out) {
  detail::ColumnWalk walk(out.column, out.plane, out.samples, out.samples, first);
  for (std::size_t j = first; j < last; ++j) {
    unsigned char* dst = out.data + walk.next();
    const unsigned char* src = chunk + (j >> 3);
    const unsigned shift = 7 - static_cast<unsigned>(j & 7);
    for (std::size_t r = 0; r < kept; ++r, src += stride) dst[r] = (*src >> shift) & 1;
  }
}

// --- choosing the kernel for a chunk -----------------------------------------

/// 16-byte blocks of the tallest height H (a power of two, at most the
/// elements in a lane) that `kept` rows fill.
template <class T, std::size_t Width, std::size_t H = 16 / sizeof(T)>
void narrow_blocks(const unsigned char* chunk, std::size_t stride, std::size_t kept, const PlaneView& out) {
  if constexpr (H > 2) {
    if (kept < H) return narrow_blocks<T, Width, H / 2>(chunk, stride, kept, out);
  }
  narrow::blocks_to_columns<T, H, Width>(chunk, stride, kept, out);
}

template <std::size_t Width, std::size_t H = 16>
void narrow_bit_blocks(const unsigned char* chunk, std::size_t stride, std::size_t kept, std::size_t fullBytes,
                    const PlaneView& out) {
  if constexpr (H > 2) {
    if (kept < H) return narrow_bit_blocks<Width, H / 2>(chunk, stride, kept, fullBytes, out);
  }
  narrow::bit_blocks_to_columns<H, Width>(chunk, stride, kept, fullBytes, out);
}

/// A single row into planes of one row: a copy for one sample, the riffle
/// sort for 2 to 4. False when neither applies, or the view's elements do
/// not follow each other.
template <class T>
bool deinterleave(const unsigned char* row, const PlaneView& out) {
  const std::size_t n = out.columns;
  if (!out.compact_row(sizeof(T))) return false;
  if (out.samples == 1) {
    std::memcpy(out.data, row, n * sizeof(T));
    return true;
  }
  using Row = void (*)(const unsigned char*, std::size_t, unsigned char*);
  static constexpr Row kSort[] = {widest::deinterleave_row<T, 2>, widest::deinterleave_row<T, 3>,
                                  widest::deinterleave_row<T, 4>};
  if (out.samples > 4 || n < kRowStep<T>) return false;
  kSort[out.samples - 2](row, n, out.data);
  return true;
}

template <class T>
void rows_to_columns(const unsigned char* chunk, std::size_t stride, std::size_t kept, const PlaneView& out);

/// A column segment of a few dozen bytes: inline 16-byte pieces, the last
/// one overlapping, rather than a library call for each.
inline void copy_segment(unsigned char* to, const unsigned char* from, std::size_t bytes) {
  if (bytes < 16) return static_cast<void>(std::memcpy(to, from, bytes));
  std::size_t i = 0;
  for (; i + 16 <= bytes; i += 16) std::memcpy(to + i, from + i, 16);
  if (i < bytes) std::memcpy(to + bytes - 16, from + bytes - 16, 16);
}

/// Rows [0, kept) into a view whose columns share cache sets (an image's
/// columns a multiple of 4096 bytes apart): the block kernels, storing a
/// block's columns together and each column in pieces, would have them
/// evict each other between pieces. Groups of pixels go compact into a
/// buffer that stays in the nearest cache, then each column segment is
/// copied out whole. False where the view is not such.
template <class T>
bool staged_rows_to_columns(const unsigned char* chunk, std::size_t stride, std::size_t kept,
                            const PlaneView& out) {
  constexpr std::size_t kStage = 16384;
  const std::size_t segment = kept * sizeof(T);
  const std::size_t group = kStage / (segment * out.samples);
  if (group < 16 || out.column == segment || !detail::crowded(out.column, 16, 4)) return false;
  alignas(64) unsigned char stage[kStage];
  for (std::size_t c0 = 0; c0 < out.columns; c0 += group) {
    const std::size_t n = std::min(group, out.columns - c0);
    const PlaneView part{stage, kept, n, out.samples, segment, segment * n};
    rows_to_columns<T>(chunk + c0 * out.samples * sizeof(T), stride, kept, part);
    for (std::size_t k = 0; k < out.samples; ++k)
      for (std::size_t c = 0; c < n; ++c)
        copy_segment(out.data + (c0 + c) * out.column + k * out.plane, stage + c * segment + k * part.plane, segment);
  }
  return true;
}

/// Rows [0, kept) of the chunk into the planes.
template <class T>
void rows_to_columns(const unsigned char* chunk, std::size_t stride, std::size_t kept, const PlaneView& out) {
  const std::size_t elements = out.columns * out.samples;
  if (kept == 0 || elements == 0) return;
  // Whole lines: every column segment of a band of rows starts a cache line.
  const bool lines = kept % (64 / sizeof(T)) == 0 && out.column % 64 == 0 && out.plane % 64 == 0 &&
                     reinterpret_cast<std::uintptr_t>(out.data) % 64 == 0;
  if (!lines && staged_rows_to_columns<T>(chunk, stride, kept, out)) return;
  if (kept >= 2 && detail::with_block_width(elements * sizeof(T), [&](auto width) {
        constexpr std::size_t W = decltype(width)::value;
#if TIFFGATE_VECTOR_BYTES == 32
        constexpr std::size_t tall = 32 / sizeof(T);  // rows of a 32-byte block
        if (lines) {
          if (sizeof(T) >= 4 && elements * sizeof(T) >= 256)
            return wide::blocks_to_lines<T, tall, 256>(chunk, stride, kept, out);
          return wide::blocks_to_lines<T, tall, W>(chunk, stride, kept, out);
        }
        if (kept >= tall) return wide::blocks_to_columns<T, tall, W>(chunk, stride, kept, out);
#endif
        if (lines) return narrow::blocks_to_lines<T, 16 / sizeof(T), W>(chunk, stride, kept, out);
        narrow_blocks<T, W>(chunk, stride, kept, out);
      }))
    return;
  if (out.rows == 1 && deinterleave<T>(chunk, out)) return;
  scalar_rows_to_columns<T>(chunk, stride, kept, 0, elements, out);
}

void bits_to_columns(const unsigned char* chunk, std::size_t stride, std::size_t kept, const PlaneView& out) {
  const std::size_t bits = out.columns * out.samples;
  const std::size_t fullBytes = bits / 8;  // bytes whose 8 bits are all samples
  if (kept == 0 || bits == 0) return;
  std::size_t done = 0;  // bits handled by vector code
  if (kept >= 2 && detail::with_block_width(fullBytes, [&](auto width) {
#if TIFFGATE_VECTOR_BYTES == 32
        if (kept >= 32)
          return wide::bit_blocks_to_columns<32, decltype(width)::value>(chunk, stride, kept, fullBytes, out);
#endif
        narrow_bit_blocks<decltype(width)::value>(chunk, stride, kept, fullBytes, out);
      })) {
    done = 8 * fullBytes;
  } else if (out.rows == 1 && out.samples == 1 && out.compact_row(1) && fullBytes >= 32) {
    widest::expand_bit_row(chunk, fullBytes, out.data);
    done = 8 * fullBytes;
  }
  scalar_bits_to_columns(chunk, stride, kept, done, bits, out);
}

// --- the kernels -------------------------------------------------------------

template <class T>
void unpack_elements_strided(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, void* output,
                             OutputStrides strides) {
  const std::size_t m = shape.rows, n = shape.columns, spc = shape.samples;
  const std::size_t stride = shape.width * spc * sizeof(T);
  const std::size_t kept = readable_rows(bytes, stride, n * spc * sizeof(T), m);
  const PlaneView out{static_cast<unsigned char*>(output), m, n, spc, strides.column * sizeof(T),
                      strides.plane * sizeof(T)};
  rows_to_columns<T>(chunk, stride, kept, out);
  zero_view_rows<T>(out, kept);
}

template <class T>
void unpack_elements(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, void* output) {
  unpack_elements_strided<T>(chunk, bytes, shape, output, compact_strides(shape));
}

void unpack_bits_strided(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, bool* output,
                         OutputStrides strides) {
  const std::size_t m = shape.rows, n = shape.columns, spc = shape.samples;
  const std::size_t stride = (shape.width * spc + 7) / 8;
  const std::size_t kept = readable_rows(bytes, stride, (n * spc + 7) / 8, m);
  // A bool is one byte holding 0 or 1 here, which is what the vector code stores.
  static_assert(sizeof(bool) == 1);
  const PlaneView out{reinterpret_cast<unsigned char*>(output), m, n, spc, strides.column, strides.plane};
  bits_to_columns(chunk, stride, kept, out);
  zero_view_rows<unsigned char>(out, kept);
}

void unpack_bits_with(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, bool* out) {
  unpack_bits_strided(chunk, bytes, shape, out, compact_strides(shape));
}

// === host to chunk ===========================================================

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
  static constexpr Row kMerge[] = {widest::interleave_row<T, 2>, widest::interleave_row<T, 3>,
                                   widest::interleave_row<T, 4>};
  if (chunk.samples > 4 || n < kRowStep<T>) return false;
  kMerge[chunk.samples - 2](in, n, chunk.data);
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

// Indexed by element size; sizes 0, 3, 5, 6 and 7 have no kernel.
extern const UnpackTable unpack_table = {
    {nullptr, unpack_elements<std::uint8_t>, unpack_elements<std::uint16_t>, nullptr, unpack_elements<std::uint32_t>,
     nullptr, nullptr, nullptr, unpack_elements<std::uint64_t>},
    {nullptr, unpack_elements_strided<std::uint8_t>, unpack_elements_strided<std::uint16_t>, nullptr,
     unpack_elements_strided<std::uint32_t>, nullptr, nullptr, nullptr, unpack_elements_strided<std::uint64_t>},
    unpack_bits_with,
    unpack_bits_strided};

// One element kernel serves every sample count: it reads the count from the
// chunk.
extern const PackTable pack_table = {
    {nullptr, pack_elements<std::uint8_t>, pack_elements<std::uint16_t>, nullptr, pack_elements<std::uint32_t>,
     nullptr, nullptr, nullptr, pack_elements<std::uint64_t>},
    pack_bits_with};

}  // namespace TIFFGATE_WIDTH_NS
}  // namespace tiffgate::detail
