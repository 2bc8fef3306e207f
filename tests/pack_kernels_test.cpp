#include "imagedata/pack_kernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace tiffgate::detail;
using Bytes = std::vector<unsigned char>;

namespace {

template <class T>
HostView view(const std::vector<T>& data, std::size_t rows, std::size_t columns, std::size_t planes = 1) {
  return {reinterpret_cast<const unsigned char*>(data.data()), rows, columns, planes};
}

template <class T>
std::vector<T> as(const Bytes& bytes) {
  std::vector<T> out(bytes.size() / sizeof(T));
  std::memcpy(out.data(), bytes.data(), bytes.size());
  return out;
}

}  // namespace

TEST(pack_kernels, element_planar_and_cut) {
  const std::vector<std::uint8_t> src = {1, 2, 3, 4, 5, 6};  // 3 x 2, column-major
  Bytes chunk(12);
  element_packer(1, 1)(view(src, 3, 2), 3, 2, {chunk.data(), 4, 1});
  EXPECT_EQ(chunk, (Bytes{1, 4, 0, 0, 2, 5, 0, 0, 3, 6, 0, 0}));
  Bytes cut(12);
  element_packer(1, 1)(view(src, 3, 2), 2, 1, {cut.data(), 4, 1});
  EXPECT_EQ(cut, (Bytes{1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(element_packer(3, 1), nullptr);
  EXPECT_EQ(element_packer(16, 2), nullptr);
}

TEST(pack_kernels, element_interleaved_missing_and_extra_planes) {
  // 2 x 1 x 3: planes (10, 20), (11, 21), (12, 22).
  const std::vector<std::uint16_t> src = {10, 20, 11, 21, 12, 22};
  Bytes two(2 * 2 * 2 * 2);
  element_packer(2, 2)(view(src, 2, 1, 3), 2, 1, {two.data(), 2, 2});  // third plane not taken
  EXPECT_EQ(as<std::uint16_t>(two), (std::vector<std::uint16_t>{10, 11, 0, 0, 20, 21, 0, 0}));
  Bytes four(2 * 1 * 4 * 2);
  element_packer(2, 4)(view(src, 2, 1, 3), 2, 1, {four.data(), 1, 4});  // fourth sample stays zero
  EXPECT_EQ(as<std::uint16_t>(four), (std::vector<std::uint16_t>{10, 11, 12, 0, 20, 21, 22, 0}));
}

TEST(pack_kernels, element_copies_bits_unchanged) {
  const std::vector<double> src = {-0.0, std::nan("0x5a5a"), 1e-310};
  Bytes chunk(3 * 8);
  element_packer(8, 1)(view(src, 1, 3), 1, 3, {chunk.data(), 3, 1});
  EXPECT_EQ(std::memcmp(chunk.data(), src.data(), chunk.size()), 0);
  const std::vector<float> f = {-0.0f, 3.5f};
  Bytes four(8);
  element_packer(4, 1)(view(f, 2, 1), 2, 1, {four.data(), 1, 1});
  EXPECT_EQ(std::memcmp(four.data(), f.data(), 8), 0);
}

TEST(pack_kernels, bits_rows_and_column_stride) {
  EXPECT_EQ(bit_row_bytes(10, 1), 2u);
  EXPECT_EQ(bit_row_bytes(10, 3), 4u);
  // Row 0: columns 0, 7, 8, 9 set (2 counts as set); row 1: column 1.
  std::vector<std::uint8_t> src(2 * 10, 0);
  src[0] = 1, src[7 * 2] = 2, src[8 * 2] = 1, src[9 * 2] = 1, src[1 + 1 * 2] = 1;
  Bytes chunk(4);
  pack_bits(view(src, 2, 10), 2, 10, {chunk.data(), 10, 1});
  EXPECT_EQ(chunk, (Bytes{0x81, 0xC0, 0x40, 0x00}));

  // 3 x 2 data cut to 2 rows is read with a column stride of 2, not 3:
  // (1, 1) comes from element 3, which is 0, not from element 4.
  const std::vector<std::uint8_t> tall = {1, 0, 0, 0, 1, 1};
  Bytes cut(2);
  pack_bits(view(tall, 3, 2), 2, 2, {cut.data(), 2, 1});
  EXPECT_EQ(cut, (Bytes{0x80, 0x00}));

  // Two samples per pixel interleave bit by bit: pixel 0 (1, 0), pixel 1 (1, 1).
  const std::vector<std::uint8_t> two = {1, 1, 0, 1};  // 1 x 2 x 2
  Bytes pair(1);
  pack_bits(view(two, 1, 2, 2), 1, 2, {pair.data(), 2, 2});
  EXPECT_EQ(pair, (Bytes{0xB0}));
}

TEST(pack_kernels, ycbcr_units_repeat_the_edge_of_y) {
  // Y 3 x 3 with Y(r, c) = 10r + c + 1; Cb = 100 + 10r + c, Cr = 200 + 10r + c.
  const std::vector<std::uint8_t> y = {1, 11, 21, 2, 12, 22, 3, 13, 23};
  const std::vector<std::uint8_t> cb = {100, 110, 101, 111};
  const std::vector<std::uint8_t> cr = {200, 210, 201, 211};
  Bytes chunk(ycbcr_chunk_bytes(4, 4, {2, 2}, 1));
  ASSERT_EQ(chunk.size(), 24u);
  ycbcr_packer(1)(view(y, 3, 3), view(cb, 2, 2), view(cr, 2, 2), 3, 3, {2, 2}, {chunk.data(), 4, 3});
  EXPECT_EQ(chunk, (Bytes{1, 2, 11, 12, 100, 200, 3, 3, 13, 13, 101, 201,  //
                          21, 22, 21, 22, 110, 210, 23, 23, 23, 23, 111, 211}));

  // 2 x 1 units of 16-bit samples; an odd width of 3 still takes 2 units per row.
  const std::vector<std::uint16_t> y16 = {1000, 1001, 1002};  // 1 x 3
  const std::vector<std::uint16_t> cb16 = {5, 6}, cr16 = {7, 8};
  EXPECT_EQ(ycbcr_units_per_row(3, {2, 1}), 2u);
  Bytes wide(ycbcr_chunk_bytes(3, 1, {2, 1}, 2));
  ycbcr_packer(2)(view(y16, 1, 3), view(cb16, 1, 2), view(cr16, 1, 2), 1, 3, {2, 1}, {wide.data(), 3, 3});
  EXPECT_EQ(as<std::uint16_t>(wide), (std::vector<std::uint16_t>{1000, 1001, 5, 7, 1002, 1002, 6, 8}));
  EXPECT_EQ(ycbcr_packer(3), nullptr);
}

TEST(pack_kernels, chunk_sizes) {
  // libtiff sizes a 15-wide, 4-row strip of 2 x 2 YCbCr at 96 bytes.
  EXPECT_EQ(ycbcr_chunk_bytes(15, 4, {2, 2}, 1), 96u);
  EXPECT_EQ(element_chunk_bytes(10, 3, 4, 2), 240u);
  EXPECT_EQ(bit_chunk_bytes(10, 3, 1), 6u);
  // Sizes too large to hold saturate rather than wrap to something small.
  EXPECT_EQ(element_chunk_bytes(std::size_t{1} << 32, std::size_t{1} << 32, 65535, 8), SIZE_MAX);
}
