#pragma once
/// Runs statements against the embedded host: variables, builtins, and the
/// gateway's commands, printing values, warnings and errors as it goes.

#include "shell/syntax.h"
#include "shell/values.h"

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace tiffgate::shell {

class Interpreter {
 public:
  struct Options {
    bool full = false;        ///< print large arrays in full
    bool keep_going = false;  ///< go on after a statement fails
  };

  Interpreter(std::ostream& out, std::ostream& err, Options options) : out_(out), err_(err), options_(options) {}

  /// Runs the statements in order; a failing one is reported and, unless
  /// keep_going, ends the run. Returns whether every statement succeeded.
  bool run(const Program& program);
  /// What the shell does when it leaves: unloads the module, so that files
  /// still open are closed, with their warnings.
  void leave();

  /// Sets a variable, as name = value does.
  void assign(const std::string& name, Array value);
  /// A variable's value, or null.
  const Array* variable(const std::string& name) const;

 private:
  void execute(const Statement& statement);
  /// The values of an expression: calls may give several (or none).
  std::vector<Array> evaluate(const Node& node, int nargout);
  /// Exactly one value.
  Array value_of(const Node& node);
  std::vector<Array> call(const Node& node, int nargout);
  std::vector<Array> call_gateway(std::optional<std::string> word, std::vector<Array> operands, int nargout);
  Array elements(const Node& node);
  /// A variable or one of the constants NaN, Inf, true, false.
  bool is_value_name(const std::string& name) const;
  std::optional<Array> named_value(const std::string& name) const;
  void report(const char* kind, const std::string& identifier, const std::string& message);
  void show(const std::string& name, const Array& value);

  std::ostream& out_;
  std::ostream& err_;
  Options options_;
  std::map<std::string, Array> variables_;
};

}  // namespace tiffgate::shell
