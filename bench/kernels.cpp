// The copy kernels alone, one chunk at a time, against a memcpy of the same
// bytes between the same places. The chunk side is one buffer, as libtiff's
// is; the host side moves on to the next chunk-sized slot of a region as
// large as the image (at most 64 MiB) with every call, as the arrays of a
// whole-image read or write do, so that in full mode it is not in a cache.

#include "bench/bench.h"
#include "imagedata/pack_kernels.h"
#include "imagedata/unpack_kernels.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace tiffgate::bench {
namespace {

using detail::Isa;

/// A 64-byte aligned buffer, as the embedded host gives its arrays, filled
/// with a pattern so that no page is left untouched.
class Buffer {
 public:
  explicit Buffer(std::size_t bytes)
      : size_(bytes), data_(static_cast<unsigned char*>(std::aligned_alloc(64, (bytes + 63) / 64 * 64))) {
    if (!data_) std::abort();
    for (std::size_t i = 0; i < bytes; ++i) data_.get()[i] = static_cast<unsigned char>(i * 2654435761u >> 13);
  }
  unsigned char* data() const { return data_.get(); }
  std::size_t size() const { return size_; }

 private:
  struct Free {
    void operator()(unsigned char* p) const noexcept { std::free(p); }
  };
  std::size_t size_;
  std::unique_ptr<unsigned char, Free> data_;
};

constexpr std::size_t kRegionLimit = std::size_t{64} << 20;

/// The host side's region, shared by every benchmark (they run one at a
/// time): each call takes the next slot of one chunk's size.
class Slots {
 public:
  Slots(std::size_t slotBytes, std::size_t imageBytes)
      : bytes_(slotBytes), count_(std::max<std::size_t>(1, std::min(imageBytes, kRegionLimit) / slotBytes)) {}
  unsigned char* next() {
    static const Buffer region(kRegionLimit);
    if (++at_ == count_) at_ = 0;
    return region.data() + at_ * bytes_;
  }

 private:
  std::size_t bytes_, count_, at_ = 0;
};

/// A copy of `bytes` between the chunk buffer and the host side's slots,
/// into them (read) or out of them (write).
std::string memcpy_floor(std::size_t bytes, std::size_t imageBytes, bool read) {
  if (bytes > kRegionLimit) std::abort();
  auto chunk = std::make_shared<Buffer>(bytes);
  auto slots = std::make_shared<Slots>(bytes, imageBytes);
  const std::string name = (read ? "memcpy/in/" : "memcpy/out/") + std::to_string(bytes) + "/" +
                           std::to_string(std::min(imageBytes, kRegionLimit));
  return each(name, [chunk, slots, read] {
    unsigned char* host = slots->next();
    if (read)
      std::memcpy(host, chunk->data(), chunk->size());
    else
      std::memcpy(chunk->data(), host, chunk->size());
    benchmark::ClobberMemory();
  });
}

std::size_t image_bytes(std::size_t perPixel) { return std::size_t{mode().size} * mode().size * perPixel; }

const char* type_name(std::size_t bytes) {
  switch (bytes) {
    case 1: return "uint8";
    case 2: return "uint16";
    case 4: return "uint32";
    default: return "uint64";
  }
}

const char* isa_name(Isa isa) { return isa == Isa::vector32 ? "32" : "16"; }

struct Geometry {
  const char* name;
  std::size_t width, length;
};

std::string geometry_text(const Geometry& g) {
  return std::string(g.name) + " " + std::to_string(g.width) + "x" + std::to_string(g.length);
}

/// Read and write rows for one element width, sample count and chunk shape.
void element_rows(const char* section, Isa isa, std::size_t size, std::size_t samples, const Geometry& g,
                  double target) {
  const std::size_t bytes = g.width * g.length * samples * size;
  const std::size_t image = image_bytes(samples * size);
  const std::string what = std::string(type_name(size)) +
                           (samples == 1 ? " separate" : " x" + std::to_string(samples)) +
                           ", " + geometry_text(g) + (isa == Isa::vector16 ? ", 16-byte" : "");
  const std::string key = std::string(type_name(size)) + "x" + std::to_string(samples) + "/" + g.name + "/" +
                          std::to_string(g.width) + "x" + std::to_string(g.length) + "/v" + isa_name(isa);

  auto chunk = std::make_shared<Buffer>(bytes);
  auto slots = std::make_shared<Slots>(bytes, image);
  const ChunkShape shape{g.width, g.length, samples, g.length, g.width};
  const ElementUnpacker unpack = element_unpacker(size, isa);
  add_row(section, "read " + what, each("kernel/read/" + key, [=] {
             unpack(chunk->data(), chunk->size(), shape, slots->next());
             benchmark::ClobberMemory();
           }),
           memcpy_floor(bytes, image, true), target);

  const detail::ElementPacker pack = detail::element_packer(size, samples, isa);
  const detail::ChunkView into{chunk->data(), g.width, samples};
  add_row(section, "write " + what, each("kernel/write/" + key, [=] {
             pack({slots->next(), g.length, g.width, samples}, g.length, g.width, into);
             benchmark::ClobberMemory();
           }),
           memcpy_floor(bytes, image, false), target);
}

/// 1-bit samples: the floor is a memcpy of the logical array's bytes.
void bit_rows(const char* section, Isa isa, const Geometry& g, double target) {
  const std::size_t logical = g.width * g.length;
  const std::size_t image = image_bytes(1);
  const std::string key = std::string(g.name) + "/v" + isa_name(isa);
  const std::string what = "1-bit, " + geometry_text(g) + (isa == Isa::vector16 ? ", 16-byte" : "");
  auto chunk = std::make_shared<Buffer>(detail::bit_chunk_bytes(g.width, g.length, 1));
  auto slots = std::make_shared<Slots>(logical, image);
  const ChunkShape shape{g.width, g.length, 1, g.length, g.width};
  const BitUnpacker unpack = bit_unpacker(isa);
  add_row(section, "read " + what, each("kernel/read/bits/" + key, [=] {
             unpack(chunk->data(), chunk->size(), shape, reinterpret_cast<bool*>(slots->next()));
             benchmark::ClobberMemory();
           }),
           memcpy_floor(logical, image, true), target);
  // The packer reads the slots as logical values: any byte but 0 is set.
  const detail::BitPacker pack = detail::bit_packer(isa);
  const detail::ChunkView into{chunk->data(), g.width, 1};
  add_row(section, "write " + what, each("kernel/write/bits/" + key, [=] {
             pack({slots->next(), g.length, g.width, 1}, g.length, g.width, into);
             benchmark::ClobberMemory();
           }),
           memcpy_floor(logical, image, false), target);
}

/// 8-bit YCbCr with 2 x 2 subsampling: the floor copies the chunk's bytes.
void ycbcr_rows(const char* section, const Geometry& g) {
  const std::size_t units = g.width / 2 * (g.length / 2);
  const std::size_t image = image_bytes(1) * 3 / 2;
  auto chunk = std::make_shared<Buffer>(units * 6);
  auto slots = std::make_shared<Slots>(units * 6, image);  // Y, Cb and Cr one after the other
  const ChunkShape shape{g.width, g.length, 3, g.length, g.width};
  const YCbCrUnpacker unpack = ycbcr_unpacker(1);
  const std::string what = "uint8 YCbCr 2x2, " + geometry_text(g);
  const std::size_t lumaBytes = g.width * g.length;
  add_row(section, "read " + what, each(std::string("kernel/read/ycbcr/") + g.name, [=] {
             unsigned char* y = slots->next();
             unpack(chunk->data(), chunk->size(), shape, {2, 2}, y, y + lumaBytes, y + lumaBytes + units);
             benchmark::ClobberMemory();
           }),
           memcpy_floor(units * 6, image, true));
  const detail::YCbCrPacker pack = detail::ycbcr_packer(1);
  const detail::ChunkView into{chunk->data(), g.width, 3};
  add_row(section, "write " + what, each(std::string("kernel/write/ycbcr/") + g.name, [=] {
             const unsigned char* y = slots->next();
             pack({y, g.length, g.width, 1}, {y + lumaBytes, g.length / 2, g.width / 2, 1},
                  {y + lumaBytes + units, g.length / 2, g.width / 2, 1}, g.length, g.width, {2, 2}, into);
             benchmark::ClobberMemory();
           }),
           memcpy_floor(units * 6, image, false));
}

}  // namespace

void register_kernel_benchmarks() {
  const char* section = "copy kernels, one chunk a call: ratio to a memcpy of the same bytes";
  const Mode& m = mode();
  const Geometry strip{"strip", m.size, m.rowsPerStrip};
  const Geometry tile{"tile", m.tile, m.tile};
  const Isa best = detail::best_isa();
  for (const Geometry& g : {strip, tile})
    for (std::size_t size : {1, 2, 4, 8})
      for (std::size_t samples : {1, 3, 4})
        // 8-bit: at most 3 times a memcpy; 16-bit and wider: 2 times.
        element_rows(section, best, size, samples, g, size == 1 ? 3 : 2);
  for (const Geometry& g : {strip, tile}) bit_rows(section, best, g, 3);
  ycbcr_rows(section, strip);
  // Libtiff's default strip for a wide RGB image is a single row.
  element_rows(section, best, 1, 3, {"strip", m.size, 1}, 3);
  // The baseline build, where the processor offers more.
  if (best != Isa::vector16) {
    for (const Geometry& g : {strip, tile}) {
      element_rows(section, Isa::vector16, 1, 3, g, 3);
      element_rows(section, Isa::vector16, 2, 1, g, 2);
    }
    bit_rows(section, Isa::vector16, strip, 3);
  }
}

}  // namespace tiffgate::bench
