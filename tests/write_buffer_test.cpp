// The chunk buffer of the write commands is zero-filled only when the data
// does not cover it: every byte that reaches the file is either the data's
// or zero, never what the allocator handed back. Files are read back with
// libtiff alone.
#include "support/image_files.h"
#include "support/write_files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace tiffgate::testing {
namespace {

using embedded::Array;

/// Leaves freed blocks of `bytes` full of 0xAB, so that an allocation of
/// that size that is not cleared shows it.
void litter(std::size_t bytes) {
  std::vector<void*> blocks;
  for (int i = 0; i < 8; ++i) {
    blocks.push_back(std::malloc(bytes));
    std::memset(blocks.back(), 0xAB, bytes);
  }
  for (void* b : blocks) std::free(b);
}

TEST(write_buffer, only_the_data_and_zeros_reach_the_file) {
  ScratchDir dir;

  // A 1-bit strip 10 pixels wide: 2 bytes a row, whose last 6 bits are
  // padding that must come out zero.
  const std::string bits = dir.path("bits.tif");
  {
    ModuleFile file(bits);
    set_basic_tags(file.tif(), 10, 4, 1, 1, 4);
    litter(8);
    const auto result = file.write(false, Array::scalar(0),
                                   {host_array<std::uint8_t>(zvLOGICAL_CLASS, {4, 10}, [](auto r, auto c, auto) {
                                     return static_cast<std::uint8_t>((r + c) % 3 == 0);
                                   })});
    ASSERT_TRUE(result.ok()) << outcome(result);
    file.close();
  }
  const std::vector<unsigned char> packed = decoded_chunk(TiffHandle(bits, "r"), 0);
  ASSERT_EQ(packed.size(), 8u);
  for (std::size_t r = 0; r < 4; ++r) {
    unsigned expected = 0;
    for (std::size_t c = 0; c < 10; ++c)
      if ((r + c) % 3 == 0) expected |= 0x8000u >> c;
    EXPECT_EQ(packed[2 * r], expected >> 8) << r;
    EXPECT_EQ(packed[2 * r + 1], expected & 0xFF) << r;
  }

  // RGBA strips of 10 x 4 written from a 10 x 4 x 3 array: the data covers
  // every pixel but not the fourth sample, which the packer writes as zero.
  // The next strip's data is 2 rows short: those rows are zero.
  const std::string rgba = dir.path("rgba.tif");
  {
    ModuleFile file(rgba);
    TIFF* tif = file.tif();
    set_basic_tags(tif, 10, 8, 8, 4, 4);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    const std::uint16_t extra[] = {EXTRASAMPLE_UNASSALPHA};
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, extra);
    const auto value = [](auto r, auto c, auto k) { return static_cast<std::uint8_t>(100 + 10 * k + r + 2 * c); };
    for (std::uint32_t strip : {0u, 1u}) {
      litter(160);
      const auto result = file.write(false, Array::scalar(strip),
                                     {host_array<std::uint8_t>(zvUINT8_CLASS, {strip == 0 ? 4u : 2u, 10, 3}, value)});
      ASSERT_TRUE(result.ok()) << outcome(result);
    }
    file.close();
  }
  for (std::uint32_t strip : {0u, 1u}) {
    const std::vector<unsigned char> data = decoded_chunk(TiffHandle(rgba, "r"), strip);
    ASSERT_EQ(data.size(), 160u);
    for (std::size_t r = 0; r < 4; ++r)
      for (std::size_t c = 0; c < 10; ++c)
        for (std::size_t k = 0; k < 4; ++k) {
          const bool present = k < 3 && (strip == 0 || r < 2);
          EXPECT_EQ(data[(r * 10 + c) * 4 + k], present ? 100 + 10 * k + r + 2 * c : 0)
              << "strip " << strip << " r " << r << " c " << c << " k " << k;
        }
  }
}

}  // namespace
}  // namespace tiffgate::testing
