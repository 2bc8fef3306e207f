#pragma once
/// Test support for the image-data commands: files written with libtiff
/// directly from a known pattern, and libtiff's own decode of a chunk laid
/// out by hand the way the read commands must return it.

#include "host/embedded/session.h"
#include "support/tiff_files.h"

#include <tiffio.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tiffgate::testing {

/// The value of sample k of image pixel (row, column), as the bits of one
/// element (0 or 1 for 1-bit data). For YCbCr, k 0 is Y at (row, column)
/// and k 1 and 2 are Cb and Cr at chroma position (row, column).
std::uint64_t pattern(const ImageSpec& image_spec, std::uint32_t row, std::uint32_t column, std::uint16_t k);

/// Writes a one-directory file with libtiff, every chunk filled from
/// pattern() (YCbCr as raw data units); chunk padding is zero. A stripped
/// image_spec without RowsPerStrip gets one strip of the whole image.
void write_image(const std::string& path, const ImageSpec& image_spec);

/// Where chunk `index` of the current directory lies, worked out from the
/// tags alone.
struct ChunkPlace {
  std::uint32_t row0 = 0, column0 = 0;  ///< image position of its top-left pixel
  std::uint16_t plane = 0;              ///< first sample it holds
  std::uint32_t width = 0, length = 0;  ///< chunk extent
  std::uint32_t rows = 0, columns = 0;  ///< the part inside the image
};
ChunkPlace chunk_place(TIFF* tif, std::uint32_t index);

/// An expected output: dimensions and element bytes in column-major order.
struct Expected {
  std::vector<std::size_t> dims;
  std::vector<unsigned char> bytes;
};

/// libtiff's own decode of chunk `index`: TIFFReadEncodedStrip/Tile into a
/// zero-filled buffer of the full chunk size, which keeps its zeros where
/// libtiff fails.
std::vector<unsigned char> decoded_chunk(TIFF* tif, std::uint32_t index);

/// decoded_chunk cut to the image and rearranged element by element: one
/// array, or Y, Cb and Cr for contiguous YCbCr.
std::vector<Expected> libtiff_chunk(TIFF* tif, std::uint32_t index);

/// The two halves of libtiff_chunk: libtiff's decode into a zero-filled
/// buffer of the chunk size (returning what the read returned), and that
/// buffer laid out as the read commands must return it.
tmsize_t read_libtiff_chunk(TIFF* tif, std::uint32_t index, std::vector<unsigned char>& chunk);
std::vector<Expected> arrange_libtiff_chunk(TIFF* tif, std::uint32_t index, const std::vector<unsigned char>& chunk);

/// Empty when the call's outputs have exactly these dimensions and bytes;
/// otherwise what differs first.
std::string compare_outputs(const embedded::CallResult& result, const std::vector<Expected>& expected);

}  // namespace tiffgate::testing
