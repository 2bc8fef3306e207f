#pragma once
/// The 25 commands of the gateway and their lookup.

#include "core/host.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

typedef struct tiff TIFF;

namespace tiffgate {

/// Every handler has this signature. operands are the inputs after the
/// command word; a result goes to outputs[0] (the YCbCr reads fill 0 to 2).
/// tif is the open file that operands[0] names, for the commands that take
/// one (null for "close" of a file no longer open, and for the others).
using Handler = void (*)(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);

/// How the dispatcher checks a command's first operand before its handler runs.
enum class FileOperand {
  none,      ///< the command takes no file
  open,      ///< a file open now: badFileId for 0, invalidFileId otherwise
  closable,  ///< the same, but a file no longer open is handed on as null
};

struct CommandEntry {
  std::int32_t code;
  std::int32_t minOperands;
  std::int32_t maxOperands;
  std::string name;
  std::string libraryRoutine;  ///< informational only, never looked up
  Handler handler;
  FileOperand file;
};

/// The table, built on first use (thread-safe static initialisation) and
/// released by its destructor at exit.
const std::vector<CommandEntry>& command_table();

/// Exact, case-sensitive lookup: InvalidOperation for an unknown word,
/// wrongNumberOfInputs when nOperands is outside the entry's limits.
const CommandEntry& lookup_command(std::string_view word, int nOperands);

}  // namespace tiffgate
