#pragma once
/// The host boundary: every operation the module needs from the host that
/// loads it. Each host (host/embedded, host/octave) implements these over its
/// own array type; the module includes no host's own headers.

#include <cstddef>
#include <cstdint>
#include <string>

/// A host array; its layout belongs to the host.
struct zvArray;

/// Host class numbers (the host's zvClassID numbering).
enum zvClassID : int {
  zvUNKNOWN_CLASS = 0,
  zvCELL_CLASS = 1,
  zvSTRUCT_CLASS = 2,
  zvLOGICAL_CLASS = 3,
  zvCHAR_CLASS = 4,
  zvVOID_CLASS = 5,
  zvDOUBLE_CLASS = 6,
  zvSINGLE_CLASS = 7,
  zvINT8_CLASS = 8,
  zvUINT8_CLASS = 9,
  zvINT16_CLASS = 10,
  zvUINT16_CLASS = 11,
  zvINT32_CLASS = 12,
  zvUINT32_CLASS = 13,
  zvINT64_CLASS = 14,
  zvUINT64_CLASS = 15,
};

using zvLogical = bool;

/// The gateway's entry, exported by the module and called by the host.
void zulFunction(int nOutputs, zvArray* outputs[], int nInputs, const zvArray* inputs[]);

/// Registers a function that the host calls once when it unloads the module.
void zulAtExit(void (*function)());

namespace Quarn {
class BaseMsgID;
}

// --- text ---
/// The text of a text array as UTF-16.
std::u16string zvArrayToUtf16(const zvArray* array);
/// The text of a text array through an encoding converter into the
/// platform's default narrow encoding (UTF-8 here).
std::string zvArrayToNarrow(const zvArray* array);

// --- queries ---
zvClassID zvGetClassID(const zvArray* array);
std::size_t zvGetNumberOfDimensions(const zvArray* array);
const std::size_t* zvGetDimensions(const zvArray* array);
void* zvGetData(const zvArray* array);
std::size_t zvGetNumberOfElements(const zvArray* array);
/// The first element as a double (0 for an empty or non-numeric array).
double zvGetScalar(const zvArray* array);
zvLogical* zvGetLogicals(const zvArray* array);
const char* zvGetClassName(const zvArray* array);
bool zvIsEmpty(const zvArray* array);

// --- creation (real data; all but the uninitialised form zero-filled) ---
zvArray* zvCreateDoubleScalar(double value);
zvArray* zvCreateLogicalScalar(bool value);
zvArray* zvCreateString(const char* text);
zvArray* zvCreateNumericArray(std::size_t ndim, const std::size_t* dims, zvClassID cls);
zvArray* zvCreateUninitNumericArray(std::size_t ndim, const std::size_t* dims, zvClassID cls);
/// A text array of the given dimensions, filled from UTF-16 text in
/// column-major order (the host stores it in its own character width).
zvArray* zvCreateCharArray(std::size_t ndim, const std::size_t* dims, const char16_t* text);
zvArray* zvCreateCellArray(std::size_t ndim, const std::size_t* dims);
/// Moves value into element index of cell; the cell owns it from then on.
void zvSetCell(zvArray* cell, std::size_t index, zvArray* value);
/// Element index of a cell array; null when array is not a cell or has no
/// such element.
const zvArray* zvGetCell(const zvArray* array, std::size_t index);
zvArray* zvCreateStructMatrix(std::size_t m, std::size_t n, int nfields, const char** names);
/// Moves value into field name of element index; the structure owns it.
void zvSetField(zvArray* structure, std::size_t index, const char* name, zvArray* value);

// --- errors and warnings ---
// An error is a Quarn::Exception carrying its kind (core/errors.h), thrown
// through the module and caught by each host at its entry, where it is
// reported once every frame of the module has unwound.

/// Shows the kind's message as a host warning and returns.
void zvWarningMsgId(const Quarn::BaseMsgID& kind);

/// A warning that is not one of the catalogue's kinds: libtiff's own
/// messages, surfaced after a successful command.
void zvWarning(const char* identifier, const std::string& message);
