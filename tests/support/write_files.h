#pragma once
/// Test support for the write commands and the round trips: files created
/// through the module (tags set through it or with libtiff directly), host
/// arrays filled from a function or cut from another, the comparison of a
/// value read back with the one written.

#include "support/tiff_files.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tiffgate::testing {

/// A file opened through the module's "open"; tif() is its libtiff handle
/// (the identifier's value), for setting tags directly.
class ModuleFile {
 public:
  explicit ModuleFile(const std::string& path, const char* mode = "w");
  ~ModuleFile();
  ModuleFile(const ModuleFile&) = delete;
  ModuleFile& operator=(const ModuleFile&) = delete;
  TIFF* tif() const { return handle_of(id_); }
  const embedded::Array& id() const { return id_; }
  /// The identifier, for a call's operands.
  operator const embedded::Array&() const { return id_; }
  /// "writeEncodedStrip" or "writeEncodedTile" with chunk number and arrays.
  embedded::CallResult write(bool tiled, embedded::Array chunk, std::vector<embedded::Array> images) const;
  /// "setField" and "getField" of one tag.
  embedded::CallResult set(double tag, embedded::Array value) const;
  embedded::CallResult get(double tag) const;
  void close();

 private:
  embedded::Array id_;
  bool open_ = false;
};

/// A host array of class cls, element (r, c, k) = value(r, c, k) as T.
template <class T>
embedded::Array host_array(zvClassID cls, std::vector<std::size_t> dims,
                           const std::function<T(std::size_t, std::size_t, std::size_t)>& value) {
  const std::size_t m = dims[0], n = dims[1], s = dims.size() > 2 ? dims[2] : 1;
  std::vector<T> data(m * n * s);
  for (std::size_t k = 0; k < s; ++k)
    for (std::size_t c = 0; c < n; ++c)
      for (std::size_t r = 0; r < m; ++r) data[r + c * m + k * m * n] = value(r, c, k);
  return embedded::Array::of(cls, std::move(dims), data);
}

/// The same for any numeric or logical class, value(r, c, k) converted to it.
embedded::Array host_array(zvClassID cls, std::vector<std::size_t> dims,
                           const std::function<double(std::size_t, std::size_t, std::size_t)>& value);

/// Rows [row0, row0 + rows) and columns [column0, column0 + columns) of every
/// plane of a numeric or logical array, with a 2-D array's own shape.
embedded::Array part_of(const embedded::Array& a, std::size_t row0, std::size_t column0, std::size_t rows,
                        std::size_t columns);

/// A value read back against the one expected: what differs in class,
/// shape or cells (empty when nothing does), and otherwise the largest
/// difference between elements (character codes for text).
struct Comparison {
  std::string mismatch;
  double largest = 0;
};
Comparison compare(const embedded::Array& got, const embedded::Array& expected);

using Args = std::vector<Quarn::MsgArg>;

}  // namespace tiffgate::testing
