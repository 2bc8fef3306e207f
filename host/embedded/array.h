#pragma once
/// The embedded host's array: a class, dimensions and real data; text held
/// as UTF-16; cells; structures with ordered fields. It is the zvArray of
/// this host and an ordinary value type for the code that drives it.

#include "core/host.h"

#include <algorithm>  // std::min
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tiffgate::embedded {

/// Bytes per element of a numeric, logical or text class (0 for others).
std::size_t element_size(zvClassID cls);
/// The host's class name: "double", "uint8", "char", "cell", ...
const char* class_name(zvClassID cls);

}  // namespace tiffgate::embedded

struct zvArray {
  using Dims = std::vector<std::size_t>;

  /// A 0x0 double, the host's empty value.
  zvArray() : zvArray(zvDOUBLE_CLASS, {0, 0}) {}
  /// Zero-filled numeric, logical or text array (or cell/struct shell).
  zvArray(zvClassID cls, Dims dims, bool zero = true);
  zvArray(const zvArray& other);
  zvArray& operator=(const zvArray& other);
  zvArray(zvArray&&) noexcept = default;
  zvArray& operator=(zvArray&&) noexcept = default;
  ~zvArray() = default;

  // --- builders for code that drives the host ---
  static zvArray scalar(double value);
  static zvArray logical(bool value);
  static zvArray text(std::string_view utf8);
  static zvArray text(std::u16string_view utf16);
  static zvArray uint64(std::uint64_t value);
  /// A 1xN row of doubles (an empty list gives 1x0).
  static zvArray row(std::initializer_list<double> values);
  /// Rows of doubles, all of one length.
  static zvArray matrix(std::initializer_list<std::initializer_list<double>> rows);
  /// An array of class cls and dims filled from values in column-major order
  /// (zeros where values run short).
  template <class T>
  static zvArray of(zvClassID cls, Dims dims, const std::vector<T>& values) {
    zvArray a(cls, std::move(dims));
    // An empty array has no data pointer, and memcpy must not be given null.
    const std::size_t bytes = std::min(values.size() * sizeof(T), a.byte_size());
    if (bytes > 0) std::memcpy(a.data(), values.data(), bytes);
    return a;
  }
  static zvArray cell(std::vector<zvArray> elements);  ///< 1xN
  static zvArray structure(std::vector<std::pair<std::string, zvArray>> fields);  ///< 1x1

  // --- queries ---
  zvClassID class_id() const { return cls_; }
  const char* class_name() const { return tiffgate::embedded::class_name(cls_); }
  const Dims& dims() const { return dims_; }
  std::size_t numel() const { return numel_; }
  std::size_t element_size() const { return tiffgate::embedded::element_size(cls_); }
  std::size_t byte_size() const { return numel_ * element_size(); }
  bool empty() const { return numel_ == 0; }

  void* data() { return data_.get(); }
  const void* data() const { return data_.get(); }
  template <class T>
  T* data_as() { return static_cast<T*>(data()); }
  template <class T>
  const T* data_as() const { return static_cast<const T*>(data()); }
  /// Element i (column-major) as a double; 0 for non-numeric classes.
  double number(std::size_t i = 0) const;
  template <class T>
  T at(std::size_t i) const { return data_as<T>()[i]; }

  /// The text of a char array, as UTF-16 and as UTF-8.
  std::u16string utf16() const;
  std::string utf8() const;

  std::vector<zvArray>& cells() { return cells_; }
  const std::vector<zvArray>& cells() const { return cells_; }
  const std::vector<std::string>& field_names() const { return field_names_; }
  /// Field of structure element index; null when there is no such field.
  const zvArray* field(std::string_view name, std::size_t index = 0) const;
  zvArray* field(std::string_view name, std::size_t index = 0);

  /// Structure set-up (used by zvCreateStructMatrix).
  void set_field_names(std::vector<std::string> names);

 private:
  /// Frees a block of aligned_block (array.cpp).
  struct FreeDeleter {
    void operator()(void* p) const noexcept;
  };
  void allocate(bool zero);

  zvClassID cls_;
  Dims dims_;
  std::size_t numel_ = 0;
  std::unique_ptr<unsigned char[], FreeDeleter> data_;
  std::vector<zvArray> cells_;                ///< cell elements, or struct values
  std::vector<std::string> field_names_;      ///< struct: values are numel x fields
};

namespace tiffgate::embedded {
using Array = ::zvArray;
}  // namespace tiffgate::embedded
