#pragma once
/// The oct-file adapter's array: what the module's opaque zvArray is when it
/// runs on Octave's own C++ arrays. Numeric, logical and text arrays hold an
/// Octave Array<T> whose data the module reads or fills in place; cells and
/// structures the module creates hold their elements until the call hands
/// them to Octave; the operands Octave passed in that have no data (cells,
/// structures, function handles...) hold the value itself.

#include "core/host.h"

#include <octave/oct.h>

#include <cstddef>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace tiffgate::octave_host {

/// The data of an array, one alternative per class the module reads or
/// creates; monostate for arrays without data.
using ArrayData = std::variant<std::monostate, Array<double>, Array<float>, Array<bool>, Array<char>,
                               Array<octave_int8>, Array<octave_uint8>, Array<octave_int16>,
                               Array<octave_uint16>, Array<octave_int32>, Array<octave_uint32>,
                               Array<octave_int64>, Array<octave_uint64>>;

}  // namespace tiffgate::octave_host

struct zvArray {
  zvClassID cls = zvUNKNOWN_CLASS;
  std::vector<std::size_t> dims;  // two or more, trailing singletons dropped
  std::size_t numel = 0;
  std::size_t element_size = 0;
  void* data = nullptr;  // into `array`; stable, since `array` is never shared while the module runs
  tiffgate::octave_host::ArrayData array;
  std::string class_name;
  octave_value operand;  // an operand without data, as Octave passed it
  bool created = false;
  /// A created cell's elements, or a created structure's values (element i,
  /// field f at i * fields.size() + f); null until the module sets them.
  std::vector<zvArray*> elements;
  std::vector<std::string> fields;
};

namespace tiffgate::octave_host {

/// Every array of the calls into the module under way; released when the
/// outermost call ends, or back to a mark by an entry that calls the module
/// many times.
class Arena {
 public:
  zvArray* add();
  std::size_t mark() const { return arrays_.size(); }
  void release_to(std::size_t mark);

 private:
  std::vector<std::unique_ptr<zvArray>> arrays_;
};

Arena& arena();

/// An operand as the module sees it; sparse values are made full. A complex
/// value gives its real part: the entry refuses complex operands, and this
/// reaches only the elements of cells.
const zvArray* wrap_operand(const octave_value& value);

/// A new numeric, logical or text array of the given Octave dimensions,
/// uninitialised unless `zero`.
zvArray* create_array(const dim_vector& dims, zvClassID cls, bool zero);

/// The Octave value of an array the module made (or was given).
octave_value value_of(const zvArray* array);

}  // namespace tiffgate::octave_host
