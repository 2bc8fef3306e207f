// The host boundary over the embedded array type.

#include "host/embedded/session.h"
#include "core/text.h"
#include "core/host.h"
#include "core/msgid.h"

#include <malloc.h>  // mallopt

#include <algorithm>
#include <cstdlib>
#include <new>
#include <stdexcept>

using tiffgate::embedded::Array;
using tiffgate::embedded::CallResult;
using tiffgate::embedded::Warning;

namespace {

/// Everything the host keeps for the module.
struct HostState {
  /// Arrays created through zv* during a call. Whatever is not handed back in
  /// an output slot is released when the call ends, error or not, as a
  /// host's own memory manager does. Nothing looks an array up here, so a
  /// vector does: its storage stays from call to call.
  std::vector<std::unique_ptr<zvArray>> arena;
  std::vector<Warning> warnings;
  std::vector<void (*)()> at_exit;
};

HostState& state() {
  static HostState s = [] {
    // A script reads strip after strip into arrays of one size, each freed
    // while or after the next is made. glibc would give each from freshly
    // mapped pages, or grow the heap and trim it again every time: arrays
    // up to 32 MB come from the heap, and up to 64 MB freed at its top stay
    // for the next array instead of going back to the system.
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    return HostState{};
  }();
  return s;
}

zvArray* adopt(zvArray&& value) {
  auto& arena = state().arena;
  arena.push_back(std::make_unique<zvArray>(std::move(value)));
  return arena.back().get();
}

Array::Dims dims_of(std::size_t ndim, const std::size_t* dims) {
  return Array::Dims(dims, dims + ndim);
}

}  // namespace

void zulAtExit(void (*function)()) {
  auto& list = state().at_exit;
  if (std::find(list.begin(), list.end(), function) == list.end()) list.push_back(function);
}

std::u16string zvArrayToUtf16(const zvArray* array) { return array->utf16(); }

std::string zvArrayToNarrow(const zvArray* array) { return array->utf8(); }

zvClassID zvGetClassID(const zvArray* array) { return array->class_id(); }
std::size_t zvGetNumberOfDimensions(const zvArray* array) { return array->dims().size(); }
const std::size_t* zvGetDimensions(const zvArray* array) { return array->dims().data(); }
void* zvGetData(const zvArray* array) { return const_cast<void*>(array->data()); }
std::size_t zvGetNumberOfElements(const zvArray* array) { return array->numel(); }
double zvGetScalar(const zvArray* array) { return array->number(0); }
zvLogical* zvGetLogicals(const zvArray* array) {
  return array->class_id() == zvLOGICAL_CLASS ? static_cast<zvLogical*>(zvGetData(array)) : nullptr;
}
const char* zvGetClassName(const zvArray* array) { return array->class_name(); }
bool zvIsEmpty(const zvArray* array) { return array->empty(); }

zvArray* zvCreateDoubleScalar(double value) { return adopt(Array::scalar(value)); }
zvArray* zvCreateLogicalScalar(bool value) { return adopt(Array::logical(value)); }
zvArray* zvCreateString(const char* text) { return adopt(Array::text(std::string_view(text ? text : ""))); }

zvArray* zvCreateNumericArray(std::size_t ndim, const std::size_t* dims, zvClassID cls) {
  return adopt(Array(cls, dims_of(ndim, dims)));
}
zvArray* zvCreateUninitNumericArray(std::size_t ndim, const std::size_t* dims, zvClassID cls) {
  return adopt(Array(cls, dims_of(ndim, dims), false));
}

zvArray* zvCreateCharArray(std::size_t ndim, const std::size_t* dims, const char16_t* text) {
  Array a(zvCHAR_CLASS, dims_of(ndim, dims), text == nullptr);
  if (text != nullptr && a.numel() > 0) std::memcpy(a.data(), text, a.byte_size());
  return adopt(std::move(a));
}

zvArray* zvCreateCellArray(std::size_t ndim, const std::size_t* dims) {
  return adopt(Array(zvCELL_CLASS, dims_of(ndim, dims)));
}

void zvSetCell(zvArray* cell, std::size_t index, zvArray* value) {
  if (cell->class_id() != zvCELL_CLASS || index >= cell->numel())
    throw std::out_of_range("zvSetCell: no such cell element");
  cell->cells()[index] = value ? std::move(*value) : Array();
}

const zvArray* zvGetCell(const zvArray* array, std::size_t index) {
  if (array == nullptr || array->class_id() != zvCELL_CLASS || index >= array->cells().size()) return nullptr;
  return &array->cells()[index];
}

zvArray* zvCreateStructMatrix(std::size_t m, std::size_t n, int nfields, const char** names) {
  Array a(zvSTRUCT_CLASS, {m, n});
  a.set_field_names(std::vector<std::string>(names, names + std::max(nfields, 0)));
  return adopt(std::move(a));
}

void zvSetField(zvArray* structure, std::size_t index, const char* name, zvArray* value) {
  zvArray* slot = structure->field(name, index);
  if (slot == nullptr) throw std::out_of_range("zvSetField: no such field");
  *slot = value ? std::move(*value) : Array();
}

void zvWarningMsgId(const Quarn::BaseMsgID& kind) {
  state().warnings.push_back({kind.identifier(), kind.message(), kind.arguments()});
}

void zvWarning(const char* identifier, const std::string& message) {
  state().warnings.push_back({identifier, message, {}});
}

namespace tiffgate::embedded {

const Array& CallResult::out(std::size_t i) const {
  if (i >= outputs.size() || !outputs[i]) throw std::logic_error("output slot " + std::to_string(i) + " is unset");
  return *outputs[i];
}

CallResult call(std::string_view command, std::vector<Array> operands, int nOutputs) {
  operands.insert(operands.begin(), Array::text(command));
  return call_inputs(operands, nOutputs);
}

CallResult call_inputs(const std::vector<Array>& inputs, int nOutputs) {
  HostState& s = state();
  s.warnings.clear();
  // Three slots at least: the YCbCr reads fill slots 0 to 2 whatever the
  // caller asked for, and every handler may store into slot 0.
  std::vector<zvArray*> slots(static_cast<std::size_t>(std::max(nOutputs, 3)), nullptr);
  std::vector<const zvArray*> in;
  in.reserve(inputs.size());
  for (const Array& a : inputs) in.push_back(&a);

  CallResult result;
  try {
    zulFunction(nOutputs, slots.data(), static_cast<int>(in.size()), in.data());
  } catch (const Quarn::IMsgIDException& e) {
    const Quarn::BaseMsgID& kind = e.GetBaseMsgIDObj();
    result.error = Error{kind.identifier(), kind.message(), kind.arguments()};
  } catch (const std::bad_alloc&) {
    result.error = Error{"tiffgate:outOfMemory", "Out of memory.", {}};
  } catch (const std::exception& e) {
    result.error = Error{"tiffgate:internalError", e.what(), {}};
  } catch (...) {
    result.error = Error{"tiffgate:internalError", "An unknown exception reached the host.", {}};
  }
  if (result.ok()) {
    const std::size_t kept = std::max<std::size_t>(static_cast<std::size_t>(std::max(nOutputs, 1)), 1);
    for (std::size_t i = 0; i < slots.size(); ++i) {
      if (slots[i] == nullptr) {
        if (i < kept) result.outputs.emplace_back();
        continue;
      }
      if (result.outputs.size() <= i) result.outputs.resize(i + 1);
      result.outputs[i] = std::move(*slots[i]);
    }
  }
  s.arena.clear();
  result.warnings = std::move(s.warnings);
  s.warnings.clear();
  return result;
}

std::vector<Warning> unload() {
  HostState& s = state();
  s.warnings.clear();
  std::vector<void (*)()> list;
  list.swap(s.at_exit);
  for (auto* function : list) function();
  std::vector<Warning> issued = std::move(s.warnings);
  s.warnings.clear();
  return issued;
}

}  // namespace tiffgate::embedded
