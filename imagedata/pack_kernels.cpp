#include "imagedata/pack_kernels.h"

#include <algorithm>
#include <cstdint>  // SIZE_MAX
#include <cstring>  // std::memcpy
#include <initializer_list>

namespace tiffgate::detail {
namespace {

// Chunk sizes saturate instead of wrapping: a wrapped size could pass for a
// small buffer that the kernel would then overrun.
std::size_t product(std::initializer_list<std::size_t> factors) {
  std::size_t result = 1;
  for (std::size_t f : factors)
    if (__builtin_mul_overflow(result, f, &result)) return SIZE_MAX;
  return result;
}

// Samples are moved with memcpy of a constant width: the compiler turns it
// into one load and store, and floats travel as bits without aliasing.
template <std::size_t Bytes>
void copy_sample(unsigned char* out, const unsigned char* in) {
  std::memcpy(out, in, Bytes);
}

// One sample per pixel. Column by column, so the host array is read in its
// own order; the chunk is written with a stride of one row.
template <std::size_t Bytes>
void pack_planar(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk) {
  const std::size_t rowStep = chunk.width * Bytes;
  for (std::size_t c = 0; c < columns; ++c) {
    const unsigned char* in = source.data + c * source.rows * Bytes;
    unsigned char* out = chunk.data + c * Bytes;
    for (std::size_t r = 0; r < rows; ++r, in += Bytes, out += rowStep) copy_sample<Bytes>(out, in);
  }
}

// Several samples per pixel: each host plane k fills slot k of every pixel.
template <std::size_t Bytes>
void pack_interleaved(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk) {
  const std::size_t planes = std::min(source.planes, chunk.samples);
  const std::size_t planeBytes = source.rows * source.columns * Bytes;
  const std::size_t pixelBytes = chunk.samples * Bytes;
  const std::size_t rowStep = chunk.width * pixelBytes;
  for (std::size_t k = 0; k < planes; ++k) {
    for (std::size_t c = 0; c < columns; ++c) {
      const unsigned char* in = source.data + k * planeBytes + c * source.rows * Bytes;
      unsigned char* out = chunk.data + c * pixelBytes + k * Bytes;
      for (std::size_t r = 0; r < rows; ++r, in += Bytes, out += rowStep) copy_sample<Bytes>(out, in);
    }
  }
}

template <std::size_t Bytes>
void pack_ycbcr(const HostView& y, const HostView& cb, const HostView& cr, std::size_t rows, std::size_t columns,
                Subsampling subsampling, const ChunkView& chunk) {
  const std::size_t h = subsampling.horizontal;
  const std::size_t v = subsampling.vertical;
  const std::size_t unitBytes = (h * v + 2) * Bytes;
  const std::size_t rowBytes = ycbcr_units_per_row(chunk.width, subsampling) * unitBytes;
  const std::size_t unitRows = ceil_div(rows, v);
  const std::size_t unitColumns = ceil_div(columns, h);
  if (unitRows == 0 || unitColumns == 0) return;
  // Clamping to Y's own extent keeps every read inside the array when the
  // data's rows or columns are not multiples of the subsampling.
  const std::size_t lastRow = y.rows - 1;
  const std::size_t lastColumn = y.columns - 1;
  for (std::size_t ur = 0; ur < unitRows; ++ur) {
    unsigned char* out = chunk.data + ur * rowBytes;
    for (std::size_t uc = 0; uc < unitColumns; ++uc) {
      for (std::size_t dy = 0; dy < v; ++dy) {
        const std::size_t row = std::min(ur * v + dy, lastRow);
        for (std::size_t dx = 0; dx < h; ++dx, out += Bytes) {
          const std::size_t column = std::min(uc * h + dx, lastColumn);
          copy_sample<Bytes>(out, y.data + (row + column * y.rows) * Bytes);
        }
      }
      const std::size_t chroma = ur + uc * cb.rows;
      copy_sample<Bytes>(out, cb.data + chroma * Bytes);
      copy_sample<Bytes>(out + Bytes, cr.data + (ur + uc * cr.rows) * Bytes);
      out += 2 * Bytes;
    }
  }
}

template <std::size_t Bytes>
ElementPacker pick_element(std::size_t samples) {
  return samples == 1 ? &pack_planar<Bytes> : &pack_interleaved<Bytes>;
}

}  // namespace

ElementPacker element_packer(std::size_t elementBytes, std::size_t samples) {
  switch (elementBytes) {
    case 1: return pick_element<1>(samples);
    case 2: return pick_element<2>(samples);
    case 4: return pick_element<4>(samples);
    case 8: return pick_element<8>(samples);
    default: return nullptr;
  }
}

std::size_t element_chunk_bytes(std::size_t width, std::size_t length, std::size_t samples,
                                std::size_t elementBytes) {
  return product({width, length, samples, elementBytes});
}

void pack_bits(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk) {
  const std::size_t rowBytes = bit_row_bytes(chunk.width, chunk.samples);
  const std::size_t planes = std::min(source.planes, chunk.samples);
  const std::size_t planeElements = source.rows * source.columns;
  for (std::size_t k = 0; k < planes; ++k) {
    for (std::size_t c = 0; c < columns; ++c) {
      const std::size_t bit = c * chunk.samples + k;
      const auto mask = static_cast<unsigned char>(0x80u >> (bit & 7u));
      const unsigned char* in = source.data + k * planeElements + c * rows;
      unsigned char* out = chunk.data + (bit >> 3);
      for (std::size_t r = 0; r < rows; ++r, out += rowBytes)
        *out = static_cast<unsigned char>(*out | (in[r] != 0 ? mask : 0u));
    }
  }
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
