#pragma once
/// Driving the module through the embedded host: call a command with
/// operands, get back its outputs, the warnings it issued in order, and the
/// error it raised. A failed call leaves the host ready for the next one.

#include "core/msgid.h"
#include "host/embedded/array.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tiffgate::embedded {

struct Warning {
  std::string identifier;
  std::string message;
  std::vector<Quarn::MsgArg> arguments;  ///< empty for libtiff's own messages
};

struct Error {
  std::string identifier;  ///< e.g. "Quarn:imagesci:Tiff:badFileId"
  std::string message;     ///< the catalogue's text, rendered
  std::vector<Quarn::MsgArg> arguments;
};

struct CallResult {
  /// The output slots the call filled, in order; a slot left unset is null.
  std::vector<std::optional<Array>> outputs;
  std::vector<Warning> warnings;
  std::optional<Error> error;

  bool ok() const { return !error.has_value(); }
  /// Output slot i; throws std::logic_error when the call left it unset.
  const Array& out(std::size_t i = 0) const;
  /// The error's identifier, or "" after a success.
  std::string error_id() const { return error ? error->identifier : std::string(); }
};

/// Calls the gateway with the command word and operands.
CallResult call(std::string_view command, std::vector<Array> operands = {}, int nOutputs = 1);
/// Calls the gateway with exactly these inputs (the word among them, or not).
CallResult call_inputs(const std::vector<Array>& inputs, int nOutputs = 1);

/// Unloads the module as a host does: runs the at-exit list once, and
/// returns the warnings issued meanwhile. Functions registered later form a
/// new list for the next unload.
std::vector<Warning> unload();

}  // namespace tiffgate::embedded
