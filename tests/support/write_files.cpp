#include "support/write_files.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace tiffgate::testing {

ModuleFile::ModuleFile(const std::string& path, const char* mode) : id_(open_file(path, mode)) {
  open_ = id_.at<std::uint64_t>(0) != 0;
  if (!open_) throw std::runtime_error("the module could not open " + path);
}

ModuleFile::~ModuleFile() {
  if (open_) embedded::call("close", {id_});
}

embedded::CallResult ModuleFile::write(bool tiled, embedded::Array chunk, std::vector<embedded::Array> images) const {
  images.insert(images.begin(), {id_, std::move(chunk)});
  return embedded::call(tiled ? "writeEncodedTile" : "writeEncodedStrip", std::move(images));
}

embedded::CallResult ModuleFile::set(double tag, embedded::Array value) const {
  return embedded::call("setField", {id_, embedded::Array::scalar(tag), std::move(value)});
}

embedded::CallResult ModuleFile::get(double tag) const {
  return embedded::call("getField", {id_, embedded::Array::scalar(tag)});
}

void ModuleFile::close() {
  if (!open_) return;
  open_ = false;
  const auto result = embedded::call("close", {id_});
  if (!result.ok()) throw std::runtime_error("close failed: " + result.error_id());
}

embedded::Array host_array(zvClassID cls, std::vector<std::size_t> dims,
                           const std::function<double(std::size_t, std::size_t, std::size_t)>& value) {
  const auto as = [&](auto zero) {
    using T = decltype(zero);
    return host_array<T>(cls, std::move(dims), [&](std::size_t r, std::size_t c, std::size_t k) {
      return static_cast<T>(value(r, c, k));
    });
  };
  switch (cls) {
    case zvLOGICAL_CLASS: return as(std::uint8_t{});  // one byte each, as the host's logicals
    case zvINT8_CLASS: return as(std::int8_t{});
    case zvUINT8_CLASS: return as(std::uint8_t{});
    case zvINT16_CLASS: return as(std::int16_t{});
    case zvUINT16_CLASS: return as(std::uint16_t{});
    case zvINT32_CLASS: return as(std::int32_t{});
    case zvUINT32_CLASS: return as(std::uint32_t{});
    case zvSINGLE_CLASS: return as(float{});
    case zvDOUBLE_CLASS: return as(double{});
    default: throw std::logic_error("host_array: not a numeric class");
  }
}

embedded::Array part_of(const embedded::Array& a, std::size_t row0, std::size_t column0, std::size_t rows,
                        std::size_t columns) {
  std::vector<std::size_t> dims = a.dims();
  const std::size_t m = dims.at(0), n = dims.at(1), planes = a.numel() / std::max<std::size_t>(m * n, 1);
  if (row0 + rows > m || column0 + columns > n) throw std::logic_error("part_of: outside the array");
  dims[0] = rows, dims[1] = columns;
  embedded::Array part(a.class_id(), dims);
  const std::size_t size = a.element_size();
  const auto* in = static_cast<const unsigned char*>(a.data());
  auto* out = static_cast<unsigned char*>(part.data());
  for (std::size_t k = 0; k < planes; ++k)
    for (std::size_t c = 0; c < columns; ++c)
      for (std::size_t r = 0; r < rows; ++r)
        std::memcpy(out + ((k * columns + c) * rows + r) * size,
                    in + ((k * n + column0 + c) * m + row0 + r) * size, size);
  return part;
}

namespace {

std::string dims_text(const std::vector<std::size_t>& dims) {
  std::string text;
  for (std::size_t d : dims) text += (text.empty() ? "" : "x") + std::to_string(d);
  return text;
}

}  // namespace

Comparison compare(const embedded::Array& got, const embedded::Array& expected) {
  if (got.class_id() != expected.class_id())
    return {std::string("class ") + got.class_name() + ", expected " + expected.class_name()};
  if (got.dims() != expected.dims()) return {"dims " + dims_text(got.dims()) + ", expected " + dims_text(expected.dims())};
  Comparison result;
  if (got.class_id() == zvCELL_CLASS) {
    for (std::size_t i = 0; i < got.numel(); ++i) {
      const Comparison cell = compare(got.cells()[i], expected.cells()[i]);
      if (!cell.mismatch.empty()) return {"cell " + std::to_string(i) + ": " + cell.mismatch};
      result.largest = std::max(result.largest, cell.largest);
    }
    return result;
  }
  for (std::size_t i = 0; i < got.numel(); ++i) {
    const double a = got.number(i), b = expected.number(i);
    // NaN is equal only to NaN.
    const double difference = std::isnan(a) || std::isnan(b) ? (std::isnan(a) && std::isnan(b) ? 0 : INFINITY)
                                                             : std::abs(a - b);
    result.largest = std::max(result.largest, difference);
  }
  return result;
}

}  // namespace tiffgate::testing
