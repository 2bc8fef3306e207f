#pragma once
/// The shell's statement language: tokens, the syntax tree and the parser.
/// Parsing is all-or-nothing: a text either yields every statement or one
/// SyntaxError with the line and column of the first fault.

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tiffgate::shell {

/// A fault in the text, at a 1-based line and column (columns count
/// characters, not bytes).
class SyntaxError : public std::runtime_error {
 public:
  SyntaxError(int line, int column, const std::string& what) : std::runtime_error(what), line_(line), column_(column) {}
  int line() const { return line_; }
  int column() const { return column_; }
  /// "line L, column C: WHAT"
  std::string describe() const;

 private:
  int line_;
  int column_;
};

struct Node;
using NodePtr = std::unique_ptr<Node>;

struct Node {
  enum class Kind {
    number,  ///< value
    text,    ///< text (UTF-8)
    name,    ///< text
    colon,   ///< a bare ':' as an index
    range,   ///< kids: start, [step,] stop
    negate,  ///< kids: operand
    call,    ///< kids: callee, arguments...   f(a, b) or x(i, j)
    brace,   ///< kids: cell, indices...       c{i}
    field,   ///< kids: structure; text: field name
    matrix,  ///< kids: elements row by row; row_sizes
    cell,    ///< as matrix
  };
  Kind kind;
  int line = 0;
  int column = 0;
  double value = 0;
  std::string text;
  std::vector<NodePtr> kids;
  std::vector<std::size_t> row_sizes;
};

struct Statement {
  std::vector<std::string> targets;  ///< empty: a bare expression
  bool multiple = false;             ///< written [a, b, ...] = expr
  bool print = true;                 ///< false when it ends in ';'
  NodePtr expr;
  int line = 0;
};

using Program = std::vector<Statement>;

/// Parses a whole text; throws SyntaxError.
Program parse(std::string_view text);

}  // namespace tiffgate::shell
