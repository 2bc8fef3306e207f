#pragma once
/// The two fuzz drivers, callable from a fuzz target and from an ordinary
/// test alike: each takes one input and runs it through the gateway of the
/// embedded host, checking what must hold after every call.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tiffgate::fuzz {

struct RunReport {
  std::size_t calls = 0;     ///< gateway calls made
  std::size_t failures = 0;  ///< calls that ended in an error kind, as they may
  std::size_t skipped = 0;   ///< data commands left out to stay within the budget
  std::size_t steps = 0;     ///< program steps read (command driver), skipped ones included
  /// Broken invariants (an error that is no kind of the catalogue, a file
  /// left open, a closed identifier still accepted); each one is a bug.
  std::vector<std::string> problems;
};

/// The input is a TIFF file: opened, and every directory and SubIFD read
/// through every reading command.
RunReport run_file_input(const std::uint8_t* data, std::size_t size);

/// The input is a program: a sequence of commands with hostile operands
/// against a few valid files opened for reading and one opened for writing.
RunReport run_command_input(const std::uint8_t* data, std::size_t size);

}  // namespace tiffgate::fuzz
