#pragma once
/// How the shell shows values: NAME = CLASS DIMS VALUES, with small arrays
/// in full and large ones as a digest anyone can reproduce.

#include "shell/values.h"

#include <ostream>
#include <string>
#include <string_view>

namespace tiffgate::shell {

/// Arrays with more elements than this print as sha256=... min=... max=...
inline constexpr std::size_t kMaxPrintedElements = 64;

/// The shortest text that reads back as the same double or single.
std::string shortest(double v);
std::string shortest(float v);
/// UTF-8 text in single quotes, quotes inside doubled.
std::string quoted(std::string_view utf8);

/// "CLASS DIMS VALUES" of one value; full prints large arrays in full.
std::string describe(const Array& value, bool full);
/// The line NAME = CLASS DIMS VALUES; for a 1x1 structure the line
/// NAME = struct 1x1 and then NAME.FIELD = ... for each field, in order.
void print_value(std::ostream& out, const std::string& name, const Array& value, bool full);

/// "warning: ID: MESSAGE" or "error: ID: MESSAGE" on its own line.
void print_diagnostic(std::ostream& err, const char* kind, const std::string& identifier, const std::string& message);

}  // namespace tiffgate::shell
