// The copy kernels alone, one chunk at a time, against a memcpy of the same
// bytes between the same two buffers.

#include "bench/bench.h"
#include "imagedata/pack_kernels.h"
#include "imagedata/unpack_kernels.h"

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
  explicit Buffer(std::size_t bytes) : size_(bytes), data_(static_cast<unsigned char*>(std::aligned_alloc(64, (bytes + 63) / 64 * 64))) {
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

/// A copy of `bytes` bytes between two buffers of that size.
std::string memcpy_floor(std::size_t bytes) {
  auto from = std::make_shared<Buffer>(bytes);
  auto to = std::make_shared<Buffer>(bytes);
  return each("memcpy/" + std::to_string(bytes), [from, to] {
    std::memcpy(to->data(), from->data(), from->size());
    benchmark::ClobberMemory();
  });
}

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
  const std::string floor = memcpy_floor(bytes);
  const std::string what = std::string(type_name(size)) + (samples == 1 ? " separate" : " x" + std::to_string(samples)) +
                           ", " + geometry_text(g) + (isa == Isa::vector16 ? ", 16-byte" : "");
  const std::string key = std::string(type_name(size)) + "x" + std::to_string(samples) + "/" + g.name + "/" +
                          std::to_string(g.width) + "x" + std::to_string(g.length) + "/v" + isa_name(isa);

  auto chunk = std::make_shared<Buffer>(bytes);
  auto out = std::make_shared<Buffer>(bytes);
  const ChunkShape shape{g.width, g.length, samples, g.length, g.width};
  const ElementUnpacker unpack = element_unpacker(size, isa);
  add_row(section, "read " + what, each("kernel/read/" + key, [=] {
             unpack(chunk->data(), chunk->size(), shape, out->data());
             benchmark::ClobberMemory();
           }),
           floor, target);

  const detail::ElementPacker pack = detail::element_packer(size, samples, isa);
  const detail::HostView view{out->data(), g.length, g.width, samples};
  const detail::ChunkView into{chunk->data(), g.width, samples};
  add_row(section, "write " + what, each("kernel/write/" + key, [=] {
             pack(view, g.length, g.width, into);
             benchmark::ClobberMemory();
           }),
           floor, target);
}

/// 1-bit samples: the floor is a memcpy of the logical array's bytes.
void bit_rows(const char* section, Isa isa, const Geometry& g, double target) {
  const std::size_t logical = g.width * g.length;
  const std::string floor = memcpy_floor(logical);
  const std::string key = std::string(g.name) + "/v" + isa_name(isa);
  const std::string what = "1-bit, " + geometry_text(g) + (isa == Isa::vector16 ? ", 16-byte" : "");
  auto chunk = std::make_shared<Buffer>(detail::bit_chunk_bytes(g.width, g.length, 1));
  auto out = std::make_shared<Buffer>(logical);
  const ChunkShape shape{g.width, g.length, 1, g.length, g.width};
  const BitUnpacker unpack = bit_unpacker(isa);
  add_row(section, "read " + what, each("kernel/read/bits/" + key, [=] {
             unpack(chunk->data(), chunk->size(), shape, reinterpret_cast<bool*>(out->data()));
             benchmark::ClobberMemory();
           }),
           floor, target);
  const detail::BitPacker pack = detail::bit_packer(isa);
  for (std::size_t i = 0; i < logical; ++i) out->data()[i] &= 1;
  const detail::HostView view{out->data(), g.length, g.width, 1};
  const detail::ChunkView into{chunk->data(), g.width, 1};
  add_row(section, "write " + what, each("kernel/write/bits/" + key, [=] {
             pack(view, g.length, g.width, into);
             benchmark::ClobberMemory();
           }),
           floor, target);
}

/// 8-bit YCbCr with 2 x 2 subsampling: the floor copies the chunk's bytes.
void ycbcr_rows(const char* section, const Geometry& g) {
  const std::size_t units = g.width / 2 * (g.length / 2);
  const std::string floor = memcpy_floor(units * 6);
  auto chunk = std::make_shared<Buffer>(units * 6);
  auto y = std::make_shared<Buffer>(g.width * g.length);
  auto cb = std::make_shared<Buffer>(units);
  auto cr = std::make_shared<Buffer>(units);
  const ChunkShape shape{g.width, g.length, 3, g.length, g.width};
  const YCbCrUnpacker unpack = ycbcr_unpacker(1);
  const std::string what = "uint8 YCbCr 2x2, " + geometry_text(g);
  add_row(section, "read " + what, each(std::string("kernel/read/ycbcr/") + g.name, [=] {
             unpack(chunk->data(), chunk->size(), shape, {2, 2}, y->data(), cb->data(), cr->data());
             benchmark::ClobberMemory();
           }),
           floor);
  const detail::YCbCrPacker pack = detail::ycbcr_packer(1);
  const detail::HostView yv{y->data(), g.length, g.width, 1};
  const detail::HostView cbv{cb->data(), g.length / 2, g.width / 2, 1};
  const detail::HostView crv{cr->data(), g.length / 2, g.width / 2, 1};
  const detail::ChunkView into{chunk->data(), g.width, 3};
  add_row(section, "write " + what, each(std::string("kernel/write/ycbcr/") + g.name, [=] {
             pack(yv, cbv, crv, g.length, g.width, {2, 2}, into);
             benchmark::ClobberMemory();
           }),
           floor);
}

}  // namespace

void register_kernel_benchmarks() {
  const char* section = "copy kernels, one chunk: ratio to a memcpy of the same bytes";
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
