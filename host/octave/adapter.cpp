// What the files of the Octave host share: errors and warnings through
// Octave's own routines, the at-exit list and the layout of module text in
// Octave's 8-bit characters.

#include "host/octave/adapter.h"

#include "core/text.h"

#include <octave/error.h>

#include <algorithm>
#include <limits>
#include <new>

namespace tiffgate::octave_host {
namespace {

struct AtExitState {
  std::vector<void (*)()> functions;
  bool running = false;
};

AtExitState& at_exit_state() {
  static AtExitState state;
  return state;
}

std::size_t numel_of(const std::vector<std::size_t>& dims) {
  std::size_t n = 1;
  for (std::size_t extent : dims) {
    if (extent != 0 && n > std::numeric_limits<std::size_t>::max() / extent) throw std::bad_alloc();
    n *= extent;
  }
  return n;
}

}  // namespace

// Octave's own routines take the text as it stands: no "tiffgate: " goes
// before the catalogue's text.
void report_error(const char* identifier, const char* message) { error_with_id(identifier, "%s", message); }

OperandError complex_operand(int index) {
  return {kComplexOperandId,
          "Argument " + std::to_string(index + 1) + " is complex; tiffgate takes real values only."};
}

void issue_warning(const char* identifier, const std::string& message) {
  if (!at_exit_state().running) {
    warning_with_id(identifier, "%s", message.c_str());
    return;
  }
  try {
    warning_with_id(identifier, "%s", message.c_str());
  } catch (...) {
    // warning('error', ...) made this an error; the closer must still go on.
  }
}

void add_at_exit(void (*function)()) {
  auto& functions = at_exit_state().functions;
  if (std::find(functions.begin(), functions.end(), function) == functions.end())
    functions.push_back(function);
}

void run_at_exit() {
  AtExitState& state = at_exit_state();
  std::vector<void (*)()> functions;
  functions.swap(state.functions);
  state.running = true;
  for (auto* function : functions) {
    try {
      function();
    } catch (...) {
      // Octave is unloading the module: there is nobody left to report to.
    }
  }
  state.running = false;
}

CharLayout char_layout(std::vector<std::size_t> dims, const char16_t* text) {
  if (dims.empty()) dims = {0, 0};
  if (dims.size() < 2) dims.push_back(1);
  const std::size_t numel = numel_of(dims);
  const bool bytes = text == nullptr || std::all_of(text, text + numel, [](char16_t c) { return c < 0x100; });
  if (bytes) {
    std::string chars(numel, '\0');
    if (text != nullptr)
      std::transform(text, text + numel, chars.begin(), [](char16_t c) { return static_cast<char>(c); });
    return {std::move(dims), std::move(chars)};
  }
  const std::size_t rows = dims[0];
  const std::size_t columns = numel / rows;
  std::vector<std::string> lines(rows);
  std::size_t width = 0;
  for (std::size_t r = 0; r < rows; ++r) {
    std::u16string row(columns, u' ');
    for (std::size_t c = 0; c < columns; ++c) row[c] = text[r + c * rows];
    lines[r] = tiffgate::utf16_to_utf8(row);
    width = std::max(width, lines[r].size());
  }
  std::string chars(rows * width, ' ');
  for (std::size_t r = 0; r < rows; ++r)
    for (std::size_t c = 0; c < lines[r].size(); ++c) chars[r + c * rows] = lines[r][c];
  return {{rows, width}, std::move(chars)};
}

}  // namespace tiffgate::octave_host
