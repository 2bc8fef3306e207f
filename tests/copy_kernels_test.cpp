// The copy kernels: a few chunks worked out by hand, then plain reference
// loops over odd sizes, partial edges, short buffers and every sample count,
// in each vector width the processor runs. Buffers are exactly as large as the kernels may touch, so
// the sanitizer build catches any access outside them.
#include "imagedata/pack_kernels.h"
#include "imagedata/unpack_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>  // std::aligned_alloc
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace tiffgate {
namespace {

using detail::Isa;
using Bytes = std::vector<unsigned char>;

std::vector<Isa> isas() {
  std::vector<Isa> out = {Isa::vector16};
  if (detail::isa_supported(Isa::vector32)) out.push_back(Isa::vector32);
  return out;
}

/// Distinct-looking bytes, cheaply (a 64-bit xorshift).
Bytes noise(std::size_t n, unsigned seed) {
  std::uint64_t x = 0x9E3779B97F4A7C15u ^ seed;
  Bytes out(n);
  for (auto& b : out) {
    x ^= x << 13, x ^= x >> 7, x ^= x << 17;
    b = static_cast<unsigned char>(x >> 32);
  }
  return out;
}

std::string describe(Isa isa, std::size_t size, const ChunkShape& s, std::size_t bytes) {
  return (isa == Isa::vector32 ? "32-byte" : "16-byte") + std::string(" size ") + std::to_string(size) +
         " W" + std::to_string(s.width) + " H" + std::to_string(s.length) + " spc" + std::to_string(s.samples) +
         " M" + std::to_string(s.rows) + " N" + std::to_string(s.columns) + " bytes " + std::to_string(bytes);
}

template <class T>
Bytes bytes_of(const std::vector<T>& values) {
  Bytes out(values.size() * sizeof(T));
  std::memcpy(out.data(), values.data(), out.size());
  return out;
}

template <class T>
detail::HostView host(const std::vector<T>& data, std::size_t rows, std::size_t columns, std::size_t planes = 1) {
  return {reinterpret_cast<const unsigned char*>(data.data()), rows, columns, planes};
}

/// The element unpacker into an output filled with a marker first.
template <class T>
std::vector<T> unpacked(const std::vector<T>& chunk, const ChunkShape& shape, std::size_t bytes) {
  std::vector<T> out(shape.rows * shape.columns * shape.samples, T(0x5A));
  element_unpacker(sizeof(T))(bytes_of(chunk).data(), bytes, shape, out.data());
  return out;
}

// Hand-worked chunks: the reference loops below are written from the same
// understanding as the kernels, these are not.
TEST(copy_kernels, known_values) {
  // ChunkShape: width, length, samples, rows kept, columns kept.
  // A 3 x 4 uint16 chunk of r*4 + c, cut to 2 x 3, column-major.
  const std::vector<std::uint16_t> grid = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  EXPECT_EQ(unpacked(grid, {4, 3, 1, 2, 3}, 24), (std::vector<std::uint16_t>{0, 4, 1, 5, 2, 6}));
  // Three interleaved samples, 2 x 2 pixels, first column only: planes follow.
  const std::vector<std::uint8_t> rgb = {0, 100, 200, 1, 101, 201, 10, 110, 210, 11, 111, 211};
  EXPECT_EQ(unpacked(rgb, {2, 2, 3, 2, 1}, 12), (std::vector<std::uint8_t>{0, 10, 100, 110, 200, 210}));
  // A buffer shorter than its geometry: the rows it lacks come out zero.
  EXPECT_EQ(unpacked(std::vector<std::uint8_t>{1, 2, 3, 4, 0, 0}, {2, 3, 1, 3, 2}, 4),
            (std::vector<std::uint8_t>{1, 3, 0, 2, 4, 0}));
  const auto doubles = unpacked(std::vector<double>{-0.0, NAN}, {2, 1, 1, 1, 2}, 16);
  EXPECT_TRUE(std::signbit(doubles[0]) && std::isnan(doubles[1]));

  // Bits, most significant first, rows on byte boundaries: 10 pixels a row,
  // row 0 has 0 and 9 set, row 1 has 7 and 8.
  const Bytes bits = {0x80, 0x40, 0x01, 0x80};
  std::vector<char> logical(20, 2);
  unpack_bits(bits.data(), bits.size(), {10, 2, 1, 2, 10}, reinterpret_cast<bool*>(logical.data()));
  for (int c = 0; c < 10; ++c)
    EXPECT_EQ(std::make_pair(logical[2 * c], logical[2 * c + 1]),
              std::make_pair(char(c == 0 || c == 9), char(c == 7 || c == 8))) << c;

  // Packing: into a wider chunk, what lies outside stays; with fewer planes
  // than samples the rest are zero; bits of a cut take a column stride of
  // the kept rows (1, 1 comes from element 3, not 4).
  Bytes chunk(12);
  detail::element_packer(1, 1)(host(std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6}, 3, 2), 2, 1, {chunk.data(), 4, 1});
  EXPECT_EQ(chunk, (Bytes{1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}));
  Bytes four(16);
  detail::element_packer(2, 4)(host(std::vector<std::uint16_t>{10, 20, 11, 21, 12, 22}, 2, 1, 3), 2, 1,
                               {four.data(), 1, 4});
  EXPECT_EQ(four, bytes_of(std::vector<std::uint16_t>{10, 11, 12, 0, 20, 21, 22, 0}));
  Bytes cut(2);
  detail::pack_bits(host(std::vector<std::uint8_t>{1, 0, 0, 0, 1, 1}, 3, 2), 2, 2, {cut.data(), 2, 1});
  EXPECT_EQ(cut, (Bytes{0x80, 0x00}));

  // YCbCr 2 x 2 units, Y 3 x 3 with Y(r, c) = 10r + c + 1: the unit past
  // the image's edge repeats the last row and column of Y.
  const std::vector<std::uint8_t> y = {1, 11, 21, 2, 12, 22, 3, 13, 23}, cb = {100, 110, 101, 111},
                                  cr = {200, 210, 201, 211};
  Bytes units(detail::ycbcr_chunk_bytes(4, 4, {2, 2}, 1));
  detail::ycbcr_packer(1)(host(y, 3, 3), host(cb, 2, 2), host(cr, 2, 2), 3, 3, {2, 2}, {units.data(), 4, 3});
  EXPECT_EQ(units, (Bytes{1, 2, 11, 12, 100, 200, 3, 3, 13, 13, 101, 201,  //
                          21, 22, 21, 22, 110, 210, 23, 23, 23, 23, 111, 211}));

  // Sizes as libtiff gives them (a 15 x 4 strip of 2 x 2 YCbCr is 96 bytes);
  // sizes too large to hold saturate rather than wrap; widths nothing serves.
  EXPECT_EQ(detail::ycbcr_chunk_bytes(15, 4, {2, 2}, 1), 96u);
  EXPECT_EQ(detail::ycbcr_units_per_row(3, {2, 1}), 2u);
  EXPECT_EQ(detail::element_chunk_bytes(10, 3, 4, 2), 240u);
  EXPECT_EQ(detail::bit_chunk_bytes(10, 3, 1), 6u);
  EXPECT_EQ(detail::bit_row_bytes(10, 3), 4u);
  EXPECT_EQ(detail::element_chunk_bytes(std::size_t{1} << 32, std::size_t{1} << 32, 65535, 8), SIZE_MAX);
  EXPECT_EQ(element_unpacker(3), nullptr);
  EXPECT_EQ(element_unpacker(16), nullptr);
  EXPECT_EQ(ycbcr_unpacker(0), nullptr);
  EXPECT_EQ(detail::element_packer(3, 1), nullptr);
  EXPECT_EQ(detail::ycbcr_packer(3), nullptr);
}

// --- reference loops ----------------------------------------------------------

/// Rows whose used part lies inside the buffer; the rest come out zero.
std::size_t whole_rows(std::size_t bytes, std::size_t stride, std::size_t used, std::size_t rows) {
  std::size_t r = 0;
  while (r < rows && r * stride + used <= bytes) ++r;
  return r;
}

Bytes reference_unpack(const Bytes& chunk, const ChunkShape& s, std::size_t size) {
  Bytes out(s.rows * s.columns * s.samples * size, 0);
  const std::size_t stride = s.width * s.samples * size;
  const std::size_t kept = whole_rows(chunk.size(), stride, s.columns * s.samples * size, s.rows);
  for (std::size_t r = 0; r < kept; ++r)
    for (std::size_t c = 0; c < s.columns; ++c)
      for (std::size_t k = 0; k < s.samples; ++k)
        std::memcpy(&out[(r + c * s.rows + k * s.rows * s.columns) * size],
                    &chunk[r * stride + (c * s.samples + k) * size], size);
  return out;
}

Bytes reference_unpack_bits(const Bytes& chunk, const ChunkShape& s) {
  Bytes out(s.rows * s.columns * s.samples, 0);
  const std::size_t stride = (s.width * s.samples + 7) / 8;
  const std::size_t kept = whole_rows(chunk.size(), stride, (s.columns * s.samples + 7) / 8, s.rows);
  for (std::size_t r = 0; r < kept; ++r)
    for (std::size_t c = 0; c < s.columns; ++c)
      for (std::size_t k = 0; k < s.samples; ++k) {
        const std::size_t bit = c * s.samples + k;
        out[r + c * s.rows + k * s.rows * s.columns] = (chunk[r * stride + bit / 8] >> (7 - bit % 8)) & 1;
      }
  return out;
}

Bytes reference_pack(const Bytes& src, const detail::HostView& view, std::size_t rows, std::size_t columns,
                     const detail::ChunkView& chunk, Bytes out, std::size_t size);
Bytes reference_pack_bits(const Bytes& src, const detail::HostView& view, std::size_t rows, std::size_t columns,
                          const detail::ChunkView& chunk, Bytes out);
std::string describe_pack(Isa isa, std::size_t size, const detail::HostView& v, std::size_t rows,
                          std::size_t columns, const detail::ChunkView& chunk);

// Heights and widths around every tile size (2 to 32 rows, 2 to 16 elements
// a lane, 128 bits), so that full tiles, overlapping last tiles and the
// loops for what tiles cannot cover all run.
const std::size_t kRows[] = {1, 2, 3, 5, 8, 9, 15, 16, 17, 31, 33, 64, 97};
const std::size_t kColumns[] = {1, 2, 3, 5, 9, 16, 17, 33, 47, 66};

TEST(copy_kernels, element_unpackers_match_the_reference) {
  for (Isa isa : isas())
    for (std::size_t size : {1, 2, 4, 8})
      for (std::size_t spc : {1, 2, 3, 4, 5})
        for (std::size_t m : kRows)
          for (std::size_t n : kColumns)
            for (std::size_t extra : {0, 3}) {
              // A chunk wider and longer than what is kept: the right and
              // bottom edge of an image.
              const ChunkShape shape{n + extra, m + extra, spc, m, n};
              const std::size_t full = shape.width * shape.length * spc * size;
              // Full, then cut inside the kept rows (a short strip).
              for (std::size_t bytes : {full, full / 2 + 1}) {
                const Bytes chunk = noise(bytes, static_cast<unsigned>(m * 131 + n * 7 + spc));
                Bytes out(m * n * spc * size, 0x5A);
                element_unpacker(size, isa)(chunk.data(), chunk.size(), shape, out.data());
                ASSERT_EQ(out, reference_unpack(chunk, shape, size)) << describe(isa, size, shape, bytes);
              }
            }
}

// Rows 2048 or 4096 bytes apart share cache sets, and the kernels move them
// through a small buffer: the same results, and no access outside.
TEST(copy_kernels, crowded_strides_match_the_reference) {
  for (Isa isa : isas())
    for (std::size_t size : {1, 2, 4, 8})
      for (std::size_t spc : {1, 4})
        for (std::size_t stride : {2048, 4096})
          for (std::size_t m : {8, 17, 33}) {
            const std::size_t width = stride / (spc * size);
            const ChunkShape shape{width, m, spc, m, width - 3};  // last block overlaps
            const Bytes chunk = noise(width * m * spc * size, static_cast<unsigned>(m + size));
            Bytes out(m * shape.columns * spc * size, 0x5A);
            element_unpacker(size, isa)(chunk.data(), chunk.size(), shape, out.data());
            ASSERT_EQ(out, reference_unpack(chunk, shape, size)) << describe(isa, size, shape, chunk.size());

            const detail::HostView view{out.data(), m, shape.columns, spc};
            const Bytes before = noise(chunk.size(), 5);
            Bytes packed = before;
            const detail::ChunkView into{packed.data(), width, spc};
            detail::element_packer(size, spc, isa)(view, m, shape.columns, into);
            ASSERT_EQ(packed, reference_pack(out, view, m, shape.columns, into, before, size))
                << describe_pack(isa, size, view, m, shape.columns, into);
          }
  // 1-bit rows of 2048 bytes.
  for (Isa isa : isas())
    for (std::size_t m : {8, 17, 33}) {
      const ChunkShape shape{2048 * 8, m, 1, m, 2048 * 8 - 9};
      const Bytes chunk = noise(2048 * m, static_cast<unsigned>(m));
      Bytes out(m * shape.columns, 0x5A);
      bit_unpacker(isa)(chunk.data(), chunk.size(), shape, reinterpret_cast<bool*>(out.data()));
      ASSERT_EQ(out, reference_unpack_bits(chunk, shape)) << describe(isa, 0, shape, chunk.size());

      const detail::HostView view{out.data(), m, shape.columns, 1};
      const Bytes before = noise(chunk.size(), 6);
      Bytes packed = before;
      const detail::ChunkView into{packed.data(), shape.width, 1};
      detail::bit_packer(isa)(view, m, shape.columns, into);
      ASSERT_EQ(packed, reference_pack_bits(out, view, m, shape.columns, into, before))
          << describe_pack(isa, 0, view, m, shape.columns, into);
    }
}

TEST(copy_kernels, bit_unpackers_match_the_reference) {
  const std::size_t columns[] = {1, 9, 127, 129, 300, 511, 512, 513, 700, 1100};
  for (Isa isa : isas())
    for (std::size_t spc : {1, 2, 3, 4, 5})
      for (std::size_t m : kRows)
        for (std::size_t n : columns)
          for (std::size_t extra : {0, 5}) {
            const ChunkShape shape{n + extra, m + extra, spc, m, n};
            const std::size_t full = (shape.width * spc + 7) / 8 * shape.length;
            for (std::size_t bytes : {full, full / 2 + 1}) {
              const Bytes chunk = noise(bytes, static_cast<unsigned>(m * 31 + n + spc));
              Bytes out(m * n * spc, 0x5A);
              bit_unpacker(isa)(chunk.data(), chunk.size(), shape, reinterpret_cast<bool*>(out.data()));
              ASSERT_EQ(out, reference_unpack_bits(chunk, shape)) << describe(isa, 0, shape, bytes);
            }
          }
}

// Into a part of a larger array: columns `column` elements apart, planes
// `plane` apart, the gaps holding a marker that must survive. The buffer
// ends at the view's last element (rounded up to a line for the aligned
// cases, the rest checked to keep its marker too), so nothing may be written
// past it; starting 64-byte aligned with strides of whole lines lets the
// kernels stream whole lines, which they must then do only inside the view.
TEST(copy_kernels, strided_unpackers_match_the_reference) {
  struct Free {
    void operator()(unsigned char* p) const { std::free(p); }
  };
  // size 0: 1-bit samples into bools.
  const auto check = [](Isa isa, std::size_t size, const ChunkShape& s, std::size_t bytes, std::size_t column,
                        std::size_t plane) {
    const std::size_t es = size == 0 ? 1 : size;
    const std::size_t span = ((s.rows - 1) + (s.columns - 1) * column + (s.samples - 1) * plane + 1) * es;
    const std::size_t allocated = (span + 63) / 64 * 64;
    const std::unique_ptr<unsigned char, Free> out(static_cast<unsigned char*>(std::aligned_alloc(64, allocated)));
    std::memset(out.get(), 0x5A, allocated);
    const Bytes chunk = noise(bytes, static_cast<unsigned>(s.rows * 13 + s.columns + column));
    const Bytes compact = size == 0 ? reference_unpack_bits(chunk, s) : reference_unpack(chunk, s, size);
    Bytes expected(allocated, 0x5A);
    for (std::size_t k = 0; k < s.samples; ++k)
      for (std::size_t c = 0; c < s.columns; ++c)
        std::memcpy(&expected[(c * column + k * plane) * es], &compact[(c * s.rows + k * s.rows * s.columns) * es],
                    s.rows * es);
    if (size == 0)
      strided_bit_unpacker(isa)(chunk.data(), chunk.size(), s, reinterpret_cast<bool*>(out.get()), {column, plane});
    else
      strided_element_unpacker(size, isa)(chunk.data(), chunk.size(), s, out.get(), {column, plane});
    const std::string where = describe(isa, size, s, bytes) + " column " + std::to_string(column) + " plane " +
                              std::to_string(plane);
    ASSERT_EQ(Bytes(out.get(), out.get() + allocated), expected) << where;
  };
  for (Isa isa : isas())
    for (std::size_t size : {0, 1, 2, 4, 8})
      for (std::size_t spc : {1, 3, 4})
        for (std::size_t m : {1, 2, 5, 16, 17, 33, 64, 97})
          for (std::size_t n : {1, 3, 17, 66, 300}) {
            const ChunkShape shape{n + 2, m + 1, spc, m, n};
            const std::size_t full = size == 0 ? (shape.width * spc + 7) / 8 * shape.length
                                               : shape.width * shape.length * spc * size;
            const std::size_t line = 64 / (size == 0 ? 1 : size);
            const std::size_t aligned = (m + line - 1) / line * line;
            // Odd gaps; then whole lines, with the column ending short of
            // its line or filling it.
            for (std::size_t column : {m + 3, aligned + line, aligned})
              for (std::size_t bytes : {full, full / 2 + 1}) {
                check(isa, size, shape, bytes, column, column * n + (column == m + 3 ? 5 : line));
              }
          }
  // Columns 4096 bytes apart, as in a tall image: they share cache sets,
  // and the element kernels go through a buffer of their own.
  for (Isa isa : isas())
    for (std::size_t size : {1, 2, 8})
      for (std::size_t spc : {1, 3})
        for (std::size_t m : {1, 2, 17, 42, 64, 97})
          for (std::size_t n : {5, 66}) {
            const ChunkShape shape{n + 1, m, spc, m, n};
            const std::size_t full = shape.width * m * spc * size;
            const std::size_t column = 4096 / size;
            for (std::size_t bytes : {full, full / 2 + 1}) check(isa, size, shape, bytes, column, column * n + 3);
          }
}

// --- write side ---------------------------------------------------------------

/// A chunk that starts as noise, so that what a packer must leave alone
/// (outside rows x columns) and what it must write (zeros for absent
/// planes) both show.
Bytes reference_pack(const Bytes& src, const detail::HostView& view, std::size_t rows, std::size_t columns,
                     const detail::ChunkView& chunk, Bytes out, std::size_t size) {
  const std::size_t planes = std::min(view.planes, chunk.samples);
  for (std::size_t r = 0; r < rows; ++r)
    for (std::size_t c = 0; c < columns; ++c)
      for (std::size_t k = 0; k < chunk.samples; ++k) {
        unsigned char* dst = &out[((r * chunk.width + c) * chunk.samples + k) * size];
        if (k < planes)
          std::memcpy(dst, &src[(r + c * view.rows + k * view.rows * view.columns) * size], size);
        else
          std::memset(dst, 0, size);
      }
  return out;
}

Bytes reference_pack_bits(const Bytes& src, const detail::HostView& view, std::size_t rows, std::size_t columns,
                          const detail::ChunkView& chunk, Bytes out) {
  const std::size_t planes = std::min(view.planes, chunk.samples);
  const std::size_t rowBytes = (chunk.width * chunk.samples + 7) / 8;
  const std::size_t bits = columns * chunk.samples;
  for (std::size_t r = 0; r < rows; ++r)
    for (std::size_t bit = 0; bit < (bits + 7) / 8 * 8; ++bit) {
      const std::size_t c = bit / chunk.samples, k = bit % chunk.samples;
      // Column stride `rows`: the established quirk of this packer.
      const bool set = bit < bits && k < planes && src[r + c * rows + k * view.rows * view.columns] != 0;
      unsigned char& byte = out[r * rowBytes + bit / 8];
      const auto mask = static_cast<unsigned char>(0x80u >> (bit % 8));
      byte = static_cast<unsigned char>(set ? byte | mask : byte & ~mask);
    }
  return out;
}

std::string describe_pack(Isa isa, std::size_t size, const detail::HostView& v, std::size_t rows,
                          std::size_t columns, const detail::ChunkView& chunk) {
  return (isa == Isa::vector32 ? "32-byte" : "16-byte") + std::string(" size ") + std::to_string(size) +
         " source " + std::to_string(v.rows) + "x" + std::to_string(v.columns) + "x" + std::to_string(v.planes) +
         " rows " + std::to_string(rows) + " columns " + std::to_string(columns) + " width " +
         std::to_string(chunk.width) + " spc " + std::to_string(chunk.samples);
}

TEST(copy_kernels, element_packers_match_the_reference) {
  for (Isa isa : isas())
    for (std::size_t size : {1, 2, 4, 8})
      for (std::size_t spc : {1, 2, 3, 4, 5})
        for (std::size_t rows : kRows)
          for (std::size_t columns : kColumns)
            // Source planes fewer, as many and more than the samples; a
            // source taller than the region (data cut to the chunk) and a
            // chunk wider than it.
            for (std::size_t planes : {std::size_t{1}, spc, spc + 1})
              for (std::size_t extra : {0, 2}) {
                const Bytes src =
                    noise((rows + extra) * columns * planes * size, static_cast<unsigned>(rows + columns));
                const detail::HostView view{src.data(), rows + extra, columns, planes};
                const Bytes before = noise((columns + extra) * (rows + extra) * spc * size, 99);
                Bytes chunk = before;
                const detail::ChunkView out{chunk.data(), columns + extra, spc};
                detail::element_packer(size, spc, isa)(view, rows, columns, out);
                ASSERT_EQ(chunk, reference_pack(src, view, rows, columns, out, before, size))
                    << describe_pack(isa, size, view, rows, columns, out);
              }
}

// Chunks over a megabyte of wide elements are filled in wider blocks.
TEST(copy_kernels, packers_into_large_chunks_match_the_reference) {
  for (Isa isa : isas())
    for (std::size_t size : {4, 8})
      for (std::size_t spc : {1, 3, 5})
        for (std::size_t rows : {9, 67})
          for (std::size_t planes : {std::size_t{1}, spc + 1}) {
            const std::size_t columns = 3001, width = columns + 2;
            const Bytes src = noise(rows * columns * planes * size, static_cast<unsigned>(rows + spc));
            const detail::HostView view{src.data(), rows, columns, planes};
            const Bytes before = noise(width * rows * spc * size, 17);
            Bytes chunk = before;
            const detail::ChunkView out{chunk.data(), width, spc};
            detail::element_packer(size, spc, isa)(view, rows, columns, out);
            ASSERT_EQ(chunk, reference_pack(src, view, rows, columns, out, before, size))
                << describe_pack(isa, size, view, rows, columns, out);
          }
}

TEST(copy_kernels, bit_packers_match_the_reference) {
  const std::size_t columns[] = {1, 9, 127, 129, 300, 511, 512, 513, 700, 1100};
  for (Isa isa : isas())
    for (std::size_t spc : {1, 2, 3, 4, 5})
      for (std::size_t rows : kRows)
        for (std::size_t n : columns)
          for (std::size_t planes : {std::size_t{1}, spc, spc + 1})
            for (std::size_t extra : {0, 9}) {
              Bytes src = noise((rows + extra) * n * planes, static_cast<unsigned>(rows * 3 + n));
              for (auto& b : src) b = b < 100 ? 0 : b;  // zeros among nonzero values of every size
              const detail::HostView view{src.data(), rows + extra, n, planes};
              const Bytes before = noise((rows + extra) * detail::bit_row_bytes(n + extra, spc), 7);
              Bytes chunk = before;
              const detail::ChunkView out{chunk.data(), n + extra, spc};
              detail::bit_packer(isa)(view, rows, n, out);
              ASSERT_EQ(chunk, reference_pack_bits(src, view, rows, n, out, before))
                  << describe_pack(isa, 0, view, rows, n, out);
            }
}

// --- host arrays of whole cache lines, and YCbCr units -------------------------

/// An array as the hosts allocate them: 64-byte aligned, exactly `bytes`
/// long (a multiple of 64), so that the sanitizers see any access past it.
class AlignedBytes {
 public:
  explicit AlignedBytes(std::size_t bytes)
      : size_(bytes), data_(static_cast<unsigned char*>(std::aligned_alloc(64, bytes))) {
    std::memset(data_.get(), 0x5A, bytes);
  }
  unsigned char* data() const { return data_.get(); }
  Bytes bytes() const { return Bytes(data_.get(), data_.get() + size_); }

 private:
  struct Free {
    void operator()(unsigned char* p) const noexcept { std::free(p); }
  };
  std::size_t size_;
  std::unique_ptr<unsigned char, Free> data_;
};

// Columns of whole aligned 64-byte lines are written with streaming stores,
// a band of rows at a time, and chunks over a megabyte in groups of rows;
// a chunk cut short falls back to the other loops.
TEST(copy_kernels, unpackers_into_whole_lines_match_the_reference) {
  for (Isa isa : isas())
    for (std::size_t size : {1, 2, 4, 8})
      for (std::size_t spc : {1, 3, 5})
        for (std::size_t m : {64, 128})
          for (std::size_t n : {5, 47, 700})
            for (std::size_t extra : {0, 3}) {
              const ChunkShape shape{n + extra, m + extra, spc, m, n};
              const std::size_t full = shape.width * shape.length * spc * size;
              for (std::size_t bytes : {full, full / 2 + 1}) {
                const Bytes chunk = noise(bytes, static_cast<unsigned>(m + n * 3 + spc));
                AlignedBytes out(m * n * spc * size);
                element_unpacker(size, isa)(chunk.data(), chunk.size(), shape, out.data());
                ASSERT_EQ(out.bytes(), reference_unpack(chunk, shape, size)) << describe(isa, size, shape, bytes);
              }
            }
}

/// Y (M x N), then Cb and Cr (ceil(M / v) x ceil(N / h)), column-major.
Bytes reference_unpack_ycbcr(const Bytes& chunk, const ChunkShape& s, detail::Subsampling f, std::size_t size) {
  const std::size_t h = f.horizontal, v = f.vertical, m = s.rows, n = s.columns;
  const std::size_t cm = (m + v - 1) / v, cn = (n + h - 1) / h, unit = (h * v + 2) * size;
  const std::size_t stride = (s.width + h - 1) / h * unit;
  const std::size_t kept = whole_rows(chunk.size(), stride, cn * unit, cm);
  Bytes out((m * n + 2 * cm * cn) * size, 0);
  unsigned char* cb = &out[m * n * size];
  unsigned char* cr = cb + cm * cn * size;
  for (std::size_t ur = 0; ur < kept; ++ur)
    for (std::size_t uc = 0; uc < cn; ++uc) {
      const unsigned char* src = &chunk[ur * stride + uc * unit];
      for (std::size_t kv = 0; kv < v; ++kv)
        for (std::size_t kh = 0; kh < h; ++kh)
          if (ur * v + kv < m && uc * h + kh < n)
            std::memcpy(&out[(ur * v + kv + (uc * h + kh) * m) * size], src + (kv * h + kh) * size, size);
      std::memcpy(cb + (ur + uc * cm) * size, src + h * v * size, size);
      std::memcpy(cr + (ur + uc * cm) * size, src + (h * v + 1) * size, size);
    }
  return out;
}

/// Units over rows x columns; Y read clamped to its own extent.
Bytes reference_pack_ycbcr(const Bytes& planes, std::size_t rows, std::size_t columns, detail::Subsampling f,
                           std::size_t width, Bytes out, std::size_t size) {
  const std::size_t h = f.horizontal, v = f.vertical;
  const std::size_t cm = (rows + v - 1) / v, cn = (columns + h - 1) / h, unit = (h * v + 2) * size;
  const std::size_t stride = (width + h - 1) / h * unit;
  const unsigned char* cb = &planes[rows * columns * size];
  const unsigned char* cr = cb + cm * cn * size;
  for (std::size_t ur = 0; ur < cm; ++ur)
    for (std::size_t uc = 0; uc < cn; ++uc) {
      unsigned char* dst = &out[ur * stride + uc * unit];
      for (std::size_t kv = 0; kv < v; ++kv)
        for (std::size_t kh = 0; kh < h; ++kh) {
          const std::size_t r = std::min(ur * v + kv, rows - 1), c = std::min(uc * h + kh, columns - 1);
          std::memcpy(dst + (kv * h + kh) * size, &planes[(r + c * rows) * size], size);
        }
      std::memcpy(dst + h * v * size, cb + (ur + uc * cm) * size, size);
      std::memcpy(dst + (h * v + 1) * size, cr + (ur + uc * cm) * size, size);
    }
  return out;
}

// Every factor from 1 to 4 both ways (1, 2 and 4 have builds of their own,
// 3 takes the general loops), units cut at the right and bottom edges, and
// short chunks; then the unpacked planes packed again.
TEST(copy_kernels, ycbcr_kernels_match_the_reference) {
  for (std::size_t size : {1, 2, 4, 8})
    for (std::size_t h : {1, 2, 3, 4})
      for (std::size_t v : {1, 2, 3, 4})
        for (std::size_t m : {1, 3, 8, 9, 17, 33})
          for (std::size_t n : {1, 2, 5, 9, 17})
            for (std::size_t extra : {0, 3}) {
              const detail::Subsampling f{h, v};
              const ChunkShape shape{n + extra, m + extra, 3, m, n};
              const std::size_t full = detail::ycbcr_chunk_bytes(shape.width, shape.length, f, size);
              const std::size_t cm = (m + v - 1) / v, cn = (n + h - 1) / h;
              for (std::size_t bytes : {full, full / 2 + 1}) {
                const Bytes chunk = noise(bytes, static_cast<unsigned>(m * 7 + n + h * 3 + v));
                Bytes out((m * n + 2 * cm * cn) * size, 0x5A);
                unsigned char* cb = &out[m * n * size];
                ycbcr_unpacker(size)(chunk.data(), chunk.size(), shape, f, out.data(), cb, cb + cm * cn * size);
                const std::string what = describe(Isa::vector16, size, shape, bytes) + " h" + std::to_string(h) +
                                         " v" + std::to_string(v);
                ASSERT_EQ(out, reference_unpack_ycbcr(chunk, shape, f, size)) << what;

                const Bytes before = noise(full, 3);
                Bytes packed = before;
                detail::ycbcr_packer(size)({out.data(), m, n, 1}, {cb, cm, cn, 1}, {cb + cm * cn * size, cm, cn, 1},
                                           m, n, f, {packed.data(), shape.width, 3});
                ASSERT_EQ(packed, reference_pack_ycbcr(out, m, n, f, shape.width, before, size)) << what;
              }
            }
}

}  // namespace
}  // namespace tiffgate
