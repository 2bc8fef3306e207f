// Errors and warnings through Octave's own routines. This file stays apart
// from the MEX header: Octave's C++ headers and mex.h declare mxArray
// differently and cannot meet in one file.
//
// error_with_id and warning_with_id are what mexErrMsgIdAndTxt and
// mexWarnMsgIdAndTxt call, less the "tiffgate: " ("unknown: " during unload)
// that those put before the text, so Octave shows the catalogue's text as it
// stands.

#include "host/octave/messages.h"

#include <octave/error.h>

namespace tiffgate::octave_host {

void report_error(const char* identifier, const char* message) {
  error_with_id(identifier, "%s", message);
}

void report_warning(const char* identifier, const char* message) {
  warning_with_id(identifier, "%s", message);
}

}  // namespace tiffgate::octave_host
