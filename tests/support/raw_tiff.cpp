#include "support/raw_tiff.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace tiffgate::testing {
namespace {

void put(std::vector<unsigned char>& out, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

}  // namespace

void write_raw_tiff(const std::string& path, std::vector<RawEntry> entries) {
  std::sort(entries.begin(), entries.end(), [](const RawEntry& a, const RawEntry& b) { return a.tag < b.tag; });
  std::vector<unsigned char> bytes = {'I', 'I', 42, 0};
  put(bytes, 8, 4);
  put(bytes, entries.size(), 2);
  for (const RawEntry& e : entries) {
    put(bytes, e.tag, 2);
    put(bytes, e.type, 2);
    put(bytes, 1, 4);
    put(bytes, e.value, e.type == 3 ? 2 : 4);
    if (e.type == 3) put(bytes, 0, 2);
  }
  put(bytes, 0, 4);  // no next directory
  bytes.resize(bytes.size() + 256, 0);
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

}  // namespace tiffgate::testing
