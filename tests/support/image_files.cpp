#include "support/image_files.h"

#include "support/tiff_files.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace tiffgate::testing {
namespace {

std::uint32_t ceil_div(std::uint32_t a, std::uint32_t b) { return (a + b - 1) / b; }

/// Fills bytes with count elements of `size` bytes each, in the host's
/// (little-endian) order, taken from next() one after another.
template <class Next>
void fill(std::vector<unsigned char>& bytes, std::size_t count, std::size_t size, Next next) {
  bytes.resize(count * size);
  unsigned char* out = bytes.data();
  for (std::size_t i = 0; i < count; ++i, out += size) {
    const std::uint64_t value = next();
    std::memcpy(out, &value, size);
  }
}

struct Tags {
  std::uint32_t width = 0, length = 0;
  std::uint16_t bits = 1, samples = 1, planar = 1, photometric = 0, h = 1, v = 1;
  bool ycbcr() const { return photometric == PHOTOMETRIC_YCBCR && planar == PLANARCONFIG_CONTIG; }
  std::size_t element() const { return bits == 1 ? 1 : bits / 8u; }
  std::uint16_t spc() const { return planar == PLANARCONFIG_SEPARATE ? 1 : samples; }
};

Tags tags_of(TIFF* tif) {
  Tags t;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &t.width);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &t.length);
  TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &t.photometric);
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &t.bits);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &t.samples);
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &t.planar);
  if (t.photometric == PHOTOMETRIC_YCBCR) TIFFGetFieldDefaulted(tif, TIFFTAG_YCBCRSUBSAMPLING, &t.h, &t.v);
  return t;
}

/// The arrays of one chunk from a function of (output, row, column, sample)
/// in chunk coordinates, in the order the read commands lay them out.
template <class Value>
std::vector<Expected> arrange(const Tags& t, const ChunkPlace& p, Value value) {
  const std::size_t es = t.element();
  if (t.ycbcr()) {  // Y, then Cb and Cr with their extents rounded up
    std::vector<Expected> out;
    for (unsigned plane = 0; plane < 3; ++plane) {
      const std::uint32_t m = plane ? ceil_div(p.rows, t.v) : p.rows, n = plane ? ceil_div(p.columns, t.h) : p.columns;
      Expected e{{m, n}, {}};
      std::uint32_t r = 0, c = 0;  // column-major: rows run fastest
      fill(e.bytes, std::size_t{m} * n, es, [&] {
        const std::uint64_t v = value(plane, r, c);
        if (++r == m) r = 0, ++c;
        return v;
      });
      out.push_back(e);
    }
    return out;
  }
  Expected e{{p.rows, p.columns}, {}};
  if (t.planar == PLANARCONFIG_CONTIG && t.samples > 1) e.dims.push_back(t.samples);
  std::uint32_t r = 0, c = 0;
  unsigned k = 0;
  fill(e.bytes, std::size_t{p.rows} * p.columns * t.spc(), es, [&] {
    const std::uint64_t v = value(k, r, c);
    if (++r == p.rows) r = 0, ++c;
    if (c == p.columns) c = 0, ++k;
    return v;
  });
  return {e};
}

}  // namespace

std::uint64_t pattern(const ImageSpec& image_spec, std::uint32_t row, std::uint32_t column, std::uint16_t k) {
  if (image_spec.bits == 1) return (row * 7 + column * 3 + k) % 5 < 2;
  // JPEG is lossy: a smooth ramp keeps the decode close to it.
  if (image_spec.compression == COMPRESSION_JPEG) return (row * 4 + column * 2 + k * 40) & 0xFF;
  const std::uint64_t mixed = (row * 1000003ull + column * 7919ull + k * 104729ull + 12345) * 0x9E3779B97F4A7C15ull;
  return image_spec.bits == 64 ? mixed : mixed & ((1ull << image_spec.bits) - 1);
}

ChunkPlace chunk_place(TIFF* tif, std::uint32_t index) {
  const Tags t = tags_of(tif);
  ChunkPlace p;
  std::uint32_t perPlane = 0, across = 1;
  if (TIFFIsTiled(tif)) {
    TIFFGetField(tif, TIFFTAG_TILEWIDTH, &p.width);
    TIFFGetField(tif, TIFFTAG_TILELENGTH, &p.length);
    across = ceil_div(t.width, p.width);
    perPlane = across * ceil_div(t.length, p.length);
  } else {
    std::uint32_t rps = 0;
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rps);
    p.width = t.width;
    p.length = std::min(rps, t.length);
    perPlane = ceil_div(t.length, p.length);
  }
  const std::uint32_t inPlane = index % perPlane;
  p.plane = static_cast<std::uint16_t>(index / perPlane);
  p.row0 = inPlane / across * p.length;
  p.column0 = inPlane % across * p.width;
  p.rows = std::min(p.length, t.length - p.row0);
  p.columns = std::min(p.width, t.width - p.column0);
  return p;
}

void write_image(const std::string& path, const ImageSpec& s) {
  TiffHandle out(path, "w");
  ImageSpec tags = s;
  if (!tags.tileWidth && !tags.rowsPerStrip) tags.rowsPerStrip = tags.length;
  set_image_tags(out, tags);

  const Tags t = tags_of(out);
  const bool tiled = s.tileWidth != 0;
  const std::uint32_t count = tiled ? TIFFNumberOfTiles(out) : TIFFNumberOfStrips(out);
  const tmsize_t size = tiled ? TIFFTileSize(out) : TIFFStripSize(out);
  const std::size_t es = t.element();
  for (std::uint32_t i = 0; i < count; ++i) {
    const ChunkPlace p = chunk_place(out, i);
    std::vector<unsigned char> chunk(static_cast<std::size_t>(size));
    auto put = [&](std::size_t element, std::uint64_t value) {
      if ((element + 1) * es > chunk.size()) throw std::logic_error("pattern outside the chunk");
      std::memcpy(chunk.data() + element * es, &value, es);
    };
    if (t.ycbcr()) {
      // Data units: h x v luma samples row by row, then Cb and Cr.
      const std::uint32_t h = t.h, v = t.v, upr = ceil_div(p.width, h), unit = h * v + 2;
      const std::uint32_t cm = ceil_div(t.length, v), cn = ceil_div(t.width, h);
      for (std::uint32_t ur = 0; ur < ceil_div(p.length, v); ++ur)
        for (std::uint32_t uc = 0; uc < upr; ++uc) {
          const std::size_t base = (ur * upr + uc) * unit;
          for (std::uint32_t k = 0; k < h * v; ++k) {
            const std::uint32_t r = p.row0 + ur * v + k / h, c = p.column0 + uc * h + k % h;
            if (r < t.length && c < t.width) put(base + k, pattern(s, r, c, 0));
          }
          const std::uint32_t cr = p.row0 / v + ur, cc = p.column0 / h + uc;
          if (cr < cm && cc < cn) {
            put(base + h * v, pattern(s, cr, cc, 1));
            put(base + h * v + 1, pattern(s, cr, cc, 2));
          }
        }
    } else {
      const std::size_t rowBits = (std::size_t{p.width} * t.spc() + 7) / 8 * 8;
      for (std::uint32_t r = 0; r < p.rows; ++r)
        for (std::uint32_t c = 0; c < p.columns; ++c)
          for (std::uint16_t k = 0; k < t.spc(); ++k) {
            const std::uint64_t value = pattern(s, p.row0 + r, p.column0 + c, p.plane + k);
            if (s.bits != 1) {
              put((std::size_t{r} * p.width + c) * t.spc() + k, value);
            } else if (value) {
              const std::size_t bit = r * rowBits + std::size_t{c} * t.spc() + k;
              chunk.at(bit / 8) |= static_cast<unsigned char>(0x80 >> (bit % 8));
            }
          }
    }
    // Only the rows of a short last strip: libtiff's JPEG coder refuses more
    // rows than the strip has with 2 x 1 subsampling.
    const tmsize_t written = tiled ? TIFFWriteEncodedTile(out, i, chunk.data(), size)
                                   : TIFFWriteEncodedStrip(out, i, chunk.data(), TIFFVStripSize(out, p.rows));
    if (written < 0) throw std::runtime_error("libtiff could not write chunk of " + path);
  }
}

tmsize_t read_libtiff_chunk(TIFF* tif, std::uint32_t index, std::vector<unsigned char>& chunk) {
  const bool tiled = TIFFIsTiled(tif);
  const tmsize_t size = tiled ? TIFFTileSize(tif) : TIFFStripSize(tif);
  chunk.assign(static_cast<std::size_t>(std::max<tmsize_t>(size, 0)), 0);
  return tiled ? TIFFReadEncodedTile(tif, index, chunk.data(), size)
               : TIFFReadEncodedStrip(tif, index, chunk.data(), size);
}

std::vector<unsigned char> decoded_chunk(TIFF* tif, std::uint32_t index) {
  std::vector<unsigned char> chunk;
  read_libtiff_chunk(tif, index, chunk);
  return chunk;
}

std::vector<Expected> libtiff_chunk(TIFF* tif, std::uint32_t index) {
  std::vector<unsigned char> chunk;
  read_libtiff_chunk(tif, index, chunk);
  return arrange_libtiff_chunk(tif, index, chunk);
}

std::vector<Expected> arrange_libtiff_chunk(TIFF* tif, std::uint32_t index, const std::vector<unsigned char>& chunk) {
  const Tags t = tags_of(tif);
  const ChunkPlace p = chunk_place(tif, index);
  const std::size_t es = t.element();
  auto element = [&](std::size_t offset) {
    std::uint64_t value = 0;
    if (offset + es <= chunk.size()) std::memcpy(&value, chunk.data() + offset, es);
    return value;
  };
  if (t.ycbcr()) {
    const std::size_t upr = ceil_div(p.width, t.h), unit = (t.h * t.v + 2u) * es;
    return arrange(t, p, [&](unsigned plane, std::uint32_t r, std::uint32_t c) {
      if (plane == 0) return element(((r / t.v) * upr + c / t.h) * unit + ((r % t.v) * t.h + c % t.h) * es);
      return element((r * upr + c) * unit + (t.h * t.v + plane - 1u) * es);
    });
  }
  const std::size_t rowBytes = (std::size_t{p.width} * t.spc() + 7) / 8;
  return arrange(t, p, [&](unsigned k, std::uint32_t r, std::uint32_t c) -> std::uint64_t {
    if (t.bits == 1) {
      const std::size_t bit = r * rowBytes * 8 + std::size_t{c} * t.spc() + k;
      return bit / 8 < chunk.size() ? (chunk[bit / 8] >> (7 - bit % 8)) & 1 : 0;
    }
    return element(((std::size_t{r} * p.width + c) * t.spc() + k) * es);
  });
}

std::string compare_outputs(const embedded::CallResult& result, const std::vector<Expected>& expected) {
  if (!result.ok()) return "error " + result.error_id();
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const std::string which = "output " + std::to_string(i);
    if (i >= result.outputs.size() || !result.outputs[i]) return which + " missing";
    const embedded::Array& a = *result.outputs[i];
    if (a.dims() != expected[i].dims || a.byte_size() != expected[i].bytes.size()) return which + ": other dims";
    const auto* bytes = static_cast<const unsigned char*>(a.data());
    const auto diff = std::mismatch(expected[i].bytes.begin(), expected[i].bytes.end(), bytes).first;
    if (diff != expected[i].bytes.end()) return which + " differs at byte " + std::to_string(diff - expected[i].bytes.begin());
  }
  return {};
}

}  // namespace tiffgate::testing
