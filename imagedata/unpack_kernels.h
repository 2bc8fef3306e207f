#pragma once
/// Copy kernels from a decoded chunk (libtiff's row-major buffer, the samples
/// of a pixel interleaved) into the host's column-major arrays. Pure
/// functions: no host, no libtiff. Every kernel reads only within the
/// chunk's `bytes` and writes every element of its outputs; whatever a short
/// buffer does not hold comes out as zero.

#include "imagedata/isa.h"
#include "imagedata/kernel_shapes.h"

#include <cstddef>

namespace tiffgate {

/// One decoded chunk and the part of it that lies inside the image.
struct ChunkShape {
  std::size_t width = 0;    ///< W: pixels per chunk row
  std::size_t length = 0;   ///< H: rows in the chunk
  std::size_t samples = 1;  ///< samples interleaved per pixel
  std::size_t rows = 0;     ///< M <= H: rows kept, from the top
  std::size_t columns = 0;  ///< N <= W: columns kept, from the left
};

/// Copies whole elements: sample k of chunk pixel (r, c) goes to index
/// r + c*M + k*M*N of an M x N (x samples) array. Values keep their bits.
using ElementUnpacker = void (*)(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape,
                                 void* out);
/// The unpacker for elements of 1, 2, 4 or 8 bytes; null for other sizes.
/// Built for the processor's best vector width, or for `isa` (the tests
/// run both); an isa the processor lacks gives the 16-byte build.
ElementUnpacker element_unpacker(std::size_t elementSize);
ElementUnpacker element_unpacker(std::size_t elementSize, detail::Isa isa);

/// 1-bit samples, most significant bit first; each chunk row holds
/// W * samples bits and starts on a byte boundary.
void unpack_bits(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, bool* out);
using BitUnpacker = void (*)(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, bool* out);
BitUnpacker bit_unpacker(detail::Isa isa);

/// YCbCr subsampling factors (each at least 1).
using detail::Subsampling;

/// Rows or columns of a chroma plane for `luma` rows or columns: rounded up.
inline std::size_t chroma_extent(std::size_t luma, std::size_t factor) { return (luma + factor - 1) / factor; }

/// Where a strided unpacker puts sample k of kept pixel (r, c): element r +
/// c * column + k * plane of its output, column >= M. The compact array is
/// column = M, plane = M * N. Elements of the output outside those places
/// (the gaps between column segments) are left alone.
struct OutputStrides {
  std::size_t column = 0;
  std::size_t plane = 0;
};
inline OutputStrides compact_strides(const ChunkShape& shape) {
  return {shape.rows, shape.rows * shape.columns};
}

using StridedElementUnpacker = void (*)(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape,
                                        void* out, OutputStrides strides);
/// As element_unpacker, writing into a part of a larger array.
StridedElementUnpacker strided_element_unpacker(std::size_t elementSize);
StridedElementUnpacker strided_element_unpacker(std::size_t elementSize, detail::Isa isa);
using StridedBitUnpacker = void (*)(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape,
                                    bool* out, OutputStrides strides);
StridedBitUnpacker strided_bit_unpacker(detail::Isa isa);

/// Subsampled YCbCr: the chunk is a row-major grid of data units, ceil(W / h)
/// per row, each h*v luma samples (row by row) then one Cb and one Cr. Fills
/// Y (M x N) and Cb, Cr (chroma_extent(M, v) x chroma_extent(N, h)).
using YCbCrUnpacker = void (*)(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape,
                               Subsampling factors, void* y, void* cb, void* cr);
/// The unpacker for elements of 1, 2, 4 or 8 bytes; null for other sizes.
YCbCrUnpacker ycbcr_unpacker(std::size_t elementSize);

}  // namespace tiffgate
