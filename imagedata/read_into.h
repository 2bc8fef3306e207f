#pragma once
/// Reading a strip or tile straight into a caller's array, with every check
/// the public readEncodedStrip / readEncodedTile commands make: for a host
/// entry that assembles a whole image and would otherwise copy each chunk's
/// own array into place.

#include "core/host.h"

#include <cstddef>

namespace tiffgate {

enum class ChunkCommand : unsigned char { strip, tile };

/// Where the chunk goes: element (r, c, k) at data + (r + c * column + k *
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
  ycbcr,     ///< a YCbCr chunk, left to the public command (nothing written)
  mismatch,  ///< its class or samples per chunk differ from the destination's
};

struct ChunkPlacement {
  ChunkOutcome outcome = ChunkOutcome::mismatch;
  std::size_t rows = 0;
  std::size_t columns = 0;
};

/// Reads chunk `chunk` (the command's operand) of the file `id` into
/// `destination`, keeping the chunk's rows and columns that lie inside the
/// image and the destination. Raises what the command raises, and reports
/// libtiff's messages as it does.
ChunkPlacement read_chunk_into(const zvArray* id, ChunkCommand command, const zvArray* chunk,
                               const ChunkDestination& destination);

}  // namespace tiffgate
