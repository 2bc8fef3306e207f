#pragma once
/// The 25 commands of the gateway and their lookup.

#include "host/host.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tiffgate {

struct CommandEntry;

/// Every handler has this signature. operands are the inputs after the
/// command word; a result goes to outputs[0] (the YCbCr reads fill 0 to 2).
using Handler = void (*)(int nOutputs, zvArray* outputs[], int nOperands, const zvArray* operands[],
                         const CommandEntry& entry);

struct CommandEntry {
  std::int32_t code;
  std::int32_t minOperands;
  std::int32_t maxOperands;
  std::string name;
  std::string libraryRoutine;  ///< informational only, never looked up
  Handler handler;
};

/// The table, built on first use (thread-safe static initialisation) and
/// released by its destructor at exit.
const std::vector<CommandEntry>& command_table();

/// Exact, case-sensitive lookup: InvalidOperation for an unknown word,
/// wrongNumberOfInputs when nOperands is outside the entry's limits.
const CommandEntry& lookup_command(std::string_view word, int nOperands);

}  // namespace tiffgate
