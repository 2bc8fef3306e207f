// The whole-image entries: every strip or tile of the current directory
// read straight into its place in one image, or written from its place in
// one, each chunk with every check the public read or write command makes.
// They add no check of their own beyond the shape of their operands.

#include "core/convert.h"
#include "core/errors.h"
#include "imagedata/chunks.h"
#include "imagedata/commands.h"
#include "imagedata/write_config.h"
#include "core/libtiff_messages.h"
#include "files/files.h"
#include "tags/layout.h"

#include <tiffio.h>

#include <fcntl.h>  // O_RDONLY

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <string>
#include <system_error>
#include <thread>
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

/// The part of the image a read returns: rows [row0, row0 + rows) and
/// columns [column0, column0 + columns).
struct Region {
  std::uint64_t row0, rows, column0, columns;
};

/// The region operand: empty for the whole image, else [first last first
/// last] of rows and then columns, counted from 1 and inclusive, inside the
/// image and not empty.
Region region_of(const zvArray* operand, const Grid& grid) {
  if (operand == nullptr || zvIsEmpty(operand)) return {0, grid.L, 0, grid.W};
  if (zvGetClassID(operand) != zvDOUBLE_CLASS || zvGetNumberOfElements(operand) != 4)
    raise(validate::argumentOutOfBounds());
  const auto* v = static_cast<const double*>(zvGetData(operand));
  for (int i = 0; i < 4; ++i)
    if (!(v[i] >= 1 && v[i] == std::floor(v[i]) && v[i] <= (i < 2 ? grid.L : grid.W)))
      raise(validate::argumentOutOfBounds());
  if (v[1] < v[0] || v[3] < v[2]) raise(validate::argumentOutOfBounds());
  const auto at = [&](int i) { return static_cast<std::uint64_t>(v[i]); };
  return {at(0) - 1, at(1) - at(0) + 1, at(2) - 1, at(3) - at(2) + 1};
}

/// The threads operand: 0 or absent for one per processor.
unsigned thread_count(const zvArray* operand) {
  if (operand == nullptr) return std::max(1u, std::thread::hardware_concurrency());
  if (zvGetClassID(operand) != zvDOUBLE_CLASS || zvGetNumberOfElements(operand) != 1)
    raise(validate::argumentOutOfBounds());
  const double x = zvGetScalar(operand);
  if (!(x >= 0 && x == std::floor(x) && x <= 4096)) raise(validate::argumentOutOfBounds());
  return x > 0 ? static_cast<unsigned>(x) : std::max(1u, std::thread::hardware_concurrency());
}

struct Slot {
  std::uint64_t p, r, c;
};

/// The destination of a read: the region's L x W x S array.
struct Target {
  const Grid& grid;
  const Region& region;
  zvClassID cls;
  std::size_t es;
  unsigned char* image;
};

/// What one thread reads through: the chunk buffer, and the chunk's part
/// for a chunk that begins before the region.
struct Buffers {
  std::vector<unsigned char> chunk, part;
};

/// Reads chunk s into its part of the region. A chunk that begins inside
/// the region goes straight into place; one that begins before it goes
/// through buffers.part first. What the chunk does not cover (a chunk cut
/// short) is zeroed, so that no element is left uninitialised.
void read_slot(TIFF* tif, const Target& t, const Slot& s, Buffers& buffers) {
  const Grid& g = t.grid;
  const Region& region = t.region;
  const std::size_t es = t.es;
  const std::uint64_t r0 = s.r * g.rows, c0 = s.c * g.columns;
  // The chunk's part of the region, in image coordinates.
  const std::uint64_t top = std::max(r0, region.row0), left = std::max(c0, region.column0);
  const std::uint64_t bottom = std::min({r0 + g.rows, g.L, region.row0 + region.rows});
  const std::uint64_t right = std::min({c0 + g.columns, g.W, region.column0 + region.columns});
  const std::uint64_t column = region.rows, plane = region.rows * region.columns;
  // Plane p of separate planes is sample p (p is 0 for contiguous data).
  unsigned char* first = t.image + (s.p * plane + (left - region.column0) * column + (top - region.row0)) * es;

  ChunkDestination to;
  to.cls = t.cls;
  to.rows = bottom - r0;
  to.columns = right - c0;
  to.samples = g.samples();
  const bool direct = top == r0 && left == c0;
  if (direct) {
    to.data = first;
    to.column = column;
    to.plane = plane;
  } else {
    to.column = to.rows;
    to.plane = to.rows * to.columns;
    buffers.part.assign(to.plane * to.samples * es, 0);
    to.data = buffers.part.data();
  }
  const ChunkPlacement placed = read_chunk_into(tif, g.chunk(s.p, s.r, s.c), to, buffers.chunk);
  // YCbCr has three planes of two sizes, which the read commands give.
  if (placed.outcome == ChunkOutcome::ycbcr) raise(Tiff::unsupportedYCbCrConfiguration());
  for (std::uint64_t k = 0; k < to.samples; ++k) {
    unsigned char* out = first + k * plane * es;
    if (direct) {
      zero_uncovered(out, column * es, es, to.rows, to.columns, placed.rows, placed.columns);
      continue;
    }
    const unsigned char* from = buffers.part.data() + (k * to.plane + (left - c0) * to.rows + (top - r0)) * es;
    for (std::uint64_t j = 0; j < right - left; ++j)
      std::memcpy(out + j * column * es, from + j * to.rows * es, (bottom - top) * es);
  }
}

/// A second handle on tif's file, at the same directory and with the same
/// chunks, for another thread; null when there can be none (a file open for
/// writing, whose data may not be on disk yet, or one that reads otherwise).
TIFF* second_handle(TIFF* tif, const ImageLayout& layout) {
  const std::string mode = open_mode(tif);
  if (mode.empty() || TIFFGetMode(tif) != O_RDONLY) return nullptr;
  TIFF* own = TIFFOpen(TIFFFileName(tif), mode.c_str());
  if (own == nullptr) return nullptr;
  const bool same = TIFFSetSubDirectory(own, TIFFCurrentDirOffset(tif)) && TIFFIsTiled(own) == TIFFIsTiled(tif) &&
                    TIFFNumberOfStrips(own) == TIFFNumberOfStrips(tif) &&
                    (TIFFIsTiled(tif) ? TIFFTileSize64(own) == TIFFTileSize64(tif)
                                      : TIFFStripSize64(own) == TIFFStripSize64(tif)) &&
                    (!is_log_luv(layout.photometric) || TIFFSetField(own, TIFFTAG_SGILOGDATAFMT, layout.sgiLogDataFmt));
  if (!same) {
    TIFFClose(own);
    return nullptr;
  }
  return own;
}

/// Reads every slot, on up to `threads` threads: this one on tif, the others
/// each on a handle of its own. Each chunk's libtiff messages are kept apart
/// and passed on in chunk order, and the first chunk in that order that
/// fails raises its error, as a read on one thread would.
void read_slots(TIFF* tif, const ImageLayout& layout, const Target& t, const std::vector<Slot>& slots,
                unsigned threads) {
  Buffers buffers;
  if (threads <= 1 || slots.size() <= 1) {
    for (const Slot& s : slots) read_slot(tif, t, s, buffers);
    return;
  }
  struct Outcome {
    LibtiffMessages messages;
    std::exception_ptr error;
  };
  std::vector<Outcome> outcomes(slots.size());
  std::atomic<std::size_t> next{0};
  std::atomic<bool> failed{false};
  const auto work = [&](TIFF* handle, Buffers& own_buffers) {
    for (std::size_t i; !failed && (i = next++) < slots.size();) {
      try {
        read_slot(handle, t, slots[i], own_buffers);
      } catch (...) {
        outcomes[i].error = std::current_exception();
        failed = true;
      }
      outcomes[i].messages = take_libtiff_messages();
    }
  };
  LibtiffMessages before = take_libtiff_messages();
  std::vector<std::thread> workers;
  const unsigned count = static_cast<unsigned>(std::min<std::size_t>(threads, slots.size()));
  workers.reserve(count);
  for (unsigned w = 1; w < count; ++w) {
    try {
      workers.emplace_back([&] {
        // What libtiff says on opening was said when tif read the directory.
        TIFF* own = second_handle(tif, layout);
        take_libtiff_messages();
        if (own == nullptr) return;
        Buffers own_buffers;
        work(own, own_buffers);
        TIFFClose(own);
        take_libtiff_messages();
      });
    } catch (const std::system_error&) {
      break;  // no more threads to be had: the ones there are read it all
    }
  }
  work(tif, buffers);
  for (std::thread& w : workers) w.join();
  add_libtiff_messages(std::move(before));
  for (Outcome& o : outcomes) {
    if (o.error) std::rethrow_exception(o.error);
    add_libtiff_messages(std::move(o.messages));
  }
}

/// The number of chunks to write: a whole number from 1, or Inf for all (0).
std::uint64_t chunk_limit(const zvArray* count) {
  const double x = zvGetClassID(count) == zvDOUBLE_CLASS && zvGetNumberOfElements(count) == 1 ? zvGetScalar(count) : 0;
  if (x == INFINITY) return 0;
  if (!(x >= 1 && x == std::floor(x))) raise(validate::argumentOutOfBounds());
  return convert<std::uint32_t>(x);
}

}  // namespace

// "__readImage__"(id [, threads [, region]]): the image of the current
// directory, or the region of it, L x W x S in the class the read commands
// give, its chunks decoded on `threads` threads (0: one per processor).
void handle_read_image(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif) {
  // LogL and LogLuv come as libtiff's floating point unless the caller
  // chose another data format.
  ImageLayout layout = readImageLayout(tif, false);
  if (is_log_luv(layout.photometric) && static_cast<std::uint32_t>(layout.sgiLogDataFmt) > SGILOGDATAFMT_8BIT) {
    TIFFSetField(tif, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
    layout = readImageLayout(tif, false);
  }
  const zvClassID cls = image_class(layout);
  const Grid grid = grid_of(layout, layout.imageLength, layout.imageWidth, layout.samplesPerPixel);
  const unsigned threads = thread_count(nOperands > 1 ? operands[1] : nullptr);
  const Region region = region_of(nOperands > 2 ? operands[2] : nullptr, grid);
  std::vector<Slot> slots;
  for (std::uint64_t p = 0; p < grid.planes(); ++p)
    for (std::uint64_t r = region.row0 / grid.rows; r <= (region.row0 + region.rows - 1) / grid.rows; ++r)
      for (std::uint64_t c = region.column0 / grid.columns; c <= (region.column0 + region.columns - 1) / grid.columns;
           ++c)
        slots.push_back({p, r, c});
  const std::size_t dims[3] = {region.rows, region.columns, grid.S};
  zvArray* image = zvCreateUninitNumericArray(3, dims, cls);
  const Target target{grid, region, cls, element_size(cls), static_cast<unsigned char*>(zvGetData(image))};
  read_slots(tif, layout, target, slots, threads);
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
