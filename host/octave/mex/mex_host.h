#pragma once
/// The MEX adapter's own pieces, shared by its two files: the module's
/// opaque zvArray is Octave's mxArray.

#include "host/host.h"
#include "host/octave/adapter.h"
#include "host/octave/messages.h"

#include <mex.h>

#include <string>

namespace tiffgate::octave_host {

// The module only ever holds zvArray pointers; here they are Octave's arrays.
inline mxArray* mx(zvArray* array) { return reinterpret_cast<mxArray*>(array); }
inline const mxArray* mx(const zvArray* array) { return reinterpret_cast<const mxArray*>(array); }
inline zvArray* zv(mxArray* array) { return reinterpret_cast<zvArray*>(array); }
inline const zvArray* zv(const mxArray* array) { return reinterpret_cast<const zvArray*>(array); }

/// The array itself, or for a sparse array a full copy: the data of a
/// sparse array holds only its nonzeros, fewer than its element count says.
const mxArray* full_of(const mxArray* array);

}  // namespace tiffgate::octave_host
