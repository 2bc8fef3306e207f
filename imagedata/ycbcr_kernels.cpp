// The YCbCr kernels of both directions. Their loops move one sample at a
// time, so they are built once, for the baseline processor.
#include "imagedata/pack_kernels.h"
#include "imagedata/unpack_kernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>  // std::integral_constant

namespace tiffgate {
namespace detail {
namespace {

/// One element of the chunk; memcpy because the buffer holds bytes.
template <class T>
T load(const unsigned char* p) {
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

/// Zeroes rows [from, rows) of every column of a column-major array,
/// columns `column` elements apart.
template <class T>
void zero_rows(T* out, std::size_t rows, std::size_t columns, std::size_t from, std::size_t column) {
  if (from >= rows) return;
  for (std::size_t c = 0; c < columns; ++c) std::fill(out + c * column + from, out + c * column + rows, T{});
}

/// The build that make(H, V) gives for f's factors, H and V as integral
/// constants: one for each of 1, 2 and 4 in either direction, so that a
/// unit's loops have constant trip counts, and (0, 0), loops bounded at run
/// time, for any other.
template <class Make>
auto build_for(Subsampling f, Make make) {
  using Zero = std::integral_constant<std::size_t, 0>;
  const auto with_vertical = [&](auto h) {
    switch (f.vertical) {
      case 1: return make(h, std::integral_constant<std::size_t, 1>());
      case 2: return make(h, std::integral_constant<std::size_t, 2>());
      case 4: return make(h, std::integral_constant<std::size_t, 4>());
      default: return make(Zero(), Zero());
    }
  };
  switch (f.horizontal) {
    case 1: return with_vertical(std::integral_constant<std::size_t, 1>());
    case 2: return with_vertical(std::integral_constant<std::size_t, 2>());
    case 4: return with_vertical(std::integral_constant<std::size_t, 4>());
    default: return make(Zero(), Zero());
  }
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

template <class T>
void unpack_ycbcr(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, Subsampling f,
                  void* yPlane, void* cbPlane, void* crPlane) {
  const auto run = build_for(f, [](auto h, auto v) { return &unpack_ycbcr_with<T, h, v>; });
  run(chunk, bytes, shape, f, yPlane, cbPlane, crPlane);
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

template <std::size_t Bytes>
void pack_ycbcr(const HostView& y, const HostView& cb, const HostView& cr, std::size_t rows, std::size_t columns,
                Subsampling subsampling, const ChunkView& chunk) {
  const auto run = build_for(subsampling, [](auto h, auto v) { return &pack_ycbcr_with<Bytes, h, v>; });
  run(y, cb, cr, rows, columns, subsampling, chunk);
}

}  // namespace

YCbCrPacker ycbcr_packer(std::size_t elementBytes) {
  switch (elementBytes) {
    case 1: return &pack_ycbcr<1>;
    case 2: return &pack_ycbcr<2>;
    case 4: return &pack_ycbcr<4>;
    case 8: return &pack_ycbcr<8>;
    default: return nullptr;
  }
}

}  // namespace detail

YCbCrUnpacker ycbcr_unpacker(std::size_t elementSize) {
  switch (elementSize) {
    case 1: return &detail::unpack_ycbcr<std::uint8_t>;
    case 2: return &detail::unpack_ycbcr<std::uint16_t>;
    case 4: return &detail::unpack_ycbcr<std::uint32_t>;
    case 8: return &detail::unpack_ycbcr<std::uint64_t>;
    default: return nullptr;
  }
}

}  // namespace tiffgate
