#include "core/convert.h"
#include "core/errors.h"
#include "imagedata/commands.h"
#include "imagedata/chunk_buffer.h"
#include "imagedata/kernel_shapes.h"
#include "tags/layout.h"
#include "core/memory_limit.h"
#include "imagedata/chunks.h"
#include "imagedata/unpack_kernels.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdint>  // INT64_MAX, UINT64_MAX
#include <cstdlib>
#include <iterator>

namespace tiffgate {
namespace {

using namespace detail;

// --- host class of the samples -------------------------------------------

enum class Refusal : unsigned char { none, badCombination, unknownFormat, mustBeFloat };

struct ClassCell {
  zvClassID cls;
  Refusal refusal;
};

constexpr std::uint16_t kClassBits[] = {1, 8, 16, 32, 64};

/// Rows follow kClassBits; columns are SampleFormat unsigned or void,
/// signed, IEEE floating point, anything else. 1-bit data is logical
/// whatever its format, and 64-bit data exists only as double.
constexpr ClassCell kClassTable[][4] = {
    {{zvLOGICAL_CLASS, Refusal::none}, {zvLOGICAL_CLASS, Refusal::none},
     {zvLOGICAL_CLASS, Refusal::none}, {zvLOGICAL_CLASS, Refusal::none}},
    {{zvUINT8_CLASS, Refusal::none}, {zvINT8_CLASS, Refusal::none},
     {zvUNKNOWN_CLASS, Refusal::badCombination}, {zvUNKNOWN_CLASS, Refusal::badCombination}},
    {{zvUINT16_CLASS, Refusal::none}, {zvINT16_CLASS, Refusal::none},
     {zvUNKNOWN_CLASS, Refusal::badCombination}, {zvUNKNOWN_CLASS, Refusal::badCombination}},
    {{zvUINT32_CLASS, Refusal::none}, {zvINT32_CLASS, Refusal::none},
     {zvSINGLE_CLASS, Refusal::none}, {zvUNKNOWN_CLASS, Refusal::unknownFormat}},
    {{zvUNKNOWN_CLASS, Refusal::mustBeFloat}, {zvUNKNOWN_CLASS, Refusal::mustBeFloat},
     {zvDOUBLE_CLASS, Refusal::none}, {zvUNKNOWN_CLASS, Refusal::mustBeFloat}},
};
static_assert(std::size(kClassTable) == std::size(kClassBits));

std::size_t format_column(std::uint16_t format) {
  switch (format) {
    case SAMPLEFORMAT_UINT:
    case SAMPLEFORMAT_VOID: return 0;
    case SAMPLEFORMAT_INT: return 1;
    case SAMPLEFORMAT_IEEEFP: return 2;
    default: return 3;
  }
}

zvClassID sample_class(const ImageLayout& layout) {
  const std::uint16_t format = layout.sampleFormat, bits = layout.bitsPerSample;
  if (format == SAMPLEFORMAT_COMPLEXINT || format == SAMPLEFORMAT_COMPLEXIEEEFP) raise(Tiff::complexSampleFormat());
  const auto* row = std::find(std::begin(kClassBits), std::end(kClassBits), bits);
  if (row == std::end(kClassBits)) raise(Tiff::unhandledBitsPerSample(bits));
  const ClassCell cell = kClassTable[row - std::begin(kClassBits)][format_column(format)];
  if (cell.refusal == Refusal::badCombination) raise(Tiff::badSampleFormatBitsPerSampleCombination(format, bits));
  if (cell.refusal == Refusal::unknownFormat) raise(Tiff::unknownSampleFormat(format));
  if (cell.refusal == Refusal::mustBeFloat) raise(Tiff::sampleFormatMustBeIeeeFpFor64Bits());
  return cell.cls;
}

// --- configuration and geometry ------------------------------------------

void check_read_configuration(const ImageLayout& layout) {
  if (layout.photometric == PHOTOMETRIC_YCBCR) {
    if (layout.planarConfiguration == PLANARCONFIG_SEPARATE) raise(Tiff::unsupportedYCbCrConfiguration());
    // libtiff would hand over RGB, which is no longer what the tags describe.
    if (layout.jpegColorMode == JPEGCOLORMODE_RGB) raise(Tiff::readWithJpegColorModeRGB());
  }
  // -1, the codec's "not set up" value, is caught by the unsigned comparison.
  if (is_log_luv(layout.photometric) &&
      static_cast<std::uint32_t>(layout.sgiLogDataFmt) > SGILOGDATAFMT_8BIT)
    raise(Tiff::luvCodecNotSet());
}

/// What is left of `total` after `used`, at most `limit`: a directory whose
/// counts disagree must not make an extent exceed its chunk, or wrap.
std::size_t remaining(std::uint64_t total, std::uint64_t used, std::uint64_t limit) {
  return static_cast<std::size_t>(std::min(total > used ? total - used : 0, limit));
}

using detail::ceil_div;
using detail::element_bytes;

/// Refuses a chunk whose buffer and host array would not fit in memory
/// together (see memory_limit.h), telling the bytes they would take and
/// the bytes there are.
void check_chunk_fits(std::uint32_t chunk, tmsize_t size, const ImageLayout& layout) {
  // The array holds at most the chunk's pixels, a logical or whole element
  // per sample (three planes for YCbCr at most add up to as much).
  const std::uint64_t element = std::max(layout.bitsPerSample / 8u, 1u);
  const std::uint64_t array =
      saturating_product({layout.chunkWidth, layout.chunkLength, layout.samplesPerChunk, element});
  const std::uint64_t buffer = static_cast<std::uint64_t>(std::max<tmsize_t>(size, 0));
  const std::uint64_t needed = array > UINT64_MAX - buffer ? UINT64_MAX : array + buffer;
  const std::uint64_t limit = memory_limit();
  const auto text = [](std::uint64_t bytes) { return static_cast<Int>(std::min<std::uint64_t>(bytes, INT64_MAX)); };
  if (needed > limit) raise(Tiff::tooManyBytes(Int{chunk}, text(limit), text(needed)));
}

// --- conversion ----------------------------------------------------------

/// Contiguous YCbCr: Y, Cb and Cr into output slots 0, 1 and 2.
void store_ycbcr(zvArray* outputs[], const ImageLayout& layout, zvClassID cls,
                 const ChunkBuffer& chunk, const ChunkShape& shape) {
  if (layout.samplesPerPixel > 3) raise(Tiff::unsupportedYCbCrConfiguration());
  const Subsampling factors{layout.ycbcrSubsampling[0], layout.ycbcrSubsampling[1]};
  // A zero factor leaves no data unit to describe the chunk.
  if (factors.horizontal == 0 || factors.vertical == 0) raise(Tiff::unsupportedYCbCrConfiguration());
  // Units are whole elements, so a 1-bit YCbCr image has no kernel.
  const YCbCrUnpacker unpack = ycbcr_unpacker(element_bytes(layout.bitsPerSample));
  if (unpack == nullptr) raise(Tiff::unhandledBitsPerSample(layout.bitsPerSample));

  const std::size_t lumaDims[2] = {shape.rows, shape.columns};
  const std::size_t chromaDims[2] = {ceil_div(shape.rows, factors.vertical),
                                     ceil_div(shape.columns, factors.horizontal)};
  zvArray* y = zvCreateUninitNumericArray(2, lumaDims, cls);
  zvArray* cb = zvCreateUninitNumericArray(2, chromaDims, cls);
  zvArray* cr = zvCreateUninitNumericArray(2, chromaDims, cls);
  unpack(chunk.data(), chunk.size(), shape, factors, zvGetData(y), zvGetData(cb), zvGetData(cr));
  outputs[0] = y;
  outputs[1] = cb;
  outputs[2] = cr;
}

/// Turns the decoded chunk into the command's output(s), keeping its
/// top-left rows x columns.
void store_chunk(zvArray* outputs[], const ImageLayout& layout, zvClassID cls,
                 const ChunkBuffer& chunk, std::size_t rows, std::size_t columns) {
  const ChunkShape shape{layout.chunkWidth, layout.chunkLength, layout.samplesPerChunk, rows, columns};
  // Separate-plane YCbCr was refused by the configuration check.
  if (layout.photometric == PHOTOMETRIC_YCBCR) return store_ycbcr(outputs, layout, cls, chunk, shape);

  const std::size_t dims[3] = {rows, columns, layout.samplesPerPixel};
  const bool multiSample = layout.planarConfiguration == PLANARCONFIG_CONTIG && layout.samplesPerPixel > 1;
  zvArray* out = zvCreateUninitNumericArray(multiSample ? 3 : 2, dims, cls);
  if (layout.bitsPerSample == 1) {
    unpack_bits(chunk.data(), chunk.size(), shape, zvGetLogicals(out));
  } else {
    const ElementUnpacker unpack = element_unpacker(element_bytes(layout.bitsPerSample));
    if (unpack == nullptr) raise(Tiff::unhandledBitsPerSample(layout.bitsPerSample));
    unpack(chunk.data(), chunk.size(), shape, zvGetData(out));
  }
  outputs[0] = out;
}

/// The checks, decode and extent of strip strip_number() of the open file
/// tif; then store(layout, cls, chunk, rows, columns) with the chunk's part
/// inside the image.
template <class ChunkNumber, class Store>
void read_strip(TIFF* tif, ChunkNumber strip_number, Store store, std::vector<unsigned char>* storage = nullptr) {
  const ImageLayout layout = readImageLayout(tif);
  check_read_configuration(layout);
  if (TIFFIsTiled(tif)) raise(Tiff::strippedOperationOnTiledImage());

  const std::uint32_t strip = strip_number();
  const std::uint32_t strips = TIFFNumberOfStrips(tif);
  if (strip >= strips) {
    if (layout.imageDepth < 2) raise(Tiff::badStripNumber(strips));
    raise(Tiff::imageDepthStrippedLayoutMismatch(layout.imageDepth));
  }

  const tmsize_t size = TIFFStripSize(tif);
  check_chunk_fits(strip, size, layout);
  // What a short or failed decode leaves unwritten comes out as zero.
  const ChunkBuffer chunk = storage ? ChunkBuffer(size, *storage) : ChunkBuffer(size, true);
  // The buffer's size rather than -1: the same for every consistent file,
  // and libtiff then never writes past the buffer when its strip sizes
  // disagree (an overflowing full strip size reads back as 0).
  const tmsize_t got = chunk.decode([&](void* data, tmsize_t bytes) { return TIFFReadEncodedStrip(tif, strip, data, bytes); });
  // Signed: a failed read (-1) passes, and libtiff's message becomes a warning.
  if (size < got) raise(Tiff::tooManyBytes(Int{strip}, Int{size}, Int{got}));

  // The last strip of each plane holds only the rows left in the image.
  const std::uint64_t perPlane = std::uint64_t{TIFFComputeStrip(tif, layout.imageLength - 1, 0)} + 1;
  const bool last = (std::uint64_t{strip} + 1) % perPlane == 0;
  const std::size_t rows = last ? remaining(layout.imageLength, (perPlane - 1) * layout.rowsPerStrip,
                                            layout.rowsPerStrip)
                                : layout.rowsPerStrip;

  const zvClassID cls = sample_class(layout);
  store(layout, cls, chunk, rows, static_cast<std::size_t>(layout.imageWidth));
}

/// The same for a tile.
template <class ChunkNumber, class Store>
void read_tile(TIFF* tif, ChunkNumber tile_number, Store store, std::vector<unsigned char>* storage = nullptr) {
  const ImageLayout layout = readImageLayout(tif);
  check_read_configuration(layout);
  if (!TIFFIsTiled(tif)) raise(Tiff::tiledOperationOnStrippedImage());

  const std::uint32_t tile = tile_number();
  const zvClassID cls = sample_class(layout);  // class errors come before bounds errors
  const tmsize_t size = TIFFTileSize(tif);
  const std::uint32_t tiles = TIFFNumberOfTiles(tif);
  if (tile >= tiles) raise(Tiff::badTileNumber(tiles));

  check_chunk_fits(tile, size, layout);
  const ChunkBuffer chunk = storage ? ChunkBuffer(size, *storage) : ChunkBuffer(size, true);
  // The result is not examined: a failed decode leaves zeros, and libtiff's
  // message becomes a warning.
  chunk.decode([&](void* data, tmsize_t bytes) { return TIFFReadEncodedTile(tif, tile, data, bytes); });

  // Tile rows and columns from libtiff's own numbering; the divisors are
  // kept from zero for directories whose counts make no sense.
  const std::uint64_t across = std::uint64_t{TIFFComputeTile(tif, layout.imageWidth - 1, 0, 0, 0)} + 1;
  std::uint64_t down = tiles / across;
  if (layout.planarConfiguration == PLANARCONFIG_SEPARATE) down /= layout.samplesPerPixel;
  down /= std::max<std::uint32_t>(layout.imageDepth, 1);
  const std::uint64_t tileRow = down == 0 ? 0 : tile % (down * across) / across;

  const std::size_t rows = tileRow + 1 == down
                               ? remaining(layout.imageLength, tileRow * layout.tileLength, layout.tileLength)
                               : layout.tileLength;
  const std::size_t columns = (std::uint64_t{tile} + 1) % across == 0
                                  ? remaining(layout.imageWidth, (across - 1) * layout.tileWidth, layout.tileWidth)
                                  : layout.tileWidth;
  store(layout, cls, chunk, rows, columns);
}

/// The chunk into a caller's view, YCbCr excepted (see chunks.h).
ChunkPlacement store_into(const ChunkDestination& to, const ImageLayout& layout, zvClassID cls,
                          const ChunkBuffer& chunk, std::size_t rows, std::size_t columns) {
  if (layout.photometric == PHOTOMETRIC_YCBCR) return {ChunkOutcome::ycbcr, 0, 0};
  if (cls != to.cls || layout.samplesPerChunk != to.samples) return {ChunkOutcome::mismatch, 0, 0};
  const ChunkShape shape{layout.chunkWidth, layout.chunkLength, layout.samplesPerChunk, std::min(rows, to.rows),
                         std::min(columns, to.columns)};
  const OutputStrides strides{to.column, to.plane};
  if (layout.bitsPerSample == 1) {
    strided_bit_unpacker(best_isa())(chunk.data(), chunk.size(), shape, static_cast<bool*>(to.data), strides);
  } else {
    const StridedElementUnpacker unpack = strided_element_unpacker(element_bytes(layout.bitsPerSample));
    if (unpack == nullptr) raise(Tiff::unhandledBitsPerSample(layout.bitsPerSample));
    unpack(chunk.data(), chunk.size(), shape, to.data, strides);
  }
  return {ChunkOutcome::placed, shape.rows, shape.columns};
}

}  // namespace

void handle_read_encoded_strip(zvArray* outputs[], int, const zvArray* operands[], TIFF* tif) {
  read_strip(tif, [&] { return indexToUInt32(operands[1]); },
             [&](auto&&... args) { store_chunk(outputs, args...); });
}

// A third operand is admitted by the command table and ignored.
void handle_read_encoded_tile(zvArray* outputs[], int, const zvArray* operands[], TIFF* tif) {
  read_tile(tif, [&] { return indexToUInt32(operands[1]); },
            [&](auto&&... args) { store_chunk(outputs, args...); });
}

zvClassID image_class(const ImageLayout& layout) {
  check_read_configuration(layout);
  return sample_class(layout);
}

ChunkPlacement read_chunk_into(TIFF* tif, std::uint32_t chunk, const ChunkDestination& destination,
                               std::vector<unsigned char>& storage) {
  ChunkPlacement placement;
  const auto store = [&](auto&&... args) { placement = store_into(destination, args...); };
  if (TIFFIsTiled(tif))
    read_tile(tif, [chunk] { return chunk; }, store, &storage);
  else
    read_strip(tif, [chunk] { return chunk; }, store, &storage);
  return placement;
}

}  // namespace tiffgate
