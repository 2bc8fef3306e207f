// The copy kernels alone, on small chunks whose results are worked out by hand.
#include "imagedata/unpack_kernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace tiffgate::detail {
namespace {

template <class T>
std::vector<unsigned char> bytes_of(const std::vector<T>& values) {
  std::vector<unsigned char> out(values.size() * sizeof(T));
  std::memcpy(out.data(), values.data(), out.size());
  return out;
}

/// Runs the element kernel into an output first filled with a marker, so
/// that an element left unwritten shows.
template <class T>
std::vector<T> unpack(const std::vector<unsigned char>& chunk, const ChunkShape& shape) {
  std::vector<T> out(shape.rows * shape.columns * shape.samples, T(0x5A));
  element_unpacker(sizeof(T))(chunk.data(), chunk.size(), shape, out.data());
  return out;
}

TEST(unpack_kernels, elements) {
  // A 3 x 4 chunk of uint16 r*4 + c, cut to 2 x 3: column-major.
  const std::vector<std::uint16_t> grid = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  EXPECT_EQ(unpack<std::uint16_t>(bytes_of(grid), {4, 3, 1, 2, 3}),
            (std::vector<std::uint16_t>{0, 4, 1, 5, 2, 6}));

  // Three interleaved samples, 2 x 2 pixels, first column only: planes follow.
  const std::vector<std::uint8_t> rgb = {0, 100, 200, 1, 101, 201, 10, 110, 210, 11, 111, 211};
  EXPECT_EQ(unpack<std::uint8_t>(bytes_of(rgb), {2, 2, 3, 2, 1}),
            (std::vector<std::uint8_t>{0, 10, 100, 110, 200, 210}));

  // Doubles keep their bits: negative zero and NaN survive.
  const auto doubles = unpack<double>(bytes_of(std::vector<double>{-0.0, NAN}), {2, 1, 1, 1, 2});
  EXPECT_TRUE(std::signbit(doubles[0]));
  EXPECT_TRUE(std::isnan(doubles[1]));

  // A buffer shorter than its geometry: the rows it lacks come out zero.
  EXPECT_EQ(unpack<std::uint8_t>({1, 2, 3, 4}, {2, 3, 1, 3, 2}), (std::vector<std::uint8_t>{1, 3, 0, 2, 4, 0}));
  EXPECT_EQ(unpack<std::uint32_t>({}, {2, 1, 1, 1, 2}), (std::vector<std::uint32_t>{0, 0}));

  EXPECT_EQ(element_unpacker(3), nullptr);
  EXPECT_EQ(element_unpacker(16), nullptr);
  EXPECT_EQ(ycbcr_unpacker(0), nullptr);
}

TEST(unpack_kernels, bits_most_significant_first_rows_on_bytes) {
  // 10 pixels a row take 2 bytes: row 0 has pixels 0 and 9 set, row 1
  // pixels 7 and 8, on either side of the byte boundary.
  const std::vector<unsigned char> chunk = {0x80, 0x40, 0x01, 0x80};
  std::vector<char> out(20, 2);
  unpack_bits(chunk.data(), chunk.size(), {10, 2, 1, 2, 10}, reinterpret_cast<bool*>(out.data()));
  for (int c = 0; c < 10; ++c) {
    EXPECT_EQ(out[2 * c], c == 0 || c == 9) << c;
    EXPECT_EQ(out[2 * c + 1], c == 7 || c == 8) << c;
  }

  // Two samples a pixel, 3 pixels in 6 bits: 10 01 11.
  const std::vector<unsigned char> pairs = {0x9C};
  std::vector<char> planes(6, 2);
  unpack_bits(pairs.data(), pairs.size(), {3, 1, 2, 1, 3}, reinterpret_cast<bool*>(planes.data()));
  EXPECT_EQ(planes, (std::vector<char>{1, 0, 1, 0, 1, 1}));

  // Rows the buffer does not hold are zero.
  std::vector<char> short_out(4, 2);
  unpack_bits(pairs.data(), pairs.size(), {8, 2, 1, 2, 2}, reinterpret_cast<bool*>(short_out.data()));
  EXPECT_EQ(short_out, (std::vector<char>{1, 0, 0, 0}));
}

TEST(unpack_kernels, ycbcr_units_with_odd_edges) {
  // 2 x 2 subsampling, a chunk 3 wide (2 units a row) and 4 long (2 unit
  // rows), kept 3 x 3. Unit u holds Y 10u .. 10u + 3, Cb 100 + u, Cr 200 + u.
  std::vector<std::uint8_t> chunk;
  for (std::uint8_t u = 0; u < 4; ++u)
    chunk.insert(chunk.end(), {std::uint8_t(10 * u), std::uint8_t(10 * u + 1), std::uint8_t(10 * u + 2),
                               std::uint8_t(10 * u + 3), std::uint8_t(100 + u), std::uint8_t(200 + u)});
  std::vector<std::uint8_t> y(9, 0x5A), cb(4, 0x5A), cr(4, 0x5A);
  ycbcr_unpacker(1)(chunk.data(), chunk.size(), {3, 4, 3, 3, 3}, {2, 2}, y.data(), cb.data(), cr.data());
  EXPECT_EQ(y, (std::vector<std::uint8_t>{0, 2, 20, 1, 3, 21, 10, 12, 30}));
  EXPECT_EQ(cb, (std::vector<std::uint8_t>{100, 102, 101, 103}));
  EXPECT_EQ(cr, (std::vector<std::uint8_t>{200, 202, 201, 203}));

  // 2 x 1 subsampling with 16-bit elements, one row of 3: units Y Y Cb Cr.
  const std::vector<std::uint16_t> wide = {1, 2, 50, 60, 3, 4, 51, 61};
  std::vector<std::uint16_t> y16(3), cb16(2), cr16(2);
  ycbcr_unpacker(2)(bytes_of(wide).data(), wide.size() * 2, {3, 1, 3, 1, 3}, {2, 1}, y16.data(), cb16.data(),
                    cr16.data());
  EXPECT_EQ(y16, (std::vector<std::uint16_t>{1, 2, 3}));
  EXPECT_EQ(cb16, (std::vector<std::uint16_t>{50, 51}));
  EXPECT_EQ(cr16, (std::vector<std::uint16_t>{60, 61}));

  // Only the first unit row is in the buffer: the rest is zero.
  chunk.resize(12);
  ycbcr_unpacker(1)(chunk.data(), chunk.size(), {3, 4, 3, 3, 3}, {2, 2}, y.data(), cb.data(), cr.data());
  EXPECT_EQ(y, (std::vector<std::uint8_t>{0, 2, 0, 1, 3, 0, 10, 12, 0}));
  EXPECT_EQ(cb, (std::vector<std::uint8_t>{100, 0, 101, 0}));
}

}  // namespace
}  // namespace tiffgate::detail
