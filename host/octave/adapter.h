#pragma once
/// What both Octave adapters share: the oct-file over Octave's own arrays
/// (the default) and the MEX file. Neither Octave's headers nor mex.h are
/// needed here, so both may include it.

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace tiffgate::octave_host {

/// Identifiers of the failures that are not the module's kinds.
inline constexpr const char* kOutOfMemoryId = "tiffgate:outOfMemory";
inline constexpr const char* kInternalErrorId = "tiffgate:internalError";
inline constexpr const char* kComplexOperandId = "tiffgate:complexOperand";

/// A failure found by an adapter itself, outside the module.
struct OperandError {
  const char* identifier;
  std::string message;
};

/// The refusal of operand `index` (from 0): the module has no use for an
/// imaginary part.
OperandError complex_operand(int index);

/// Shows a warning through Octave's warning routine, so that lastwarn and
/// warning('off', id) see it. While the at-exit list runs, a warning the
/// user turned into an error is dropped rather than stop the closing.
void issue_warning(const char* identifier, const std::string& message);

/// Adds a function to the at-exit list, once.
void add_at_exit(void (*function)());

/// Runs the functions of the at-exit list, once each; the adapter calls it
/// when Octave clears the module or exits.
void run_at_exit();

/// Module text as Octave stores it. An Octave character is one byte, and
/// Octave's text is UTF-8. Text whose code units all lie below 256 (the
/// module's XMLPacket is its bytes taken as codes 0 to 255) keeps one
/// character per code unit and its dimensions, so bytes come back as the
/// bytes they were. Other text is stored row by row as UTF-8: the array
/// becomes rows x K, K being the longest row's UTF-8 length, shorter rows
/// padded with blanks as Octave's char() pads them; a one-row text is simply
/// its UTF-8 bytes.
struct CharLayout {
  std::vector<std::size_t> dims;  // two or more
  std::string chars;              // column-major
};
/// `dims` as the module gave them, made Octave's: none is 0 x 0, one extent
/// n is n x 1. `text` holds as many code units as the dimensions say (or is
/// null: blanks of code 0).
CharLayout char_layout(std::vector<std::size_t> dims, const char16_t* text);

/// Copies text into a fixed buffer, cut to fit: the buffer must outlive the
/// exception the text came from, and must need no destructor, because
/// Octave's error routine does not return.
template <std::size_t N>
void copy_text(char (&buffer)[N], const char* text) {
  std::snprintf(buffer, N, "%s", text ? text : "");
}

}  // namespace tiffgate::octave_host
