#include "imagedata/unpack_kernels.h"

#include "imagedata/block_columns.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>  // std::size
#include <utility>
#if defined(__x86_64__)
#include <immintrin.h>  // non-temporal stores
#endif

namespace tiffgate {
namespace {

using detail::Isa;

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

}  // namespace

// The vector work, once with 16-byte vectors and, on x86-64, once more with
// 32-byte vectors compiled for AVX2. Internal linkage throughout, so neither
// build's code can stand in for the other's at link time.
namespace {
namespace v16 {
constexpr std::size_t kVectorBytes = 16;
#include "imagedata/vector_ops.inc"
#include "imagedata/unpack_body.inc"
}  // namespace v16
}  // namespace

#if TIFFGATE_HAVE_VECTOR32
TIFFGATE_BEGIN_AVX2
namespace {
namespace v32 {
constexpr std::size_t kVectorBytes = 32;
#include "imagedata/vector_ops.inc"
#include "imagedata/unpack_body.inc"
}  // namespace v32
}  // namespace
TIFFGATE_END_AVX2
#endif

namespace {

/// One element of the chunk; memcpy because the buffer holds bytes.
template <class T>
T load(const unsigned char* p) {
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

/// How many of the first `rows` rows, `stride` bytes apart, have their first
/// `used` bytes inside a buffer of `bytes`: a chunk can be shorter than its
/// geometry says when the file is inconsistent.
std::size_t readable_rows(std::size_t bytes, std::size_t stride, std::size_t used, std::size_t rows) {
  if (bytes < used) return 0;
  if (stride == 0) return rows;
  return std::min(rows, (bytes - used) / stride + 1);
}

/// Zeroes rows [from, rows) of every column of a column-major array,
/// columns `column` elements apart.
template <class T>
void zero_rows(T* out, std::size_t rows, std::size_t columns, std::size_t from, std::size_t column) {
  if (from >= rows) return;
  for (std::size_t c = 0; c < columns; ++c) std::fill(out + c * column + from, out + c * column + rows, T{});
}

/// The same for the element columns of a plane view: rows [from, rows).
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
void v16_blocks(const unsigned char* chunk, std::size_t stride, std::size_t kept, const PlaneView& out) {
  if constexpr (H > 2) {
    if (kept < H) return v16_blocks<T, Width, H / 2>(chunk, stride, kept, out);
  }
  v16::blocks_to_columns<T, H, Width>(chunk, stride, kept, out);
}

template <std::size_t Width, std::size_t H = 16>
void v16_bit_blocks(const unsigned char* chunk, std::size_t stride, std::size_t kept, std::size_t fullBytes,
                    const PlaneView& out) {
  if constexpr (H > 2) {
    if (kept < H) return v16_bit_blocks<Width, H / 2>(chunk, stride, kept, fullBytes, out);
  }
  v16::bit_blocks_to_columns<H, Width>(chunk, stride, kept, fullBytes, out);
}

/// A single row into planes of one row: a copy for one sample, the riffle
/// sort for 2 to 4. False when neither applies, or the view's elements do
/// not follow each other.
template <class T, Isa I>
bool deinterleave(const unsigned char* row, const PlaneView& out) {
  const std::size_t n = out.columns;
  if (!out.compact_row(sizeof(T))) return false;
  if (out.samples == 1) {
    std::memcpy(out.data, row, n * sizeof(T));
    return true;
  }
  using Row = void (*)(const unsigned char*, std::size_t, unsigned char*);
  constexpr std::size_t lane = 16 / sizeof(T);
  std::size_t pixels = 2 * lane;  // pixels one step takes
  Row sort[] = {v16::deinterleave_row<T, 2>, v16::deinterleave_row<T, 3>, v16::deinterleave_row<T, 4>};
#if TIFFGATE_HAVE_VECTOR32
  if (I == Isa::vector32) {
    pixels = 4 * lane;
    sort[0] = v32::deinterleave_row<T, 2>;
    sort[1] = v32::deinterleave_row<T, 3>;
    sort[2] = v32::deinterleave_row<T, 4>;
  }
#endif
  if (out.samples > 4 || n < pixels) return false;
  sort[out.samples - 2](row, n, out.data);
  return true;
}

template <class T, Isa I>
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
template <class T, Isa I>
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
    rows_to_columns<T, I>(chunk + c0 * out.samples * sizeof(T), stride, kept, part);
    for (std::size_t k = 0; k < out.samples; ++k)
      for (std::size_t c = 0; c < n; ++c)
        copy_segment(out.data + (c0 + c) * out.column + k * out.plane, stage + c * segment + k * part.plane, segment);
  }
  return true;
}

/// Rows [0, kept) of the chunk into the planes.
template <class T, Isa I>
void rows_to_columns(const unsigned char* chunk, std::size_t stride, std::size_t kept, const PlaneView& out) {
  const std::size_t elements = out.columns * out.samples;
  if (kept == 0 || elements == 0) return;
  constexpr std::size_t tall = 32 / sizeof(T);  // rows of a 32-byte block
  // Whole lines: every column segment of a band of rows starts a cache line.
  const bool lines = kept % (64 / sizeof(T)) == 0 && out.column % 64 == 0 && out.plane % 64 == 0 &&
                     reinterpret_cast<std::uintptr_t>(out.data) % 64 == 0;
  if (!lines && staged_rows_to_columns<T, I>(chunk, stride, kept, out)) return;
  if (kept >= 2 && detail::with_block_width(elements * sizeof(T), [&](auto width) {
        constexpr std::size_t W = decltype(width)::value;
#if TIFFGATE_HAVE_VECTOR32
        if (I == Isa::vector32 && lines) {
          if (sizeof(T) >= 4 && elements * sizeof(T) >= 256)
            return v32::blocks_to_lines<T, tall, 256>(chunk, stride, kept, out);
          return v32::blocks_to_lines<T, tall, W>(chunk, stride, kept, out);
        }
        if (I == Isa::vector32 && kept >= tall) return v32::blocks_to_columns<T, tall, W>(chunk, stride, kept, out);
#endif
        if (lines) return v16::blocks_to_lines<T, 16 / sizeof(T), W>(chunk, stride, kept, out);
        v16_blocks<T, W>(chunk, stride, kept, out);
      }))
    return;
  if (out.rows == 1 && deinterleave<T, I>(chunk, out)) return;
  scalar_rows_to_columns<T>(chunk, stride, kept, 0, elements, out);
}

template <Isa I>
void bits_to_columns(const unsigned char* chunk, std::size_t stride, std::size_t kept, const PlaneView& out) {
  const std::size_t bits = out.columns * out.samples;
  const std::size_t fullBytes = bits / 8;  // bytes whose 8 bits are all samples
  if (kept == 0 || bits == 0) return;
  std::size_t done = 0;  // bits handled by vector code
  if (kept >= 2 && detail::with_block_width(fullBytes, [&](auto width) {
#if TIFFGATE_HAVE_VECTOR32
        if (I == Isa::vector32 && kept >= 32)
          return v32::bit_blocks_to_columns<32, decltype(width)::value>(chunk, stride, kept, fullBytes, out);
#endif
        v16_bit_blocks<decltype(width)::value>(chunk, stride, kept, fullBytes, out);
      })) {
    done = 8 * fullBytes;
  } else if (out.rows == 1 && out.samples == 1 && out.compact_row(1) && fullBytes >= 32) {
#if TIFFGATE_HAVE_VECTOR32
    if (I == Isa::vector32)
      v32::expand_bit_row(chunk, fullBytes, out.data);
    else
#endif
      v16::expand_bit_row(chunk, fullBytes, out.data);
    done = 8 * fullBytes;
  }
  scalar_bits_to_columns(chunk, stride, kept, done, bits, out);
}

// --- the kernels -------------------------------------------------------------

template <class T, Isa I>
void unpack_elements_strided(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, void* output,
                             OutputStrides strides) {
  const std::size_t m = shape.rows, n = shape.columns, spc = shape.samples;
  const std::size_t stride = shape.width * spc * sizeof(T);
  const std::size_t kept = readable_rows(bytes, stride, n * spc * sizeof(T), m);
  const PlaneView out{static_cast<unsigned char*>(output), m, n, spc, strides.column * sizeof(T),
                      strides.plane * sizeof(T)};
  rows_to_columns<T, I>(chunk, stride, kept, out);
  zero_view_rows<T>(out, kept);
}

template <class T, Isa I>
void unpack_elements(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, void* output) {
  unpack_elements_strided<T, I>(chunk, bytes, shape, output, compact_strides(shape));
}

template <Isa I>
void unpack_bits_strided(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, bool* output,
                         OutputStrides strides) {
  const std::size_t m = shape.rows, n = shape.columns, spc = shape.samples;
  const std::size_t stride = (shape.width * spc + 7) / 8;
  const std::size_t kept = readable_rows(bytes, stride, (n * spc + 7) / 8, m);
  // A bool is one byte holding 0 or 1 here, which is what the vector code stores.
  static_assert(sizeof(bool) == 1);
  const PlaneView out{reinterpret_cast<unsigned char*>(output), m, n, spc, strides.column, strides.plane};
  bits_to_columns<I>(chunk, stride, kept, out);
  zero_view_rows<unsigned char>(out, kept);
}

template <Isa I>
void unpack_bits_with(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, bool* out) {
  unpack_bits_strided<I>(chunk, bytes, shape, out, compact_strides(shape));
}

/// Y, Cb and Cr of unit rows [0, kept). Bands of unit rows, and within a
/// band unit column by unit column, so each Y column is written in order;
/// the units at the right and bottom edges keep only what lies inside.
/// Hc and Vc are the subsampling when known at compile time (0: read from
/// f), so that a whole unit's loops have constant trip counts.
template <class T, std::size_t Hc, std::size_t Vc>
void unpack_ycbcr_with(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, Subsampling f,
                       void* yPlane, void* cbPlane, void* crPlane) {
  T* y = static_cast<T*>(yPlane);
  T* cb = static_cast<T*>(cbPlane);
  T* cr = static_cast<T*>(crPlane);
  const std::size_t h = Hc ? Hc : f.horizontal, v = Vc ? Vc : f.vertical, m = shape.rows, n = shape.columns;
  const std::size_t cm = chroma_extent(m, v), cn = chroma_extent(n, h);
  const std::size_t lumaPerUnit = h * v, unit = (lumaPerUnit + 2) * sizeof(T);
  const std::size_t stride = chroma_extent(shape.width, h) * unit;  // units per chunk row, rounded up
  const std::size_t kept = readable_rows(bytes, stride, cn * unit, cm);
  // Units wholly inside the kept rows and columns; the others are cut.
  const std::size_t wholeRows = m / v, wholeColumns = n / h;
  constexpr std::size_t kBandUnits = 8;
  for (std::size_t top = 0; top < kept; top += kBandUnits) {
    const std::size_t bottom = std::min(top + kBandUnits, kept);
    const std::size_t wholeBottom = std::min(bottom, std::max(top, wholeRows));
    for (std::size_t uc = 0; uc < cn; ++uc) {
      const std::size_t col0 = uc * h;
      std::size_t ur = top;
      if (uc < wholeColumns) {
        for (; ur < wholeBottom; ++ur) {
          const unsigned char* src = chunk + ur * stride + uc * unit;
          T* luma = y + ur * v + col0 * m;
          for (std::size_t kv = 0; kv < v; ++kv)
            for (std::size_t kh = 0; kh < h; ++kh) luma[kv + kh * m] = load<T>(src + (kv * h + kh) * sizeof(T));
        }
      }
      const std::size_t cols = std::min(h, n - col0);
      for (; ur < bottom; ++ur) {
        const unsigned char* src = chunk + ur * stride + uc * unit;
        T* luma = y + ur * v + col0 * m;
        const std::size_t rows = std::min(v, m - ur * v);
        for (std::size_t kv = 0; kv < rows; ++kv)
          for (std::size_t kh = 0; kh < cols; ++kh) luma[kv + kh * m] = load<T>(src + (kv * h + kh) * sizeof(T));
      }
      for (ur = top; ur < bottom; ++ur) {
        const unsigned char* src = chunk + ur * stride + uc * unit + lumaPerUnit * sizeof(T);
        cb[ur + uc * cm] = load<T>(src);
        cr[ur + uc * cm] = load<T>(src + sizeof(T));
      }
    }
  }
  zero_rows(y, m, n, std::min(m, kept * v), m);
  zero_rows(cb, cm, cn, kept, cm);
  zero_rows(cr, cm, cn, kept, cm);
}

/// The unpacker for f's factors: a build for each of 1, 2 and 4 in either
/// direction, the loops over a unit unrolled; any other with run-time loops.
template <class T>
void unpack_ycbcr(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, Subsampling f,
                  void* yPlane, void* cbPlane, void* crPlane) {
  using Unpacker = void (*)(const unsigned char*, std::size_t, const ChunkShape&, Subsampling, void*, void*, void*);
  static constexpr Unpacker kBuilds[3][3] = {
      {unpack_ycbcr_with<T, 1, 1>, unpack_ycbcr_with<T, 1, 2>, unpack_ycbcr_with<T, 1, 4>},
      {unpack_ycbcr_with<T, 2, 1>, unpack_ycbcr_with<T, 2, 2>, unpack_ycbcr_with<T, 2, 4>},
      {unpack_ycbcr_with<T, 4, 1>, unpack_ycbcr_with<T, 4, 2>, unpack_ycbcr_with<T, 4, 4>}};
  const auto index = [](std::size_t factor) { return factor == 1 ? 0 : factor == 2 ? 1 : factor == 4 ? 2 : 3; };
  const std::size_t i = index(f.horizontal), j = index(f.vertical);
  const Unpacker run = i < 3 && j < 3 ? kBuilds[i][j] : unpack_ycbcr_with<T, 0, 0>;
  run(chunk, bytes, shape, f, yPlane, cbPlane, crPlane);
}

// Indexed by element size; sizes 0, 3, 5, 6 and 7 have no kernel.
template <Isa I>
constexpr ElementUnpacker kElementUnpackers[] = {
    nullptr, unpack_elements<std::uint8_t, I>, unpack_elements<std::uint16_t, I>, nullptr,
    unpack_elements<std::uint32_t, I>, nullptr, nullptr, nullptr, unpack_elements<std::uint64_t, I>};
template <Isa I>
constexpr StridedElementUnpacker kStridedUnpackers[] = {
    nullptr, unpack_elements_strided<std::uint8_t, I>, unpack_elements_strided<std::uint16_t, I>, nullptr,
    unpack_elements_strided<std::uint32_t, I>, nullptr, nullptr, nullptr, unpack_elements_strided<std::uint64_t, I>};
constexpr YCbCrUnpacker kYCbCrUnpackers[] = {
    nullptr, unpack_ycbcr<std::uint8_t>, unpack_ycbcr<std::uint16_t>, nullptr,
    unpack_ycbcr<std::uint32_t>, nullptr, nullptr, nullptr, unpack_ycbcr<std::uint64_t>};
constexpr std::size_t kKernelSizes = std::size(kYCbCrUnpackers);

}  // namespace

ElementUnpacker element_unpacker(std::size_t elementSize, Isa isa) {
  if (elementSize >= kKernelSizes) return nullptr;
  return isa == Isa::vector32 && detail::isa_supported(isa) ? kElementUnpackers<Isa::vector32>[elementSize]
                              : kElementUnpackers<Isa::vector16>[elementSize];
}

ElementUnpacker element_unpacker(std::size_t elementSize) { return element_unpacker(elementSize, detail::best_isa()); }

StridedElementUnpacker strided_element_unpacker(std::size_t elementSize, Isa isa) {
  if (elementSize >= kKernelSizes) return nullptr;
  return isa == Isa::vector32 && detail::isa_supported(isa) ? kStridedUnpackers<Isa::vector32>[elementSize]
                                                             : kStridedUnpackers<Isa::vector16>[elementSize];
}

StridedElementUnpacker strided_element_unpacker(std::size_t elementSize) {
  return strided_element_unpacker(elementSize, detail::best_isa());
}

StridedBitUnpacker strided_bit_unpacker(Isa isa) {
  return isa == Isa::vector32 && detail::isa_supported(isa) ? unpack_bits_strided<Isa::vector32>
                                                             : unpack_bits_strided<Isa::vector16>;
}

BitUnpacker bit_unpacker(Isa isa) {
  return isa == Isa::vector32 && detail::isa_supported(isa) ? unpack_bits_with<Isa::vector32>
                                                             : unpack_bits_with<Isa::vector16>;
}

void unpack_bits(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, bool* out) {
  bit_unpacker(detail::best_isa())(chunk, bytes, shape, out);
}

YCbCrUnpacker ycbcr_unpacker(std::size_t elementSize) {
  return elementSize < kKernelSizes ? kYCbCrUnpackers[elementSize] : nullptr;
}

}  // namespace tiffgate
