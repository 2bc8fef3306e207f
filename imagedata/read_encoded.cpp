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
#include <cmath>
#include <cstring>
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

// --- the whole-image entry's samples -------------------------------------

/// Which rules a read follows: the read commands', or the whole-image
/// entry's, which returns every sample libtiff decodes (see entry_samples).
enum class Rules : unsigned char { commands, entry };

/// How the entry turns samples the commands refuse into host elements.
enum class Widening : unsigned char {
  none,     ///< the commands' own kernels: 1, 8, 16, 32 or 64 bits
  packed,   ///< bits not a multiple of 8, packed from the row's first bit
  bytes,    ///< 24, 40, 48 or 56 bits: whole bytes in the machine's order
  half,     ///< 16-bit floating point
  float24,  ///< 24-bit floating point: sign, 7 exponent bits, 16 mantissa bits
};

struct EntrySamples {
  zvClassID cls;
  Widening widening;
};

/// The narrowest integer class of `bits` bits or more.
zvClassID integer_class(unsigned bits, bool is_signed) {
  if (bits <= 8) return is_signed ? zvINT8_CLASS : zvUINT8_CLASS;
  if (bits <= 16) return is_signed ? zvINT16_CLASS : zvUINT16_CLASS;
  if (bits <= 32) return is_signed ? zvINT32_CLASS : zvUINT32_CLASS;
  return is_signed ? zvINT64_CLASS : zvUINT64_CLASS;
}

/// Every sample libtiff decodes, never rescaled: 1 bit as logical, integers
/// of up to 64 bits in the narrowest class that holds them (signed only
/// for whole bytes with SampleFormat 2; packed values as stored), floating
/// point of 16 and 24 bits as single.
EntrySamples entry_samples(const ImageLayout& layout) {
  const std::uint16_t format = layout.sampleFormat, bits = layout.bitsPerSample;
  if (format == SAMPLEFORMAT_COMPLEXINT || format == SAMPLEFORMAT_COMPLEXIEEEFP) raise(Tiff::complexSampleFormat());
  if (bits == 0 || bits > 64) raise(Tiff::unhandledBitsPerSample(bits));
  if (bits == 1) return {zvLOGICAL_CLASS, Widening::none};
  if (format == SAMPLEFORMAT_IEEEFP) {
    switch (bits) {
      case 16: return {zvSINGLE_CLASS, Widening::half};
      case 24: return {zvSINGLE_CLASS, Widening::float24};
      case 32: return {zvSINGLE_CLASS, Widening::none};
      case 64: return {zvDOUBLE_CLASS, Widening::none};
      default: raise(Tiff::badSampleFormatBitsPerSampleCombination(format, bits));
    }
  }
  if (bits % 8 != 0) return {integer_class(bits, false), Widening::packed};
  const zvClassID cls = integer_class(bits, format == SAMPLEFORMAT_INT);
  return {cls, bits == 24 || (bits > 32 && bits < 64) ? Widening::bytes : Widening::none};
}

/// Sample `index` of a chunk row as its bits, zero past the buffer's end.
std::uint64_t sample_bits(const unsigned char* row, const unsigned char* end, std::size_t index, unsigned bits,
                          Widening widening) {
  if (widening != Widening::packed) {
    const unsigned bytes = bits / 8;
    const unsigned char* at = row + index * bytes;
    std::uint64_t v = 0;
    for (unsigned i = 0; i < bytes && at + i < end; ++i) v |= std::uint64_t{at[i]} << (8 * i);
    return v;
  }
  std::uint64_t v = 0;
  for (std::size_t bit = index * bits, last = bit + bits; bit < last; ++bit) {
    const unsigned char* byte = row + bit / 8;
    v = v << 1 | (byte < end ? (*byte >> (7 - bit % 8)) & 1u : 0u);
  }
  return v;
}

float bits_as_single(std::uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

/// A floating-point value of a sign bit, `e` exponent bits and `m` mantissa
/// bits (IEEE half precision: 5 and 10; the 24-bit format: 7 and 16) as
/// single precision, which holds every such value exactly.
float narrow_float_to_single(std::uint32_t v, unsigned e, unsigned m) {
  const std::uint32_t top = (1u << e) - 1, bias = top >> 1;
  const std::uint32_t sign = (v >> (e + m) & 1u) << 31, exponent = v >> m & top, mantissa = v & ((1u << m) - 1);
  if (exponent == top) return bits_as_single(sign | 0x7F800000u | mantissa << (23 - m));
  if (exponent != 0) return bits_as_single(sign | (exponent - bias + 127) << 23 | mantissa << (23 - m));
  const float tiny = std::ldexp(static_cast<float>(mantissa), 1 - static_cast<int>(bias + m));  // subnormal
  return sign ? -tiny : tiny;
}

/// Element (r, c, k) of the chunk into its place, one at a time: the
/// entry's widened samples are rare enough not to need kernels.
void store_widened(const ChunkBuffer& chunk, const ChunkShape& shape, unsigned bits, const EntrySamples& samples,
                   void* out, const OutputStrides& strides) {
  const std::size_t rowBytes =
      samples.widening == Widening::packed ? (shape.width * shape.samples * bits + 7) / 8 : shape.width * shape.samples * (bits / 8);
  const unsigned char* end = chunk.data() + chunk.size();
  for (std::size_t r = 0; r < shape.rows; ++r)
    for (std::size_t c = 0; c < shape.columns; ++c)
      for (std::size_t k = 0; k < shape.samples; ++k) {
        const std::uint64_t v = sample_bits(chunk.data() + r * rowBytes, end, c * shape.samples + k, bits, samples.widening);
        const std::size_t i = r + c * strides.column + k * strides.plane;
        switch (samples.cls) {
          case zvUINT8_CLASS: static_cast<std::uint8_t*>(out)[i] = static_cast<std::uint8_t>(v); break;
          case zvUINT16_CLASS: static_cast<std::uint16_t*>(out)[i] = static_cast<std::uint16_t>(v); break;
          case zvUINT32_CLASS: static_cast<std::uint32_t*>(out)[i] = static_cast<std::uint32_t>(v); break;
          case zvUINT64_CLASS: static_cast<std::uint64_t*>(out)[i] = v; break;
          // Signed whole bytes: the top bit of the stored value is the sign.
          case zvINT32_CLASS: static_cast<std::int32_t*>(out)[i] = static_cast<std::int32_t>(v << (32 - bits)) >> (32 - bits); break;
          case zvINT64_CLASS: static_cast<std::int64_t*>(out)[i] = static_cast<std::int64_t>(v << (64 - bits)) >> (64 - bits); break;
          case zvSINGLE_CLASS:
            static_cast<float*>(out)[i] = samples.widening == Widening::half
                                              ? narrow_float_to_single(static_cast<std::uint32_t>(v), 5, 10)
                                              : narrow_float_to_single(static_cast<std::uint32_t>(v), 7, 16);
            break;
          default: raise(Tiff::unhandledBitsPerSample(bits));
        }
      }
}

// --- configuration and geometry ------------------------------------------

void check_read_configuration(const ImageLayout& layout, Rules rules = Rules::commands) {
  if (layout.photometric == PHOTOMETRIC_YCBCR) {
    // The entry reads separate YCbCr planes as the samples they are.
    if (layout.planarConfiguration == PLANARCONFIG_SEPARATE && rules == Rules::commands)
      raise(Tiff::unsupportedYCbCrConfiguration());
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
void read_strip(TIFF* tif, ChunkNumber strip_number, Store store, std::vector<unsigned char>* storage = nullptr,
                Rules rules = Rules::commands) {
  const ImageLayout layout = readImageLayout(tif, rules == Rules::commands);
  check_read_configuration(layout, rules);
  if (TIFFIsTiled(tif)) raise(Tiff::strippedOperationOnTiledImage());

  const std::uint32_t strip = strip_number();
  const std::uint32_t strips = TIFFNumberOfStrips(tif);
  if (strip >= strips) {
    if (layout.imageDepth < 2) raise(Tiff::badStripNumber(strips));
    raise(Tiff::imageDepthStrippedLayoutMismatch(layout.imageDepth));
  }

  const tmsize_t size = TIFFStripSize(tif);
  check_chunk_fits(strip, size, layout);
  // Zeroed: what a short or failed decode leaves unwritten comes out as zero.
  const ChunkBuffer chunk = storage ? ChunkBuffer(size, *storage) : ChunkBuffer(size, true);
  // The buffer's size rather than -1: the same for every consistent file,
  // and libtiff then never writes past the buffer when its strip sizes
  // disagree (an overflowing full strip size reads back as 0).
  const tmsize_t got = TIFFReadEncodedStrip(tif, strip, chunk.data(), static_cast<tmsize_t>(chunk.size()));
  // Signed: a failed read (-1) passes, and libtiff's message becomes a warning.
  if (size < got) raise(Tiff::tooManyBytes(Int{strip}, Int{size}, Int{got}));

  // The last strip of each plane holds only the rows left in the image.
  const std::uint64_t perPlane = std::uint64_t{TIFFComputeStrip(tif, layout.imageLength - 1, 0)} + 1;
  const bool last = (std::uint64_t{strip} + 1) % perPlane == 0;
  const std::size_t rows = last ? remaining(layout.imageLength, (perPlane - 1) * layout.rowsPerStrip,
                                            layout.rowsPerStrip)
                                : layout.rowsPerStrip;

  const zvClassID cls = rules == Rules::entry ? entry_samples(layout).cls : sample_class(layout);
  store(layout, cls, chunk, rows, static_cast<std::size_t>(layout.imageWidth));
}

/// The same for a tile.
template <class ChunkNumber, class Store>
void read_tile(TIFF* tif, ChunkNumber tile_number, Store store, std::vector<unsigned char>* storage = nullptr,
               Rules rules = Rules::commands) {
  const ImageLayout layout = readImageLayout(tif, rules == Rules::commands);
  check_read_configuration(layout, rules);
  if (!TIFFIsTiled(tif)) raise(Tiff::tiledOperationOnStrippedImage());

  const std::uint32_t tile = tile_number();
  // Class errors come before bounds errors.
  const zvClassID cls = rules == Rules::entry ? entry_samples(layout).cls : sample_class(layout);
  const tmsize_t size = TIFFTileSize(tif);
  const std::uint32_t tiles = TIFFNumberOfTiles(tif);
  if (tile >= tiles) raise(Tiff::badTileNumber(tiles));

  check_chunk_fits(tile, size, layout);
  const ChunkBuffer chunk = storage ? ChunkBuffer(size, *storage) : ChunkBuffer(size, true);
  // The result is not examined: a failed decode leaves zeros, and libtiff's
  // message becomes a warning.
  TIFFReadEncodedTile(tif, tile, chunk.data(), static_cast<tmsize_t>(chunk.size()));

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

/// The chunk into a caller's view by the entry's rules, contiguous YCbCr
/// excepted (see chunks.h).
ChunkPlacement store_into(const ChunkDestination& to, const ImageLayout& layout, zvClassID cls,
                          const ChunkBuffer& chunk, std::size_t rows, std::size_t columns) {
  if (layout.photometric == PHOTOMETRIC_YCBCR && layout.planarConfiguration == PLANARCONFIG_CONTIG)
    return {ChunkOutcome::ycbcr, 0, 0};
  if (cls != to.cls || layout.samplesPerChunk != to.samples) return {ChunkOutcome::mismatch, 0, 0};
  const ChunkShape shape{layout.chunkWidth, layout.chunkLength, layout.samplesPerChunk, std::min(rows, to.rows),
                         std::min(columns, to.columns)};
  const OutputStrides strides{to.column, to.plane};
  const EntrySamples samples = entry_samples(layout);
  if (samples.widening != Widening::none) {
    store_widened(chunk, shape, layout.bitsPerSample, samples, to.data, strides);
  } else if (layout.bitsPerSample == 1) {
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
  check_read_configuration(layout, Rules::entry);
  return entry_samples(layout).cls;
}

ChunkPlacement read_chunk_into(TIFF* tif, std::uint32_t chunk, const ChunkDestination& destination,
                               std::vector<unsigned char>& storage) {
  ChunkPlacement placement;
  const auto store = [&](auto&&... args) { placement = store_into(destination, args...); };
  if (TIFFIsTiled(tif))
    read_tile(tif, [chunk] { return chunk; }, store, &storage, Rules::entry);
  else
    read_strip(tif, [chunk] { return chunk; }, store, &storage, Rules::entry);
  return placement;
}

}  // namespace tiffgate
