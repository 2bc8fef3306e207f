#pragma once
/// The Octave adapter's own pieces, shared by its two files: the module's
/// opaque zvArray is Octave's mxArray, the at-exit list, and warnings.

#include "host/host.h"
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

/// Shows a warning through Octave's warning routine, so that lastwarn and
/// warning('off', id) see it. While the at-exit list runs, a warning the
/// user turned into an error is dropped rather than stop the closing.
void issue_warning(const char* identifier, const std::string& message);

/// Runs the functions given to zulAtExit, once each; Octave calls it when
/// it clears the MEX file or exits.
void run_at_exit();

}  // namespace tiffgate::octave_host
