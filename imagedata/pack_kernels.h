#pragma once
/// Copy kernels from the host's column-major arrays into libtiff's
/// row-major, pixel-interleaved chunk buffers. Pure functions: no host and
/// no libtiff, so their insides can be tuned without touching the commands.
///
/// Every kernel fills a region of `rows` x `columns` pixels (the data cut
/// to the chunk), every sample of it, and leaves the rest of the chunk as it
/// was: a caller whose data does not cover the chunk hands in a zero-filled
/// one, so that edges and undersized data stay zero. The caller guarantees
/// that the chunk holds the bytes that the matching *_chunk_bytes function
/// names, and that rows and columns do not exceed the source array or the
/// chunk.

#include "imagedata/isa.h"

#include "imagedata/kernel_shapes.h"

#include <cstddef>

namespace tiffgate::detail {

/// A host array as bytes: element (r, c, k) of `rows` x `columns` x
/// `planes` lies at element index r + c * rows + k * rows * columns.
struct HostView {
  const unsigned char* data = nullptr;
  std::size_t rows = 0;
  std::size_t columns = 0;
  std::size_t planes = 1;  ///< samples present: the third dimension, 1 for a matrix
};

/// A chunk buffer: `width` pixels per row, `samples` interleaved per pixel.
struct ChunkView {
  unsigned char* data = nullptr;
  std::size_t width = 0;
  std::size_t samples = 1;
};

// --- whole samples of 1, 2, 4 or 8 bytes, copied as their bits ---

/// Sample k of pixel (r, c) goes to chunk element (r * width + c) * samples
/// + k. Samples the source lacks (planes < samples) are written as zero;
/// planes beyond the chunk's samples are not read.
using ElementPacker = void (*)(const HostView& source, std::size_t rows, std::size_t columns,
                               const ChunkView& chunk);

/// The packer for one element width and sample count; null for a width
/// other than 1, 2, 4 or 8. Built for the processor's best vector width, or
/// for `isa` (an isa the processor lacks gives the 16-byte build).
ElementPacker element_packer(std::size_t elementBytes, std::size_t samples);
ElementPacker element_packer(std::size_t elementBytes, std::size_t samples, Isa isa);
std::size_t element_chunk_bytes(std::size_t width, std::size_t length, std::size_t samples,
                                 std::size_t elementBytes);

// --- 1-bit samples from a logical array ---

/// Rows start at multiples of bit_row_bytes; sample k of column c is bit
/// c * samples + k of its row, most significant bit first, set for a
/// nonzero source byte. Each row's region is written in whole bytes: the
/// bits of its last byte past the region come out zero. The source is read
/// with a column stride of `rows` (the rows written), not source.rows: with
/// more source rows than the chunk takes, values come from shifted
/// positions. That is the established behaviour of this command and is kept.
void pack_bits(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk);
using BitPacker = void (*)(const HostView& source, std::size_t rows, std::size_t columns, const ChunkView& chunk);
BitPacker bit_packer(Isa isa);
std::size_t bit_row_bytes(std::size_t width, std::size_t samples);
std::size_t bit_chunk_bytes(std::size_t width, std::size_t length, std::size_t samples);

// --- raw subsampled YCbCr: units of h x v luma samples, then Cb and Cr ---

/// Unit (ur, uc) holds Y rows ur * v .. ur * v + v - 1 and columns uc * h ..
/// uc * h + h - 1 in row order, then Cb(ur, uc) and Cr(ur, uc). A unit
/// reaching past Y's last row or column repeats Y's edge sample. cb and cr
/// must have at least ceil(rows / v) rows and ceil(columns / h) columns.
using YCbCrPacker = void (*)(const HostView& y, const HostView& cb, const HostView& cr, std::size_t rows,
                             std::size_t columns, Subsampling subsampling, const ChunkView& chunk);

/// The packer for one element width; null for a width other than 1, 2, 4 or 8.
YCbCrPacker ycbcr_packer(std::size_t elementBytes);
/// Units per chunk row: ceil(width / h), as libtiff lays them out.
std::size_t ycbcr_units_per_row(std::size_t width, Subsampling subsampling);
std::size_t ycbcr_chunk_bytes(std::size_t width, std::size_t length, Subsampling subsampling,
                              std::size_t elementBytes);

}  // namespace tiffgate::detail
