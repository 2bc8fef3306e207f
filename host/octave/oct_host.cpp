// The host boundary over Octave's own C++ arrays (the oct-file).
//
// An array the module creates is an Octave Array<T> allocated at its final
// size and left uninitialised unless the module asks for zeros; the module
// fills it in place and the call hands it to Octave as it is, with no copy.
// Operands share their data with Octave's values, also without a copy.
// Octave numbers its classes as host.h does. Its text is 8-bit and holds
// UTF-8; see char_layout for the text the module creates.

#include "core/text.h"
#include "core/host.h"
#include "core/msgid.h"
#include "host/octave/adapter.h"
#include "host/octave/oct_array.h"

#include <octave/Cell.h>
#include <octave/oct-map.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <sys/mman.h>  // madvise

using tiffgate::octave_host::arena;
using tiffgate::octave_host::ArrayData;
using tiffgate::octave_host::create_array;
using tiffgate::octave_host::issue_warning;

namespace {

/// Allocated with the allocator Array<T> releases with, and not constructed
/// element by element as Array's own constructors do: that would touch every
/// page of an image the module is about to fill anyway.
///
/// A whole image is put on huge pages where the system grants them: a page
/// fault for every 2 MB instead of every 4 KB when the module first writes
/// it (for a 48 MB image, a third of the time of a threaded read).
template <class T>
ArrayData make_array(const dim_vector& dims, bool zero) {
  const auto n = static_cast<std::size_t>(dims.numel());
  T* data = std::allocator<T>().allocate(n);
  constexpr std::uintptr_t kHugePage = std::uintptr_t{2} << 20;
  const auto start = reinterpret_cast<std::uintptr_t>(data), end = start + n * sizeof(T);
  const std::uintptr_t first = (start + kHugePage - 1) & ~(kHugePage - 1), last = end & ~(kHugePage - 1);
  if (last > first && last - first >= 2 * kHugePage) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
  if (zero && n > 0) std::memset(static_cast<void*>(data), 0, n * sizeof(T));
  return Array<T>(data, dims);
}

/// One class as the module and Octave know it: how to make an array of it
/// and how to take an operand's data without a copy.
struct ClassRow {
  zvClassID cls;
  builtin_type_t type;
  const char* name;
  ArrayData (*make)(const dim_vector&, bool);
  ArrayData (*from)(const octave_value&);
};

// Complex types come last: they are operands only (their real part), never
// created, so the search by class finds the real rows first.
const ClassRow kClasses[] = {
    {zvDOUBLE_CLASS, btyp_double, "double", make_array<double>,
     [](const octave_value& v) -> ArrayData { return Array<double>(v.array_value()); }},
    {zvSINGLE_CLASS, btyp_float, "single", make_array<float>,
     [](const octave_value& v) -> ArrayData { return Array<float>(v.float_array_value()); }},
    {zvLOGICAL_CLASS, btyp_bool, "logical", make_array<bool>,
     [](const octave_value& v) -> ArrayData { return Array<bool>(v.bool_array_value()); }},
    {zvCHAR_CLASS, btyp_char, "char", make_array<char>,
     [](const octave_value& v) -> ArrayData { return Array<char>(v.char_array_value()); }},
    {zvINT8_CLASS, btyp_int8, "int8", make_array<octave_int8>,
     [](const octave_value& v) -> ArrayData { return Array<octave_int8>(v.int8_array_value()); }},
    {zvUINT8_CLASS, btyp_uint8, "uint8", make_array<octave_uint8>,
     [](const octave_value& v) -> ArrayData { return Array<octave_uint8>(v.uint8_array_value()); }},
    {zvINT16_CLASS, btyp_int16, "int16", make_array<octave_int16>,
     [](const octave_value& v) -> ArrayData { return Array<octave_int16>(v.int16_array_value()); }},
    {zvUINT16_CLASS, btyp_uint16, "uint16", make_array<octave_uint16>,
     [](const octave_value& v) -> ArrayData { return Array<octave_uint16>(v.uint16_array_value()); }},
    {zvINT32_CLASS, btyp_int32, "int32", make_array<octave_int32>,
     [](const octave_value& v) -> ArrayData { return Array<octave_int32>(v.int32_array_value()); }},
    {zvUINT32_CLASS, btyp_uint32, "uint32", make_array<octave_uint32>,
     [](const octave_value& v) -> ArrayData { return Array<octave_uint32>(v.uint32_array_value()); }},
    {zvINT64_CLASS, btyp_int64, "int64", make_array<octave_int64>,
     [](const octave_value& v) -> ArrayData { return Array<octave_int64>(v.int64_array_value()); }},
    {zvUINT64_CLASS, btyp_uint64, "uint64", make_array<octave_uint64>,
     [](const octave_value& v) -> ArrayData { return Array<octave_uint64>(v.uint64_array_value()); }},
    {zvDOUBLE_CLASS, btyp_complex, "double", nullptr,
     [](const octave_value& v) -> ArrayData { return Array<double>(v.array_value(true)); }},
    {zvSINGLE_CLASS, btyp_float_complex, "single", nullptr,
     [](const octave_value& v) -> ArrayData { return Array<float>(v.float_array_value(true)); }},
};

const ClassRow* row_of_class(zvClassID cls) {
  for (const ClassRow& row : kClasses)
    if (row.cls == cls) return &row;
  return nullptr;
}

const ClassRow* row_of_type(builtin_type_t type) {
  for (const ClassRow& row : kClasses)
    if (row.type == type) return &row;
  return nullptr;
}

std::vector<std::size_t> dims_of(const dim_vector& dims) {
  std::vector<std::size_t> out(static_cast<std::size_t>(dims.ndims()));
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = static_cast<std::size_t>(dims(static_cast<int>(i)));
  return out;
}

/// The module's dimensions in Octave's form: none is 0 x 0, one extent n is
/// n x 1, trailing singletons dropped. Octave's index type is signed 64-bit:
/// a larger extent or count cannot be allocated.
dim_vector octave_dims(std::size_t ndim, const std::size_t* dims) {
  constexpr auto kLargest = static_cast<std::size_t>(std::numeric_limits<octave_idx_type>::max());
  dim_vector out = dim_vector::alloc(static_cast<int>(std::max<std::size_t>(ndim, 2)));
  out(0) = 0;
  out(1) = ndim == 0 ? 0 : 1;
  std::size_t numel = 1;
  for (std::size_t i = 0; i < ndim; ++i) {
    if (dims[i] > kLargest || (dims[i] != 0 && numel > kLargest / dims[i])) throw std::bad_alloc();
    numel *= dims[i];
    out(static_cast<int>(i)) = static_cast<octave_idx_type>(dims[i]);
  }
  out.chop_trailing_singletons();
  return out;
}

void set_data(zvArray& array, ArrayData data, zvClassID cls, const char* name) {
  std::visit(
      [&array](auto& a) {
        using A = std::decay_t<decltype(a)>;
        if constexpr (!std::is_same_v<A, std::monostate>) {
          // data() rather than fortran_vec(): the array is not shared, and
          // an operand's data is only read.
          array.data = const_cast<void*>(static_cast<const void*>(a.data()));
          array.element_size = sizeof(typename A::element_type);
          array.dims = dims_of(a.dims());
          array.numel = static_cast<std::size_t>(a.numel());
        }
      },
      data);
  array.array = std::move(data);
  array.cls = cls;
  array.class_name = name;
}

template <class T>
double as_double(T value) {
  if constexpr (std::is_same_v<T, bool>) return value ? 1.0 : 0.0;
  else if constexpr (std::is_same_v<T, char>) return 0.0;  // text has no value, as in every host
  else if constexpr (std::is_floating_point_v<T>) return static_cast<double>(value);
  else return static_cast<double>(value.value());
}

std::string text_bytes(const zvArray* array) {
  if (array == nullptr || array->cls != zvCHAR_CLASS) return std::string();
  return std::string(static_cast<const char*>(array->data), array->numel);
}

zvArray* created_container(zvClassID cls, std::vector<std::size_t> dims, std::size_t slots) {
  zvArray* array = arena().add();
  array->cls = cls;
  array->created = true;
  array->numel = 1;
  for (std::size_t d : dims) array->numel *= d;
  array->dims = std::move(dims);
  array->class_name = cls == zvCELL_CLASS ? "cell" : "struct";
  array->elements.assign(slots, nullptr);
  return array;
}

}  // namespace

namespace tiffgate::octave_host {

zvArray* Arena::add() { return arrays_.emplace_back(std::make_unique<zvArray>()).get(); }

void Arena::release_to(std::size_t mark) {
  if (mark < arrays_.size()) arrays_.resize(mark);
}

Arena& arena() {
  static Arena instance;
  return instance;
}

const zvArray* wrap_operand(const octave_value& value) {
  zvArray* array = arena().add();
  if (const ClassRow* row = row_of_type(value.builtin_type())) {
    set_data(*array, row->from(value), row->cls, row->name);
    return array;
  }
  switch (value.builtin_type()) {
    case btyp_cell: array->cls = zvCELL_CLASS; break;
    case btyp_struct: array->cls = zvSTRUCT_CLASS; break;
    default: array->cls = zvUNKNOWN_CLASS; break;  // handles, objects: nothing the module knows
  }
  array->operand = value;
  array->dims = dims_of(value.dims());
  array->numel = static_cast<std::size_t>(value.numel());
  array->class_name = value.class_name();
  return array;
}

zvArray* create_array(const dim_vector& dims, zvClassID cls, bool zero) {
  const ClassRow* row = row_of_class(cls);
  if (row == nullptr || row->make == nullptr) throw std::invalid_argument("zvCreateNumericArray: not a numeric class");
  zvArray* array = arena().add();
  set_data(*array, row->make(dims, zero), cls, row->name);
  array->created = true;
  return array;
}

octave_value value_of(const zvArray* array) {
  if (array == nullptr) return Matrix();
  if (array->created && array->cls == zvCELL_CLASS) {
    Cell cell(octave_dims(array->dims.size(), array->dims.data()));
    for (std::size_t i = 0; i < array->numel; ++i)
      cell.xelem(static_cast<octave_idx_type>(i)) = value_of(array->elements[i]);
    return cell;
  }
  if (array->created && array->cls == zvSTRUCT_CLASS) {
    const dim_vector dims = octave_dims(array->dims.size(), array->dims.data());
    octave_map map(dims);
    const std::size_t fields = array->fields.size();
    for (std::size_t f = 0; f < fields; ++f) {
      Cell values(dims);
      for (std::size_t i = 0; i < array->numel; ++i)
        values.xelem(static_cast<octave_idx_type>(i)) = value_of(array->elements[i * fields + f]);
      map.setfield(array->fields[f], values);
    }
    return map;
  }
  return std::visit(
      [array](const auto& a) -> octave_value {
        using A = std::decay_t<decltype(a)>;
        if constexpr (std::is_same_v<A, std::monostate>) return array->operand;
        else if constexpr (std::is_same_v<A, Array<char>>) return octave_value(a, '\'');
        else return octave_value(a);
      },
      array->array);
}

}  // namespace tiffgate::octave_host

// --- text ---

std::u16string zvArrayToUtf16(const zvArray* array) { return tiffgate::utf8_to_utf16(text_bytes(array)); }

// Octave's text is UTF-8 already, the platform's narrow encoding.
std::string zvArrayToNarrow(const zvArray* array) { return text_bytes(array); }

// --- queries ---

zvClassID zvGetClassID(const zvArray* array) { return array->cls; }
std::size_t zvGetNumberOfDimensions(const zvArray* array) { return array->dims.size(); }
const std::size_t* zvGetDimensions(const zvArray* array) { return array->dims.data(); }
void* zvGetData(const zvArray* array) { return array->data; }
std::size_t zvGetNumberOfElements(const zvArray* array) { return array->numel; }

double zvGetScalar(const zvArray* array) {
  if (array->numel == 0) return 0.0;
  return std::visit(
      [](const auto& a) -> double {
        if constexpr (std::is_same_v<std::decay_t<decltype(a)>, std::monostate>) return 0.0;
        else return as_double(a.xelem(0));
      },
      array->array);
}

zvLogical* zvGetLogicals(const zvArray* array) {
  return array->cls == zvLOGICAL_CLASS ? static_cast<zvLogical*>(array->data) : nullptr;
}

const char* zvGetClassName(const zvArray* array) { return array->class_name.c_str(); }
bool zvIsEmpty(const zvArray* array) { return array->numel == 0; }

// --- creation ---

zvArray* zvCreateDoubleScalar(double value) {
  zvArray* array = create_array(dim_vector(1, 1), zvDOUBLE_CLASS, false);
  *static_cast<double*>(array->data) = value;
  return array;
}

zvArray* zvCreateLogicalScalar(bool value) {
  zvArray* array = create_array(dim_vector(1, 1), zvLOGICAL_CLASS, false);
  *static_cast<bool*>(array->data) = value;
  return array;
}

// Empty text is 0 x 0, as Octave's own mxCreateString makes it.
zvArray* zvCreateString(const char* text) {
  const std::size_t n = text == nullptr ? 0 : std::strlen(text);
  const std::size_t dims[2] = {n == 0 ? std::size_t{0} : std::size_t{1}, n};
  zvArray* array = create_array(octave_dims(2, dims), zvCHAR_CLASS, false);
  if (n > 0) std::memcpy(array->data, text, n);
  return array;
}

zvArray* zvCreateNumericArray(std::size_t ndim, const std::size_t* dims, zvClassID cls) {
  return create_array(octave_dims(ndim, dims), cls, true);
}

zvArray* zvCreateUninitNumericArray(std::size_t ndim, const std::size_t* dims, zvClassID cls) {
  return create_array(octave_dims(ndim, dims), cls, false);
}

// See char_layout.
zvArray* zvCreateCharArray(std::size_t ndim, const std::size_t* dims, const char16_t* text) {
  const tiffgate::octave_host::CharLayout layout =
      tiffgate::octave_host::char_layout(std::vector<std::size_t>(dims, dims + ndim), text);
  zvArray* array = create_array(octave_dims(layout.dims.size(), layout.dims.data()), zvCHAR_CLASS, false);
  if (!layout.chars.empty()) std::memcpy(array->data, layout.chars.data(), layout.chars.size());
  return array;
}

zvArray* zvCreateCellArray(std::size_t ndim, const std::size_t* dims) {
  const dim_vector d = octave_dims(ndim, dims);
  std::vector<std::size_t> shape = dims_of(d);
  return created_container(zvCELL_CLASS, shape, static_cast<std::size_t>(d.numel()));
}

void zvSetCell(zvArray* cell, std::size_t index, zvArray* value) {
  if (!cell->created || cell->cls != zvCELL_CLASS || index >= cell->numel)
    throw std::out_of_range("zvSetCell: no such cell element");
  cell->elements[index] = value;
}

const zvArray* zvGetCell(const zvArray* array, std::size_t index) {
  if (array == nullptr || array->cls != zvCELL_CLASS || index >= array->numel) return nullptr;
  if (array->created) return array->elements[index];
  const Cell cell = array->operand.cell_value();
  return tiffgate::octave_host::wrap_operand(cell.xelem(static_cast<octave_idx_type>(index)));
}

zvArray* zvCreateStructMatrix(std::size_t m, std::size_t n, int nfields, const char** names) {
  const std::size_t dims[2] = {m, n};
  const dim_vector d = octave_dims(2, dims);
  const auto count = static_cast<std::size_t>(std::max(nfields, 0));
  zvArray* array = created_container(zvSTRUCT_CLASS, dims_of(d), static_cast<std::size_t>(d.numel()) * count);
  array->fields.assign(names, names + count);
  return array;
}

void zvSetField(zvArray* structure, std::size_t index, const char* name, zvArray* value) {
  const auto& fields = structure->fields;
  const auto field = std::find(fields.begin(), fields.end(), name);
  if (!structure->created || structure->cls != zvSTRUCT_CLASS || index >= structure->numel || field == fields.end())
    throw std::out_of_range("zvSetField: no such field");
  structure->elements[index * fields.size() + static_cast<std::size_t>(field - fields.begin())] = value;
}

// --- errors and warnings ---

void zvWarningMsgId(const Quarn::BaseMsgID& kind) { issue_warning(kind.identifier(), kind.message()); }

void zvWarning(const char* identifier, const std::string& message) { issue_warning(identifier, message); }
