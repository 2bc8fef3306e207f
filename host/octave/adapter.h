#pragma once
/// What the files of the Octave host share: its own failures, warnings,
/// the at-exit list, and the layout of module text in Octave's characters.

#include <cstddef>
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

/// Octave's error routine, with the identifier and the text exactly as
/// given; it leaves by Octave's own exception and never returns.
[[noreturn]] void report_error(const char* identifier, const char* message);

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

}  // namespace tiffgate::octave_host
