#pragma once
/// One strip or tile read straight into a caller's array, or written from
/// an array, with every check the public read and write commands make: what
/// the whole-image entries are built on.

#include "core/host.h"
#include "tags/layout.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tiffgate {

/// Where a chunk goes: element (r, c, k) at data + (r + c * column + k *
/// plane) * element size, for r < rows, c < columns, k < samples (what is
/// available at the chunk's place).
struct ChunkDestination {
  void* data = nullptr;
  zvClassID cls = zvUNKNOWN_CLASS;
  std::size_t rows = 0;
  std::size_t columns = 0;
  std::size_t samples = 1;
  std::size_t column = 0;  ///< >= rows
  std::size_t plane = 0;
};

enum class ChunkOutcome : unsigned char {
  placed,    ///< written: `rows` x `columns` of the destination, the rest untouched
  ycbcr,     ///< a YCbCr chunk, which has no single destination (nothing written)
  mismatch,  ///< its class or samples per chunk differ from the destination's
};

struct ChunkPlacement {
  ChunkOutcome outcome = ChunkOutcome::mismatch;
  std::size_t rows = 0;
  std::size_t columns = 0;
};

/// The host class of the samples of the current directory as the whole-image
/// entry returns them: every sample libtiff decodes, integers of any width
/// up to 64 bits and floating point of 16 and 24 bits included, separate
/// YCbCr planes as the samples they are. Raises what a read must still refuse.
zvClassID image_class(const ImageLayout& layout);

/// Reads strip or tile `chunk` of tif into `destination` as image_class
/// says, keeping the chunk's rows and columns that lie inside the image and
/// the destination,
/// through a chunk buffer kept in `storage` from chunk to chunk. Raises
/// what the read command raises.
ChunkPlacement read_chunk_into(TIFF* tif, std::uint32_t chunk, const ChunkDestination& destination,
                               std::vector<unsigned char>& storage);

/// Writes strip or tile `chunk` of tif from `image`, as the write command
/// would, warnings included.
void write_chunk(TIFF* tif, std::uint32_t chunk, const zvArray* image);

}  // namespace tiffgate
