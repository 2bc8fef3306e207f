// The whole-image entries: every strip or tile of the current directory
// read straight into its place in one image, or written from its place in
// one, each chunk with every check the public read or write command makes.
// They add no check of their own beyond the shape of their operands.

#include "core/convert.h"
#include "core/errors.h"
#include "imagedata/chunks.h"
#include "imagedata/commands.h"
#include "imagedata/write_config.h"
#include "tags/layout.h"

#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace tiffgate {
namespace {

using detail::Int;

/// The band that strips of fewer rows are cut from (see write_image): as
/// many rows as a cache line holds bytes, and no more than fits a cache.
constexpr std::uint64_t kBandRows = 64;
constexpr std::uint64_t kBandBytes = std::uint64_t{2} << 20;

/// The chunk grid of an L x W image with S samples: chunk p * across * down
/// + r * across + c covers rows r * rows.., columns c * columns.. of plane p
/// (all S samples when contiguous).
struct Grid {
  std::uint64_t L, W, S, rows, columns;
  bool separate;
  std::uint64_t across() const { return (W + columns - 1) / columns; }
  std::uint64_t down() const { return (L + rows - 1) / rows; }
  std::uint64_t planes() const { return separate ? S : 1; }
  std::uint64_t samples() const { return separate ? 1 : S; }
  std::uint32_t chunk(std::uint64_t p, std::uint64_t r, std::uint64_t c) const {
    return static_cast<std::uint32_t>((p * down() + r) * across() + c);
  }
};

/// The grid of the current directory for an L x W x S image. A volume has
/// chunks the grid does not number, and a chunk without extent has none.
Grid grid_of(const ImageLayout& layout, std::uint64_t L, std::uint64_t W, std::uint64_t S) {
  if (layout.imageDepth > 1) raise(Tiff::imageDepthStrippedLayoutMismatch(Int{layout.imageDepth}));
  if (layout.imageWidth == 0 || layout.imageLength == 0) raise(Tiff::imageDimensionsNotSet());
  if (layout.chunkWidth == 0 || layout.chunkLength == 0) raise(Tiff::tileDimensionsNotSet());
  return {L, W, S, layout.chunkLength, layout.chunkWidth, layout.planarConfiguration == PLANARCONFIG_SEPARATE};
}

/// Copies `columns` runs of `bytes` bytes, run j from `from + j *
/// from_stride` to `to + j * to_stride`. Runs are short (a strip's few rows)
/// and there is one for every column of the image and every strip, so the
/// copy is chosen once per chunk by the run's length and inlined rather than
/// called per run (a memcpy call per run made a whole write of an 8192 x
/// 8192 RGB image in 2-row strips take a seventh more CPU time).
using ColumnCopy = void (*)(unsigned char* to, std::size_t to_stride, const unsigned char* from,
                            std::size_t from_stride, std::size_t columns, std::size_t bytes);

template <std::size_t N>
void copy_columns_fixed(unsigned char* to, std::size_t to_stride, const unsigned char* from,
                        std::size_t from_stride, std::size_t columns, std::size_t) {
  for (std::size_t j = 0; j < columns; ++j, to += to_stride, from += from_stride) std::memcpy(to, from, N);
}

/// Runs of 16 bytes or more, in 16-byte pieces, the last one overlapping.
void copy_columns_long(unsigned char* to, std::size_t to_stride, const unsigned char* from,
                       std::size_t from_stride, std::size_t columns, std::size_t bytes) {
  for (std::size_t j = 0; j < columns; ++j, to += to_stride, from += from_stride) {
    std::size_t i = 0;
    for (; i + 16 <= bytes; i += 16) std::memcpy(to + i, from + i, 16);
    if (i < bytes) std::memcpy(to + bytes - 16, from + bytes - 16, 16);
  }
}

template <std::size_t... N>
constexpr std::array<ColumnCopy, sizeof...(N)> fixed_copies(std::index_sequence<N...>) {
  return {copy_columns_fixed<N>...};
}
constexpr auto kShortCopies = fixed_copies(std::make_index_sequence<16>());

ColumnCopy column_copy(std::size_t bytes) { return bytes < 16 ? kShortCopies[bytes] : copy_columns_long; }

/// Zeroes what a chunk of m x n left of a slot of slot_rows x slot_columns
/// (one plane), columns `stride` bytes apart.
void zero_uncovered(unsigned char* first, std::size_t stride, std::size_t es, std::uint64_t slot_rows,
                    std::uint64_t slot_columns, std::uint64_t m, std::uint64_t n) {
  for (std::uint64_t j = 0; j < slot_columns; ++j) {
    const std::uint64_t covered = j < n ? std::min(m, slot_rows) : 0;
    if (covered < slot_rows) std::memset(first + j * stride + covered * es, 0, (slot_rows - covered) * es);
  }
}

std::size_t element_size(zvClassID cls) {
  switch (cls) {
    case zvDOUBLE_CLASS: case zvINT64_CLASS: case zvUINT64_CLASS: return 8;
    case zvSINGLE_CLASS: case zvINT32_CLASS: case zvUINT32_CLASS: return 4;
    case zvINT16_CLASS: case zvUINT16_CLASS: case zvCHAR_CLASS: return 2;
    default: return 1;
  }
}

/// Reads chunk (p, r, c) straight into its slot of the image. The part of
/// the slot the chunk does not cover (a chunk cut short) is zeroed, so that
/// no element of the image is left uninitialised.
void read_into_slot(TIFF* tif, const Grid& grid, std::uint64_t p, std::uint64_t r, std::uint64_t c,
                    zvClassID cls, unsigned char* image) {
  const std::size_t es = element_size(cls);
  const std::uint64_t r0 = r * grid.rows, c0 = c * grid.columns;
  const std::uint64_t slot_rows = std::min(grid.rows, grid.L - r0);
  const std::uint64_t slot_columns = std::min(grid.columns, grid.W - c0);
  const std::uint64_t plane = grid.separate ? p : 0;
  unsigned char* first = image + ((plane * grid.W + c0) * grid.L + r0) * es;
  ChunkDestination to;
  to.data = first;
  to.cls = cls;
  to.rows = slot_rows;
  to.columns = slot_columns;
  to.samples = grid.samples();
  to.column = grid.L;
  to.plane = grid.W * grid.L;
  const ChunkPlacement placed = read_chunk_into(tif, grid.chunk(p, r, c), to);
  // YCbCr has three planes of two sizes, which the read commands give.
  if (placed.outcome == ChunkOutcome::ycbcr) raise(Tiff::unsupportedYCbCrConfiguration());
  for (std::uint64_t k = 0; k < grid.samples(); ++k)
    zero_uncovered(first + k * to.plane * es, grid.L * es, es, slot_rows, slot_columns, placed.rows, placed.columns);
}

/// The number of chunks to write: a whole number from 1, or Inf for all (0).
std::uint64_t chunk_limit(const zvArray* count) {
  const double x = zvGetClassID(count) == zvDOUBLE_CLASS && zvGetNumberOfElements(count) == 1 ? zvGetScalar(count) : 0;
  if (x == INFINITY) return 0;
  if (!(x >= 1 && x == std::floor(x))) raise(validate::argumentOutOfBounds());
  return convert<std::uint32_t>(x);
}

}  // namespace

// "__readImage__"(id): the image of the current directory, L x W x S in the
// class the read commands give.
void handle_read_image(zvArray* outputs[], int, const zvArray*[], TIFF* tif) {
  const ImageLayout layout = readImageLayout(tif);
  const zvClassID cls = image_class(layout);
  const Grid grid = grid_of(layout, layout.imageLength, layout.imageWidth, layout.samplesPerPixel);
  const std::size_t dims[3] = {grid.L, grid.W, grid.S};
  zvArray* image = zvCreateUninitNumericArray(3, dims, cls);
  auto* data = static_cast<unsigned char*>(zvGetData(image));
  for (std::uint64_t p = 0; p < grid.planes(); ++p)
    for (std::uint64_t r = 0; r < grid.down(); ++r)
      for (std::uint64_t c = 0; c < grid.across(); ++c) read_into_slot(tif, grid, p, r, c, cls, data);
  outputs[0] = image;
}

// "__writeImage__"(id, image, count): the first `count` chunks (Inf: all),
// numbered as libtiff numbers them, each cut from an L x W x S image and
// written with the write command's checks.
void handle_write_image(zvArray*[], int, const zvArray* operands[], TIFF* tif) {
  const zvArray* image = operands[1];
  std::uint64_t left = chunk_limit(operands[2]);
  const ImageLayout layout = readImageLayout(tif);
  const std::size_t ndims = zvGetNumberOfDimensions(image);
  const zvClassID cls = zvGetClassID(image);
  const bool numeric = cls == zvLOGICAL_CLASS || (cls >= zvDOUBLE_CLASS && cls <= zvUINT64_CLASS);
  if (!numeric || ndims > 3 || zvIsEmpty(image)) {
    // No chunk can be cut from it: the write command's own refusal of such
    // data, or else the kind that says what to give.
    validate_write_configuration(layout, &image, 1);
    raise(Tiff::wrongNumberOfInputImages());
  }
  const std::size_t* dims = zvGetDimensions(image);
  const Grid grid = grid_of(layout, dims[0], dims[1], ndims > 2 ? dims[2] : 1);

  // Strips of a few rows are cut from a band of the image copied aside
  // first: cut straight from the image, each strip would read a few bytes
  // of every column, a cache line each, and evict them before the next
  // strip reads the bytes beside them. (With the band and the copier, a
  // write of 8192 x 8192 RGB in 2-row strips takes a third of the time.)
  const std::size_t es = element_size(cls);
  const std::uint64_t band =
      grid.across() == 1 && grid.rows < kBandRows
          ? std::max<std::uint64_t>(1, std::min(kBandRows / grid.rows,
                                                kBandBytes / (grid.rows * grid.W * grid.samples() * es)))
          : 1;
  std::vector<unsigned char> buffer(band > 1 ? band * grid.rows * grid.W * grid.samples() * es : 0);
  // One array for every whole chunk; the host keeps each array a call makes
  // until the call ends, so chunks cut short at the image's edges (a row
  // and a column of them at most) have arrays of their own.
  zvArray* whole_block = nullptr;
  const auto* source = static_cast<const unsigned char*>(zvGetData(image));
  for (std::uint64_t p = 0; p < grid.planes(); ++p)
    for (std::uint64_t r = 0; r < grid.down(); ++r) {
      // Where the chunks of row r come from: the band or the image itself.
      const unsigned char* from = source + (p * grid.W * grid.L + r * grid.rows) * es;
      std::uint64_t from_rows = grid.L, plane_elements = grid.W * grid.L;
      if (band > 1) {
        const std::uint64_t band_first = r - r % band;
        const std::uint64_t band_rows = std::min(band * grid.rows, grid.L - band_first * grid.rows);
        if (r % band == 0) {
          const unsigned char* start = source + (p * grid.W * grid.L + band_first * grid.rows) * es;
          const ColumnCopy copy = column_copy(band_rows * es);
          for (std::uint64_t k = 0; k < grid.samples(); ++k)
            copy(buffer.data() + k * grid.W * band_rows * es, band_rows * es, start + k * grid.W * grid.L * es,
                 grid.L * es, grid.W, band_rows * es);
        }
        from = buffer.data() + (r - band_first) * grid.rows * es;
        from_rows = band_rows;
        plane_elements = grid.W * band_rows;
      }
      for (std::uint64_t c = 0; c < grid.across(); ++c) {
        const std::uint64_t r0 = r * grid.rows, c0 = c * grid.columns;
        // The image's part of the chunk; the write command pads the rest.
        const std::size_t part[3] = {std::min(grid.rows, grid.L - r0), std::min(grid.columns, grid.W - c0),
                                     grid.samples()};
        const bool is_whole = part[0] == grid.rows && part[1] == grid.columns;
        zvArray* block = is_whole && whole_block != nullptr ? whole_block : zvCreateUninitNumericArray(3, part, cls);
        if (is_whole) whole_block = block;
        auto* target = static_cast<unsigned char*>(zvGetData(block));
        const ColumnCopy copy = column_copy(part[0] * es);
        for (std::uint64_t k = 0; k < grid.samples(); ++k)
          copy(target + k * part[1] * part[0] * es, part[0] * es, from + (k * plane_elements + c0 * from_rows) * es,
               from_rows * es, part[1], part[0] * es);
        write_chunk(tif, grid.chunk(p, r, c), block);
        if (left > 0 && --left == 0) return;
      }
    }
}

}  // namespace tiffgate
