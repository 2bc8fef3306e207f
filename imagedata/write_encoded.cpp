#include "core/convert.h"
#include "core/errors.h"
#include "imagedata/commands.h"
#include "imagedata/chunk_buffer.h"
#include "tags/layout.h"
#include "core/memory_limit.h"
#include "imagedata/pack_kernels.h"
#include "imagedata/write_config.h"
#include "imagedata/chunks.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdint>  // INT64_MAX, UINT64_MAX

namespace tiffgate {
namespace {

using detail::Int;

/// What differs between the strip writer and the tile writer.
struct ChunkKind {
  bool tiled;
  std::uint32_t (*count)(TIFF*);
  tmsize_t (*size)(TIFF*);
  tmsize_t (*write)(TIFF*, std::uint32_t, void*, tmsize_t);
  void (*too_large)(Int chunks);
  void (*write_failed)(Int oneBasedChunk);
  void (*rows_cut)(Int chunkRows, Int dataRows);
  void (*columns_cut)(Int chunkColumns, Int dataColumns);
};

const ChunkKind kStrips = {
    false,
    TIFFNumberOfStrips,
    TIFFStripSize,
    TIFFWriteEncodedStrip,
    [](Int chunks) { raise(Tiff::stripNumberTooLarge(chunks)); },
    [](Int chunk) { raise(Tiff::stripWriteFailure(chunk)); },
    [](Int chunkRows, Int rows) { warn(Tiff::dataLengthExceedsRowsPerStrip(chunkRows, rows)); },
    [](Int chunkColumns, Int columns) { warn(Tiff::dataWidthExceedsImageWidth(chunkColumns, columns)); },
};

const ChunkKind kTiles = {
    true,
    TIFFNumberOfTiles,
    TIFFTileSize,
    TIFFWriteEncodedTile,
    [](Int chunks) { raise(Tiff::tileNumberTooLarge(chunks)); },
    [](Int chunk) { raise(Tiff::tileWritefailure(chunk)); },
    [](Int chunkRows, Int rows) { warn(Tiff::dataLengthExceedsTileLength(chunkRows, rows)); },
    [](Int chunkColumns, Int columns) { warn(Tiff::dataWidthExceedsTileWidth(chunkColumns, columns)); },
};

Int as_int(std::size_t x) { return static_cast<Int>(x); }

/// An array as the kernels see it. An empty array is seen as 0 x 0 x 0,
/// so that no kernel reads from it whatever its other dimensions say.
detail::HostView view_of(const zvArray* image) {
  if (zvIsEmpty(image)) return {nullptr, 0, 0, 0};
  const std::size_t* dims = zvGetDimensions(image);
  const std::size_t planes = zvGetNumberOfDimensions(image) >= 3 ? dims[2] : 1;
  return {static_cast<const unsigned char*>(zvGetData(image)), dims[0], dims[1], planes};
}

/// Bytes per sample of the element and YCbCr packers; 0 for a depth they
/// cannot move.
std::size_t element_bytes(std::uint16_t bits) {
  return bits == 8 || bits == 16 || bits == 32 || bits == 64 ? bits / 8u : 0;
}

/// The part of the data that goes into the chunk.
struct Region {
  std::size_t rows;
  std::size_t columns;
};

/// Cuts the data to the chunk, with a warning for each cut, rows first.
Region fit(const ChunkKind& kind, const ImageLayout& layout, const zvArray* image) {
  const std::size_t width = layout.chunkWidth;
  const std::size_t length = layout.chunkLength;
  const std::size_t* dims = zvGetDimensions(image);
  Region region{dims[0], dims[1]};
  if (region.rows > length) {
    kind.rows_cut(as_int(length), as_int(region.rows));
    region.rows = length;
  }
  if (region.columns > width) {
    kind.columns_cut(as_int(width), as_int(region.columns));
    region.columns = width;
  }
  const detail::HostView first = view_of(image);
  region.rows = std::min(region.rows, first.rows);
  region.columns = std::min(region.columns, first.columns);
  return region;
}

/// Whether the packer writes every byte of a chunk of `size` bytes: the data
/// covers the chunk, libtiff's size is exactly what the packer fills (a
/// size that disagrees, whatever the reason, gets a zeroed buffer), and the
/// packer is not the YCbCr one, whose units can leave padding.
bool fills_chunk(const ImageLayout& layout, const Region& region, tmsize_t size) {
  if (is_raw_ycbcr(layout) || region.rows != layout.chunkLength || region.columns != layout.chunkWidth) return false;
  const std::size_t width = layout.chunkWidth, length = layout.chunkLength, samples = layout.samplesPerChunk;
  const std::size_t bytes = element_bytes(layout.bitsPerSample);
  std::size_t filled = 0;
  if (layout.bitsPerSample == 1)
    filled = detail::bit_chunk_bytes(width, length, samples);
  else if (bytes != 0)
    filled = detail::element_chunk_bytes(width, length, samples, bytes);
  return filled != 0 && size > 0 && static_cast<std::size_t>(size) == filled;
}

/// Packs the region of the data into the chunk buffer.
void pack(const ChunkKind& kind, const ImageLayout& layout, const zvArray* const images[], std::uint32_t chunk,
          const Region& region, const ChunkBuffer& buffer) {
  const std::size_t width = layout.chunkWidth;
  const std::size_t length = layout.chunkLength;
  const detail::ChunkView out{buffer.data(), width, layout.samplesPerChunk};
  // libtiff sizes the chunk; a size it could not compute (0, or less than
  // the layout implies, as for an odd subsampling) is a chunk it cannot write.
  const auto require = [&](std::size_t bytes) {
    if (buffer.empty() || buffer.size() < bytes) kind.write_failed(Int{chunk} + 1);
  };
  const detail::HostView first = view_of(images[0]);

  if (layout.bitsPerSample == 1) {
    require(detail::bit_chunk_bytes(width, length, out.samples));
    detail::pack_bits(first, region.rows, region.columns, out);
    return;
  }
  const std::size_t bytes = element_bytes(layout.bitsPerSample);
  if (is_raw_ycbcr(layout)) {
    const detail::YCbCrPacker packer = detail::ycbcr_packer(bytes);
    if (packer == nullptr) raise(Tiff::unhandledBitsPerSample(Int{layout.bitsPerSample}));
    const detail::Subsampling subsampling{layout.ycbcrSubsampling[0], layout.ycbcrSubsampling[1]};
    require(detail::ycbcr_chunk_bytes(width, length, subsampling, bytes));
    const detail::HostView cb = view_of(images[1]);
    const detail::HostView cr = view_of(images[2]);
    // Empty chroma planes give nothing to put into a unit.
    if (cb.rows == 0 || cr.rows == 0) return;
    packer(first, cb, cr, region.rows, region.columns, subsampling, out);
    return;
  }
  const detail::ElementPacker packer = detail::element_packer(bytes, out.samples);
  if (packer == nullptr) raise(Tiff::unhandledBitsPerSample(Int{layout.bitsPerSample}));
  require(detail::element_chunk_bytes(width, length, out.samples, bytes));
  packer(first, region.rows, region.columns, out);
}

/// The bytes of the chunk that hold image rows. The last strip of each plane
/// is encoded without the rows past the image: libtiff 4.5 misdecodes a
/// large Deflate strip that carries such padding, so writing it would make a
/// file that reads back wrong.
tmsize_t encoded_size(const ChunkKind& kind, const ImageLayout& layout, std::uint32_t chunk, tmsize_t size) {
  const std::uint32_t rps = layout.rowsPerStrip;
  if (kind.tiled || rps == 0 || layout.imageLength == 0) return size;
  const std::uint32_t per_plane = (layout.imageLength - 1) / rps + 1;
  const std::uint32_t first_row = (chunk % per_plane) * rps;
  if (first_row >= layout.imageLength) return size;
  const std::uint32_t rows = std::min(rps, layout.imageLength - first_row);
  if (rows == rps) return size;
  const tmsize_t short_size = TIFFVStripSize(layout.tif, rows);
  return short_size > 0 && short_size <= size ? short_size : size;
}

/// Refuses a write whose memory would not fit in the machine's (see
/// memory_limit.h), before anything is allocated: our chunk buffer; the
/// buffer libtiff sets up for the encoded chunk (the chunk's size and a
/// tenth more); and libtiff's offset and byte-count arrays, 8 bytes each
/// per chunk, which it allocates and zero-fills on the first write of a
/// directory (counted every time: they are in memory from then on). A
/// directory of billions of one-row strips asks for tens of gigabytes
/// there before a single byte of data is written. The kind is the one a
/// read of an oversized chunk reports, tooManyBytes(chunk, bytes
/// available, bytes needed): its text tells both sizes, and no write kind
/// of the catalogue does.
void check_write_fits(std::uint32_t chunk, std::uint32_t chunks, tmsize_t size) {
  const std::uint64_t buffer = static_cast<std::uint64_t>(std::max<tmsize_t>(size, 0));
  const std::uint64_t arrays = saturating_product({chunks, 2, sizeof(std::uint64_t)});
  const auto add = [](std::uint64_t a, std::uint64_t b) { return a > UINT64_MAX - b ? UINT64_MAX : a + b; };
  const std::uint64_t needed = add(add(buffer, buffer + buffer / 10), arrays);  // buffer < 2^63
  const std::uint64_t limit = memory_limit();
  const auto text = [](std::uint64_t bytes) { return static_cast<Int>(std::min<std::uint64_t>(bytes, INT64_MAX)); };
  if (needed > limit) raise(Tiff::tooManyBytes(Int{chunk}, text(limit), text(needed)));
}

/// Writes chunk chunk_number() (asked for once the configuration passed) of
/// tif from `count` images.
template <class ChunkNumber>
void write_encoded(const ChunkKind& kind, TIFF* tif, const zvArray* const images[], std::size_t count,
                   ChunkNumber chunk_number) {
  ImageLayout layout;
  readImageLayout(tif, layout);
  validate_write_configuration(layout, images, count);

  // The strip writer on a tiled file raises the tile writer's kind as well.
  if ((TIFFIsTiled(tif) != 0) != kind.tiled) raise(Tiff::tiledOperationOnStrippedImage());
  const std::uint32_t chunk = chunk_number();
  const std::uint32_t chunks = kind.count(tif);
  if (chunk >= chunks) kind.too_large(Int{chunks});

  const tmsize_t size = kind.size(tif);
  check_write_fits(chunk, chunks, size);
  const Region region = fit(kind, layout, images[0]);
  // Data that covers the chunk overwrites every byte: zeroing it first
  // would be a second pass over the whole chunk for nothing.
  const ChunkBuffer buffer(size, !fills_chunk(layout, region, size));
  pack(kind, layout, images, chunk, region, buffer);
  // libtiff may rewrite the buffer in place (a predictor differences it), so
  // it is given our own copy, never the host's memory.
  if (kind.write(tif, chunk, buffer.data(), encoded_size(kind, layout, chunk, size)) < 0)
    kind.write_failed(Int{chunk} + 1);
}

}  // namespace

void handle_write_encoded_strip(zvArray*[], int nOperands, const zvArray* operands[], TIFF* tif) {
  write_encoded(kStrips, tif, operands + 2, static_cast<std::size_t>(nOperands - 2),
                [&] { return indexToUInt32(operands[1]); });
}

void handle_write_encoded_tile(zvArray*[], int nOperands, const zvArray* operands[], TIFF* tif) {
  write_encoded(kTiles, tif, operands + 2, static_cast<std::size_t>(nOperands - 2),
                [&] { return indexToUInt32(operands[1]); });
}

void write_chunk(TIFF* tif, std::uint32_t chunk, const zvArray* image) {
  write_encoded(TIFFIsTiled(tif) ? kTiles : kStrips, tif, &image, 1, [chunk] { return chunk; });
}

}  // namespace tiffgate
