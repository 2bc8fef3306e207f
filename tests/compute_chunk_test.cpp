// "computeStrip" and "computeTile": 1-based answers worked out by hand from
// the layouts written with libtiff.
#include "gateway/libtiff_messages.h"
#include "support/image_files.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;

/// The answer as text ("3"), or the error as outcome() gives it.
std::string answer(const char* command, std::vector<Array> operands) {
  const auto r = call(command, std::move(operands));
  if (!r.ok()) return outcome(r);
  if (r.out().class_id() != zvDOUBLE_CLASS || r.out().numel() != 1) return "not a double scalar";
  return std::to_string(r.out().number());
}
std::string n(double v) { return std::to_string(v); }

Array open_written(const ScratchDir& dir, const std::string& name, std::uint32_t width, std::uint32_t length,
                   std::uint16_t planar, std::uint32_t rowsPerStrip, std::uint32_t tile) {
  ImageSpec s;
  s.width = width, s.length = length, s.samples = 3, s.photometric = PHOTOMETRIC_RGB, s.planar = planar;
  s.rowsPerStrip = rowsPerStrip, s.tileWidth = s.tileLength = tile;
  write_image(dir.path(name), s);
  return open_file(dir.path(name));
}

TEST(compute_chunk, strips) {
  ScratchDir dir;
  // 32 rows in strips of 16 (2 strips); separate: 11 rows in strips of 4, 3 a plane.
  const Array contig = open_written(dir, "c.tif", 21, 32, PLANARCONFIG_CONTIG, 16, 0);
  const Array planes = open_written(dir, "s.tif", 17, 11, PLANARCONFIG_SEPARATE, 4, 0);
  EXPECT_EQ(answer("computeStrip", {contig, num(0)}), n(1));
  EXPECT_EQ(answer("computeStrip", {contig, num(15.9)}), n(1));
  EXPECT_EQ(answer("computeStrip", {contig, num(31)}), n(2));
  // Past the image: the last row, so the last strip (not strip 3).
  EXPECT_EQ(answer("computeStrip", {contig, num(32)}), n(2));
  EXPECT_EQ(answer("computeStrip", {contig, num(4294967295.0)}), n(2));
  EXPECT_EQ(answer("computeStrip", {contig, num(0), num(0)}), "sampleParameterNotAllowedInChunkyCase()");
  EXPECT_EQ(answer("computeStrip", {contig, num(-1)}), "argumentOutOfBounds()");
  EXPECT_EQ(answer("computeStrip", {contig, num(4294967296.0)}), "argumentOutOfBounds()");

  EXPECT_EQ(answer("computeStrip", {planes, num(0)}), "sampleParameterRequired()");
  EXPECT_EQ(answer("computeStrip", {planes, num(0), num(0)}), n(1));
  EXPECT_EQ(answer("computeStrip", {planes, num(0), num(1)}), n(4));
  EXPECT_EQ(answer("computeStrip", {planes, num(999), num(2)}), n(9));
  EXPECT_EQ(answer("computeStrip", {planes, num(0), num(65536)}), "argumentOutOfBounds()");
  // A sample past the last is held to SamplesPerPixel, which libtiff refuses
  // with its own error (answering index 0) that arrives as a warning.
  const auto r = call("computeStrip", {planes, num(4), num(7)});
  ASSERT_EQ(outcome(r), "ok");
  EXPECT_EQ(r.out().number(), 1);
  ASSERT_EQ(r.warnings.size(), 1u);
  EXPECT_EQ(r.warnings[0].identifier, kLibtiffErrorId);
  call("close", {contig});
  call("close", {planes});
}

TEST(compute_chunk, tiles) {
  ScratchDir dir;
  // 48 x 32 in 16 x 16 tiles: 3 across, 2 down, 6 a plane.
  const Array contig = open_written(dir, "c.tif", 48, 32, PLANARCONFIG_CONTIG, 0, 16);
  const Array planes = open_written(dir, "s.tif", 48, 32, PLANARCONFIG_SEPARATE, 0, 16);
  auto at = [](double row, double column) { return Array::row({row, column}); };
  EXPECT_EQ(answer("computeTile", {contig, at(0, 0)}), n(1));
  EXPECT_EQ(answer("computeTile", {contig, at(17, 33)}), n(6));
  EXPECT_EQ(answer("computeTile", {contig, at(0, 47)}), n(3));
  // The column is held to ImageWidth itself, one past the last pixel, which
  // libtiff counts as a fourth tile column; likewise the row.
  EXPECT_EQ(answer("computeTile", {contig, at(0, 1000)}), n(4));
  EXPECT_EQ(answer("computeTile", {contig, at(1000, 0)}), n(7));
  EXPECT_EQ(answer("computeTile", {contig, at(0, 0), num(1)}), "sampleParameterNotAllowedInChunkyCase()");
  EXPECT_EQ(answer("computeTile", {contig, at(-1, 0)}), "argumentOutOfBounds()");
  EXPECT_EQ(answer("computeTile", {contig, Array::scalar(0)}), "argumentOutOfBounds()");

  EXPECT_EQ(answer("computeTile", {planes, at(0, 0)}), "sampleParameterRequired()");
  EXPECT_EQ(answer("computeTile", {planes, at(17, 33), num(2)}), n(18));
  EXPECT_EQ(answer("computeTile", {planes, at(0, 0), num(1.5)}), n(7));
  call("close", {contig});
  call("close", {planes});
}

}  // namespace
}  // namespace tiffgate::testing
