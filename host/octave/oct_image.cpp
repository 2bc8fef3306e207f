// The internal whole-image entries of the oct-file (see oct_image.h). They
// add no check of their own to what the module does: each chunk is read or
// written with every check the public read or write command makes. A read
// unpacks each chunk straight into its place in the image (YCbCr chunks go
// through the command and are copied); a write hands the command each
// chunk's columns.

#include "host/octave/oct_image.h"

#include "core/host.h"
#include "host/octave/adapter.h"
#include "host/octave/oct_array.h"
#include "imagedata/read_into.h"

#include <octave/quit.h>  // octave_quit

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tiffgate::octave_host {
namespace {

constexpr const char* kReadImage = "__readImage__";
constexpr const char* kWriteImage = "__writeImage__";
constexpr const char* kBadCallId = "tiffgate:badInternalCall";
/// The band that strips of fewer rows are cut from (see write_image): as
/// many rows as a cache line holds bytes, and no more than fits a cache.
constexpr std::uint64_t kBandRows = 64;
constexpr std::uint64_t kBandBytes = std::uint64_t{2} << 20;

[[noreturn]] void refuse(const std::string& what) {
  throw OperandError{kBadCallId, std::string("tiffgate: internal image entry: ") + what};
}

/// `count` whole numbers from 1 (from 0 when `zero_ok`) to 2^32, or Inf
/// where `infinite_ok` (returned as 0).
std::vector<std::uint64_t> counts(const octave_value& value, octave_idx_type count, const char* what,
                                  bool zero_ok = false, bool infinite_ok = false) {
  if (!(value.isnumeric() || value.islogical()) || value.iscomplex() || value.numel() != count)
    refuse(std::string(what) + " must be " + std::to_string(count) + " number(s)");
  const NDArray numbers = value.array_value();
  std::vector<std::uint64_t> out;
  for (octave_idx_type i = 0; i < count; ++i) {
    const double x = numbers(i);
    if (infinite_ok && x == INFINITY) {
      out.push_back(0);
      continue;
    }
    if (!(x >= (zero_ok ? 0.0 : 1.0) && x <= 4294967296.0 && x == std::floor(x)))
      refuse(std::string(what) + " must be whole numbers from " + (zero_ok ? "0" : "1"));
    out.push_back(static_cast<std::uint64_t>(x));
  }
  return out;
}

/// True or false, given as a logical or a number 0 or 1.
bool flag(const octave_value& value, const char* what) {
  const std::vector<std::uint64_t> n = counts(value, 1, what, true);
  if (n[0] > 1) refuse(std::string(what) + " must be true or false");
  return n[0] == 1;
}

const zvArray* command_word(const octave_value& value, const char* first, const char* second) {
  const std::string word = value.is_string() ? value.string_value() : std::string();
  if (word != first && word != second) refuse(std::string("the command must be ") + first + " or " + second);
  return wrap_operand(value);
}

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
};

/// Calls the module with a command, the file identifier, a chunk number and
/// the extra operand, if any; returns output slot 0.
zvArray* call_chunk(const zvArray* command, const zvArray* id, std::uint64_t chunk, const zvArray* extra,
                    int outputs) {
  const zvArray* inputs[4] = {command, id, zvCreateDoubleScalar(static_cast<double>(chunk)), extra};
  zvArray* slots[3] = {nullptr, nullptr, nullptr};
  zulFunction(outputs, slots, extra ? 4 : 3, inputs);
  return slots[0];
}

/// Copies `columns` runs of `bytes` bytes, run j from `from + j *
/// from_stride` to `to + j * to_stride`. Runs are short (a strip's few rows)
/// and there is one for every column of the image and every strip, so the
/// copy is chosen once per chunk by the run's length and inlined rather than
/// called per run (a memcpy call per run made a whole read of an 8192 x
/// 8192 RGB image in 42-row strips take a seventh more CPU time).
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

/// Puts chunk (p, r, c) into its slot of the image. The part of the slot
/// that the chunk does not cover (a chunk cut short) is zero, so that no
/// element of the image is left uninitialised.
void place(const Grid& grid, std::uint64_t p, std::uint64_t r, std::uint64_t c, const zvArray& block,
           zvArray& image) {
  const std::size_t es = image.element_size;
  const std::uint64_t r0 = r * grid.rows, c0 = c * grid.columns;
  const std::uint64_t slot_rows = std::min(grid.rows, grid.L - r0);
  const std::uint64_t slot_columns = std::min(grid.columns, grid.W - c0);
  const std::uint64_t m = std::min<std::uint64_t>(block.dims[0], slot_rows);
  const std::uint64_t n = std::min<std::uint64_t>(block.dims[1], slot_columns);
  const auto* source = static_cast<const unsigned char*>(block.data);
  auto* target = static_cast<unsigned char*>(image.data);
  const ColumnCopy copy = column_copy(m * es);
  for (std::uint64_t k = 0; k < grid.samples(); ++k) {
    const std::uint64_t plane = grid.separate ? p : k;
    unsigned char* first = target + ((plane * grid.W + c0) * grid.L + r0) * es;
    copy(first, grid.L * es, source + k * block.dims[1] * block.dims[0] * es, block.dims[0] * es, n, m * es);
    zero_uncovered(first, grid.L * es, es, slot_rows, slot_columns, m, n);
  }
}

/// Reads chunk (p, r, c) straight into its slot; false for a chunk the
/// module leaves to the public command (YCbCr). The part of the slot the
/// chunk does not cover is zeroed, as place() does.
bool read_into_slot(const Grid& grid, ChunkCommand command, const zvArray* id, std::uint64_t p, std::uint64_t r,
                    std::uint64_t c, zvArray& image) {
  const std::size_t es = image.element_size;
  const std::uint64_t r0 = r * grid.rows, c0 = c * grid.columns;
  const std::uint64_t slot_rows = std::min(grid.rows, grid.L - r0);
  const std::uint64_t slot_columns = std::min(grid.columns, grid.W - c0);
  const std::uint64_t plane = grid.separate ? p : 0;
  unsigned char* first = static_cast<unsigned char*>(image.data) + ((plane * grid.W + c0) * grid.L + r0) * es;
  ChunkDestination to;
  to.data = first;
  to.cls = image.cls;
  to.rows = slot_rows;
  to.columns = slot_columns;
  to.samples = grid.samples();
  to.column = grid.L;
  to.plane = grid.W * grid.L;
  const zvArray* number = zvCreateDoubleScalar(static_cast<double>((p * grid.down() + r) * grid.across() + c));
  const ChunkPlacement placed = read_chunk_into(id, command, number, to);
  if (placed.outcome == ChunkOutcome::ycbcr) return false;
  if (placed.outcome == ChunkOutcome::mismatch)
    throw std::runtime_error("the module gave chunks of different classes or sample counts");
  for (std::uint64_t k = 0; k < grid.samples(); ++k)
    zero_uncovered(first + k * to.plane * es, grid.L * es, es, slot_rows, slot_columns, placed.rows, placed.columns);
  return true;
}

octave_value read_image(const octave_value_list& args) {
  if (args.length() != 6) refuse("it takes 6 operands");
  const zvArray* id = wrap_operand(args(1));
  const zvArray* command = command_word(args(2), "readEncodedStrip", "readEncodedTile");
  const std::vector<std::uint64_t> size = counts(args(3), 3, "[L W S]");
  const std::vector<std::uint64_t> chunk = counts(args(4), 2, "[rows columns]");
  const bool separate = flag(args(5), "separate");
  const Grid grid{size[0], size[1], size[2], chunk[0], chunk[1], separate};

  const ChunkCommand kind = args(2).string_value() == "readEncodedTile" ? ChunkCommand::tile : ChunkCommand::strip;

  zvArray* image = nullptr;
  std::size_t mark = 0;
  bool direct = true;
  for (std::uint64_t p = 0; p < grid.planes(); ++p)
    for (std::uint64_t r = 0; r < grid.down(); ++r)
      for (std::uint64_t c = 0; c < grid.across(); ++c) {
        octave_quit();  // Ctrl-C between chunks
        // Every chunk after the first, whose class the image takes, goes
        // straight into the image when it can.
        if (image != nullptr && direct) {
          direct = read_into_slot(grid, kind, id, p, r, c, *image);
          arena().release_to(mark);
          // A YCbCr image's chunks all go through the command (this one
          // was decoded for nothing, the others will not be).
          if (direct) continue;
        }
        const zvArray* block = call_chunk(command, id, (p * grid.down() + r) * grid.across() + c, nullptr, 1);
        if (block == nullptr || block->data == nullptr || block->dims.size() > 3)
          throw std::runtime_error("the module gave a chunk that is not an array");
        if (image == nullptr) {
          // The class is the module's to say: the first chunk tells.
          const std::size_t dims[3] = {grid.L, grid.W, grid.S};
          image = zvCreateUninitNumericArray(3, dims, block->cls);
          mark = arena().mark();  // the image and the first chunk stay
        }
        if (block->cls != image->cls || (block->dims.size() > 2 ? block->dims[2] : 1) != grid.samples())
          throw std::runtime_error("the module gave chunks of different classes or sample counts");
        place(grid, p, r, c, *block, *image);
        // Each chunk's output is released before the next is read: a
        // chunk-sized block that the allocator hands out again, where
        // holding several let it return them to the system and fault their
        // pages in anew (measured: half again the time).
        arena().release_to(mark);
      }
  if (image == nullptr) throw std::runtime_error("the image has no chunks");
  return value_of(image);
}

void write_image(const octave_value_list& args) {
  if (args.length() != 7) refuse("it takes 7 operands");
  const zvArray* id = wrap_operand(args(1));
  const zvArray* command = command_word(args(2), "writeEncodedStrip", "writeEncodedTile");
  const zvArray* image = wrap_operand(args(3));
  if (image->data == nullptr || image->cls == zvCHAR_CLASS || image->dims.size() > 3 || image->numel == 0)
    refuse("the image must be a non-empty numeric or logical array of 2 or 3 dimensions");
  const std::vector<std::uint64_t> chunk = counts(args(4), 2, "[rows columns]");
  const bool separate = flag(args(5), "separate");
  std::uint64_t left = counts(args(6), 1, "count", false, true)[0];  // 0: no limit
  const Grid grid{image->dims[0], image->dims[1], image->dims.size() > 2 ? image->dims[2] : 1,
                  chunk[0], chunk[1], separate};

  // Strips of a few rows are cut from a band of the image copied aside
  // first: cut straight from the image, each strip would read a few bytes
  // of every column, a cache line each, and evict them before the next
  // strip reads the bytes beside them. (With the band and the copier, a
  // write of 8192 x 8192 RGB in 2-row strips takes a third of the time.)
  const std::size_t es = image->element_size;
  const std::uint64_t band = grid.across() == 1 && grid.rows < kBandRows
                                 ? std::max<std::uint64_t>(1, std::min(kBandRows / grid.rows,
                                                                       kBandBytes / (grid.rows * grid.W * grid.samples() * es)))
                                 : 1;
  std::vector<unsigned char> buffer(band > 1 ? band * grid.rows * grid.W * grid.samples() * es : 0);
  const auto* source = static_cast<const unsigned char*>(image->data);
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
        octave_quit();
        const std::size_t mark = arena().mark();
        const std::uint64_t r0 = r * grid.rows, c0 = c * grid.columns;
        // The image's part of the chunk; the module pads the rest.
        const std::size_t dims[3] = {std::min(grid.rows, grid.L - r0), std::min(grid.columns, grid.W - c0),
                                     grid.samples()};
        zvArray* block = zvCreateUninitNumericArray(3, dims, image->cls);
        auto* target = static_cast<unsigned char*>(block->data);
        const ColumnCopy copy = column_copy(dims[0] * es);
        for (std::uint64_t k = 0; k < grid.samples(); ++k)
          copy(target + k * dims[1] * dims[0] * es, dims[0] * es, from + (k * plane_elements + c0 * from_rows) * es,
               from_rows * es, dims[1], dims[0] * es);
        call_chunk(command, id, (p * grid.down() + r) * grid.across() + c, block, 0);
        arena().release_to(mark);
        if (left > 0 && --left == 0) return;
      }
    }
}

}  // namespace

bool is_image_entry(const std::string& word) { return word == kReadImage || word == kWriteImage; }

octave_value_list run_image_entry(const octave_value_list& args) {
  if (args(0).string_value() == kReadImage) return octave_value_list(read_image(args));
  write_image(args);
  return octave_value_list();
}

}  // namespace tiffgate::octave_host
