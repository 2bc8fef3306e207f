#include "files/files.h"
#include "gateway/command_table.h"
#include "core/errors.h"
#include "core/command_scope.h"

#include <tiffio.h>

#include <string>

namespace tiffgate {

namespace {

/// The command word; a call without one, or whose first input is not text,
/// is an InvalidOperation with an empty word.
std::string command_word(int nInputs, const zvArray* inputs[]) {
  if (nInputs < 1 || inputs == nullptr || inputs[0] == nullptr ||
      zvGetClassID(inputs[0]) != zvCHAR_CLASS)
    raise(Tiff::InvalidOperation(std::string()));
  // Read through the converter rather than as a NUL-terminated copy, so that
  // "close" followed by a NUL is not taken for "close".
  return zvArrayToNarrow(inputs[0]);
}

/// The file a command's first operand names, checked as its row says.
TIFF* file_operand(const CommandEntry& entry, const zvArray* operands[]) {
  switch (entry.file) {
    case FileOperand::open: return open_file(operands[0]);
    case FileOperand::closable: return open_file_or_null(operands[0]);
    case FileOperand::none: break;
  }
  return nullptr;
}

}  // namespace
}  // namespace tiffgate

// The number of outputs asked for is not consulted: every handler stores
// its results, and the host keeps what it asked for.
void zulFunction(int /*nOutputs*/, zvArray* outputs[], int nInputs, const zvArray* inputs[]) {
  using namespace tiffgate;
  zulAtExit(close_files_at_exit);
  as_command([&] {
    const std::string word = command_word(nInputs, inputs);
    const CommandEntry& entry = lookup_command(word, nInputs - 1);
    const zvArray** operands = inputs + 1;
    entry.handler(outputs, nInputs - 1, operands, file_operand(entry, operands));
  });
}
