#pragma once
/// Octave's error and warning routines, reached apart from the MEX header
/// (see messages.cpp).

namespace tiffgate::octave_host {

/// Octave's error routine, with the identifier and the text exactly as
/// given; it leaves by Octave's own exception and never returns.
[[noreturn]] void report_error(const char* identifier, const char* message);
/// Octave's warning routine; lastwarn and warning('off', id) see it.
void report_warning(const char* identifier, const char* message);

}  // namespace tiffgate::octave_host
