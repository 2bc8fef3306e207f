// The host boundary over Octave's MEX interface (the MEX file, kept beside
// the default oct-file to measure one against the other).
//
// Octave numbers its classes as host.h does, so classes pass through. Its
// text is 8-bit and holds UTF-8: text the module reads as UTF-16 is decoded
// from UTF-8, and UTF-16 text the module creates is stored as UTF-8, but for
// text of byte values (see zvCreateCharArray). Arrays created here belong to Octave's MEX memory
// manager: what is not handed back in an output slot is released when the
// call ends, error or not.

#include "gateway/text.h"
#include "host/host.h"
#include "host/octave/mex/mex_host.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

using tiffgate::octave_host::issue_warning;
using tiffgate::octave_host::mx;
using tiffgate::octave_host::zv;

static_assert(sizeof(mwSize) == sizeof(std::size_t), "dimensions are handed over in place");
static_assert(sizeof(mxLogical) == sizeof(zvLogical), "logical data is handed over in place");
static_assert(sizeof(mxChar) == 1, "Octave's text is 8-bit");
static_assert(static_cast<int>(mxUINT64_CLASS) == zvUINT64_CLASS && static_cast<int>(mxCELL_CLASS) == zvCELL_CLASS,
              "Octave's class numbers are the module's");

namespace {

// Octave's index type is signed 64-bit; a larger extent cannot be allocated.
mwSize to_mw(std::size_t n) {
  if (n > static_cast<std::size_t>(std::numeric_limits<mwSize>::max())) throw std::bad_alloc();
  return static_cast<mwSize>(n);
}

/// Dimensions in Octave's form: none is 0 x 0, one extent n is n x 1.
std::vector<mwSize> mw_dims(std::size_t ndim, const std::size_t* dims) {
  std::vector<mwSize> out;
  for (std::size_t i = 0; i < ndim; ++i) out.push_back(to_mw(dims[i]));
  if (out.empty()) out = {0, 0};
  if (out.size() < 2) out.push_back(1);
  return out;
}

mxArray* create_numeric(std::size_t ndim, const std::size_t* dims, zvClassID cls, bool zero) {
  const std::vector<mwSize> d = mw_dims(ndim, dims);
  const auto n = static_cast<mwSize>(d.size());
  switch (cls) {
    case zvLOGICAL_CLASS: return mxCreateLogicalArray(n, d.data());
    case zvCHAR_CLASS: return mxCreateCharArray(n, d.data());
    case zvDOUBLE_CLASS: case zvSINGLE_CLASS:
    case zvINT8_CLASS: case zvUINT8_CLASS: case zvINT16_CLASS: case zvUINT16_CLASS:
    case zvINT32_CLASS: case zvUINT32_CLASS: case zvINT64_CLASS: case zvUINT64_CLASS: {
      const auto id = static_cast<mxClassID>(cls);
      return zero ? mxCreateNumericArray(n, d.data(), id, mxREAL)
                  : mxCreateUninitNumericArray(n, d.data(), id, mxREAL);
    }
    default: throw std::invalid_argument("zvCreateNumericArray: not a numeric class");
  }
}

/// Whether the array has data the module may read. Octave aborts the whole
/// process when asked for the data of a function handle, so no other class
/// gets near mxGetData.
bool has_data(const zvArray* array) {
  switch (mxGetClassID(mx(array))) {
    case mxLOGICAL_CLASS: case mxCHAR_CLASS: case mxDOUBLE_CLASS: case mxSINGLE_CLASS:
    case mxINT8_CLASS: case mxUINT8_CLASS: case mxINT16_CLASS: case mxUINT16_CLASS:
    case mxINT32_CLASS: case mxUINT32_CLASS: case mxINT64_CLASS: case mxUINT64_CLASS:
      return true;
    default:
      return false;
  }
}

std::string text_bytes(const zvArray* array) {
  if (mxGetClassID(mx(array)) != mxCHAR_CLASS) return std::string();
  const mxChar* chars = mxGetChars(mx(array));
  const std::size_t n = mxGetNumberOfElements(mx(array));
  return chars == nullptr ? std::string() : std::string(chars, n);
}

template <class T>
double first_as_double(const void* data) {
  T value;
  std::memcpy(&value, data, sizeof value);
  return static_cast<double>(value);
}

}  // namespace

namespace tiffgate::octave_host {

const mxArray* full_of(const mxArray* array) {
  if (!mxIsSparse(array)) return array;
  mxArray* full = nullptr;
  mxArray* argument = const_cast<mxArray*>(array);  // "full" only reads it
  mexCallMATLAB(1, &full, 1, &argument, "full");
  return full;
}

}  // namespace tiffgate::octave_host

// --- text ---

char* zvArrayToString(const zvArray* array) {
  if (array == nullptr || mxGetClassID(mx(array)) != mxCHAR_CLASS) return nullptr;
  char* copy = mxArrayToString(mx(array));
  if (copy == nullptr) throw std::bad_alloc();
  return copy;
}

void zvFree(void* pointer) { mxFree(pointer); }

std::u16string zvArrayToUtf16(const zvArray* array) { return tiffgate::utf8_to_utf16(text_bytes(array)); }

// Octave's text is UTF-8 already, the platform's narrow encoding.
std::string zvArrayToNarrow(const zvArray* array) { return text_bytes(array); }

// --- queries ---

zvClassID zvGetClassID(const zvArray* array) {
  const int cls = mxGetClassID(mx(array));
  // Function handles, objects and anything newer are nothing the module knows.
  return cls >= zvUNKNOWN_CLASS && cls <= zvUINT64_CLASS ? static_cast<zvClassID>(cls) : zvUNKNOWN_CLASS;
}

std::size_t zvGetNumberOfDimensions(const zvArray* array) {
  return static_cast<std::size_t>(mxGetNumberOfDimensions(mx(array)));
}

const std::size_t* zvGetDimensions(const zvArray* array) {
  // mwSize is the signed twin of std::size_t and extents are never negative.
  return reinterpret_cast<const std::size_t*>(mxGetDimensions(mx(array)));
}

// Cells, structures and everything else have no data to read.
void* zvGetData(const zvArray* array) { return has_data(array) ? mxGetData(mx(array)) : nullptr; }

std::size_t zvGetNumberOfElements(const zvArray* array) { return mxGetNumberOfElements(mx(array)); }

// Read by class rather than with mxGetScalar, which converts text and
// refuses cells; as in every host, only numbers and logicals have a value.
double zvGetScalar(const zvArray* array) {
  if (!has_data(array) || mxGetNumberOfElements(mx(array)) == 0) return 0.0;
  const void* data = mxGetData(mx(array));
  if (data == nullptr) return 0.0;
  switch (zvGetClassID(array)) {
    case zvDOUBLE_CLASS: return first_as_double<double>(data);
    case zvSINGLE_CLASS: return first_as_double<float>(data);
    case zvLOGICAL_CLASS: return *static_cast<const mxLogical*>(data) ? 1.0 : 0.0;
    case zvINT8_CLASS: return first_as_double<std::int8_t>(data);
    case zvUINT8_CLASS: return first_as_double<std::uint8_t>(data);
    case zvINT16_CLASS: return first_as_double<std::int16_t>(data);
    case zvUINT16_CLASS: return first_as_double<std::uint16_t>(data);
    case zvINT32_CLASS: return first_as_double<std::int32_t>(data);
    case zvUINT32_CLASS: return first_as_double<std::uint32_t>(data);
    case zvINT64_CLASS: return first_as_double<std::int64_t>(data);
    case zvUINT64_CLASS: return first_as_double<std::uint64_t>(data);
    default: return 0.0;
  }
}

std::size_t zvGetElementSize(const zvArray* array) {
  return has_data(array) ? mxGetElementSize(mx(array)) : 0;
}

zvLogical* zvGetLogicals(const zvArray* array) {
  if (mxGetClassID(mx(array)) != mxLOGICAL_CLASS) return nullptr;
  return reinterpret_cast<zvLogical*>(mxGetLogicals(mx(array)));
}

const char* zvGetClassName(const zvArray* array) { return mxGetClassName(mx(array)); }

bool zvIsEmpty(const zvArray* array) { return mxIsEmpty(mx(array)); }

// --- creation ---

zvArray* zvCreateDoubleScalar(double value) { return zv(mxCreateDoubleScalar(value)); }
zvArray* zvCreateLogicalScalar(bool value) { return zv(mxCreateLogicalScalar(value)); }
zvArray* zvCreateString(const char* text) { return zv(mxCreateString(text ? text : "")); }

zvArray* zvCreateNumericMatrix(std::size_t m, std::size_t n, zvClassID cls) {
  const std::size_t dims[2] = {m, n};
  return zv(create_numeric(2, dims, cls, true));
}

zvArray* zvCreateNumericArray(std::size_t ndim, const std::size_t* dims, zvClassID cls) {
  return zv(create_numeric(ndim, dims, cls, true));
}

zvArray* zvCreateUninitNumericArray(std::size_t ndim, const std::size_t* dims, zvClassID cls) {
  return zv(create_numeric(ndim, dims, cls, false));
}

zvArray* zvCreateDoubleMatrix(std::size_t m, std::size_t n) {
  return zv(mxCreateDoubleMatrix(to_mw(m), to_mw(n), mxREAL));
}

// See char_layout.
zvArray* zvCreateCharArray(std::size_t ndim, const std::size_t* dims, const char16_t* text) {
  const tiffgate::octave_host::CharLayout layout =
      tiffgate::octave_host::char_layout(std::vector<std::size_t>(dims, dims + ndim), text);
  const std::vector<mwSize> d = mw_dims(layout.dims.size(), layout.dims.data());
  mxArray* out = mxCreateCharArray(static_cast<mwSize>(d.size()), d.data());
  std::copy(layout.chars.begin(), layout.chars.end(), mxGetChars(out));
  return zv(out);
}

zvArray* zvCreateCellArray(std::size_t ndim, const std::size_t* dims) {
  const std::vector<mwSize> d = mw_dims(ndim, dims);
  return zv(mxCreateCellArray(static_cast<mwSize>(d.size()), d.data()));
}

void zvSetCell(zvArray* cell, std::size_t index, zvArray* value) {
  if (!mxIsCell(mx(cell)) || index >= mxGetNumberOfElements(mx(cell)))
    throw std::out_of_range("zvSetCell: no such cell element");
  mxSetCell(mx(cell), to_mw(index), mx(value));
}

const zvArray* zvGetCell(const zvArray* array, std::size_t index) {
  if (array == nullptr || !mxIsCell(mx(array)) || index >= mxGetNumberOfElements(mx(array))) return nullptr;
  const mxArray* element = mxGetCell(mx(array), to_mw(index));
  return element == nullptr ? nullptr : zv(tiffgate::octave_host::full_of(element));
}

zvArray* zvCreateStructMatrix(std::size_t m, std::size_t n, int nfields, const char** names) {
  return zv(mxCreateStructMatrix(to_mw(m), to_mw(n), std::max(nfields, 0), names));
}

void zvSetField(zvArray* structure, std::size_t index, const char* name, zvArray* value) {
  if (!mxIsStruct(mx(structure)) || index >= mxGetNumberOfElements(mx(structure)) ||
      mxGetFieldNumber(mx(structure), name) < 0)
    throw std::out_of_range("zvSetField: no such field");
  mxSetField(mx(structure), to_mw(index), name, mx(value));
}

// --- errors and warnings ---

void zvReportErrMsgId(const Quarn::IMsgIDException&) {
  // Returns on purpose: Octave's error routine does not return, and calling
  // it here would leave the module's frames by Octave's own exception. The
  // module throws the kind next; mexFunction reports it once every
  // destructor in the module has run.
}

void zvWarningMsgId(const Quarn::BaseMsgID& kind) { issue_warning(kind.identifier(), kind.message()); }

void zvWarning(const char* identifier, const std::string& message) { issue_warning(identifier, message); }
