#pragma once
/// The 25 commands of the gateway, the entries beyond them, and their lookup.

#include "core/command_scope.h"

#include <string_view>
#include <vector>

namespace tiffgate {

/// How the dispatcher checks a command's first operand before its handler runs.
enum class FileOperand {
  none,      ///< the command takes no file
  open,      ///< a file open now: badFileId for 0, invalidFileId otherwise
  closable,  ///< the same, but a file no longer open is handed on as null
};

/// One command: its word, how many operands it takes, its handler, and how
/// its file operand is checked.
struct CommandEntry {
  std::string_view name;
  int minOperands;
  int maxOperands;
  CommandHandler* handler;
  FileOperand file;
};

/// The table, built on first use (thread-safe static initialisation) and
/// released by its destructor at exit.
const std::vector<CommandEntry>& command_table();

/// The module's entries beyond the 25 commands, declared beside them.
const std::vector<CommandEntry>& entry_table();

/// Exact, case-sensitive lookup in both tables: InvalidOperation for an unknown word,
/// wrongNumberOfInputs when nOperands is outside the entry's limits.
const CommandEntry& lookup_command(std::string_view word, int nOperands);

}  // namespace tiffgate
