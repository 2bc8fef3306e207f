#include "shell/syntax.h"

#include <cstdio>
#include <cstdlib>

namespace tiffgate::shell {

std::string SyntaxError::describe() const {
  return "line " + std::to_string(line_) + ", column " + std::to_string(column_) + ": " + what();
}

namespace {

enum class Tok { number, text, name, punct, newline, end };

struct Token {
  Tok kind;
  int line;
  int column;
  bool space_before;  ///< blanks before it: they separate elements in [] and {}
  char punct = 0;
  double value = 0;
  std::string text;
};

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_name_char(char c) { return is_letter(c) || is_digit(c) || c == '_'; }

constexpr std::string_view kPunctuation = "()[]{},;=:.+-";

class Lexer {
 public:
  explicit Lexer(std::string_view text) : text_(text) {}

  std::vector<Token> tokens() {
    std::vector<Token> out;
    bool space = false;
    for (;;) {
      const char c = current();
      if (c == ' ' || c == '\t' || c == '\r') {
        bump();
        space = true;
        continue;
      }
      if (c == '#' || c == '%') {
        while (pos_ < text_.size() && current() != '\n') bump();
        continue;
      }
      Token t{Tok::end, line_, column_, space, 0, 0, {}};
      space = false;
      if (pos_ >= text_.size()) {
        out.push_back(t);
        return out;
      }
      if (c == '\n') {
        t.kind = Tok::newline;
        bump();
      } else if (is_digit(c) || (c == '.' && is_digit(current(1)))) {
        number(t);
      } else if (is_letter(c)) {
        t.kind = Tok::name;
        while (is_name_char(current())) t.text += bump();
      } else if (c == '\'') {
        quoted(t);
      } else if (kPunctuation.find(c) != std::string_view::npos) {
        t.kind = Tok::punct;
        t.punct = bump();
      } else {
        throw SyntaxError(line_, column_, unexpected_character(c));
      }
      out.push_back(std::move(t));
    }
  }

 private:
  char current(std::size_t ahead = 0) const { return pos_ + ahead < text_.size() ? text_[pos_ + ahead] : '\0'; }

  char bump() {
    const char c = text_[pos_++];
    if (c == '\n') {
      ++line_;
      column_ = 1;
    } else if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
      ++column_;  // UTF-8 continuation bytes belong to the previous character
    }
    return c;
  }

  void number(Token& t) {
    t.kind = Tok::number;
    std::string digits;
    while (is_digit(current())) digits += bump();
    if (current() == '.') {
      digits += bump();
      while (is_digit(current())) digits += bump();
    }
    if (current() == 'e' || current() == 'E') {
      digits += bump();
      if (current() == '+' || current() == '-') digits += bump();
      if (!is_digit(current())) throw SyntaxError(t.line, t.column, "malformed number '" + digits + "'");
      while (is_digit(current())) digits += bump();
    }
    if (is_name_char(current()) || current() == '.')
      throw SyntaxError(t.line, t.column, "malformed number '" + digits + current() + "'");
    // The C locale is never changed, so strtod reads '.' as the decimal
    // point; it also gives Inf and 0 on overflow and underflow, as wanted.
    t.value = std::strtod(digits.c_str(), nullptr);
  }

  void quoted(Token& t) {
    t.kind = Tok::text;
    bump();
    for (;;) {
      if (pos_ >= text_.size() || current() == '\n') throw SyntaxError(t.line, t.column, "unterminated text");
      const char c = bump();
      if (c != '\'') {
        t.text += c;
      } else if (current() == '\'') {
        t.text += bump();  // '' stands for one quote
      } else {
        return;
      }
    }
  }

  static std::string unexpected_character(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x21 && byte < 0x7F) return std::string("unexpected character '") + c + "'";
    char hex[8];
    std::snprintf(hex, sizeof hex, "0x%02X", byte);
    return std::string("unexpected byte ") + hex;
  }

  std::string_view text_;
  std::size_t pos_ = 0;
  int line_ = 1;
  int column_ = 1;
};

class Parser {
 public:
  explicit Parser(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

  Program program() {
    Program program;
    for (;;) {
      while (peek().kind == Tok::newline || is(',') || is(';')) next();
      if (peek().kind == Tok::end) return program;
      program.push_back(statement());
    }
  }

 private:
  const Token& peek(std::size_t ahead = 0) const { return tokens_[std::min(pos_ + ahead, tokens_.size() - 1)]; }
  const Token& next() {
    const Token& t = peek();
    if (pos_ + 1 < tokens_.size()) ++pos_;
    return t;
  }
  bool is(char punct, std::size_t ahead = 0) const {
    return peek(ahead).kind == Tok::punct && peek(ahead).punct == punct;
  }

  static std::string describe(const Token& t) {
    switch (t.kind) {
      case Tok::number: return "a number";
      case Tok::text: return "a text";
      case Tok::name: return "'" + t.text + "'";
      case Tok::punct: return std::string("'") + t.punct + "'";
      case Tok::newline: return "the end of the line";
      case Tok::end: break;
    }
    return "the end of the input";
  }
  [[noreturn]] static void fail(const Token& t, const std::string& what) { throw SyntaxError(t.line, t.column, what); }
  void expect(char punct, const char* context) {
    if (!is(punct)) fail(peek(), std::string("expected '") + punct + "' " + context + ", found " + describe(peek()));
    next();
  }

  NodePtr make(Node::Kind kind, const Token& at) {
    auto n = std::make_unique<Node>();
    n->kind = kind;
    n->line = at.line;
    n->column = at.column;
    return n;
  }

  Statement statement() {
    Statement s;
    s.line = peek().line;
    if (is('[') && multiple_assignment_ahead()) {
      s.multiple = true;
      targets(s);
    } else if (peek().kind == Tok::name && is('=', 1)) {
      s.targets.push_back(next().text);
      next();
    }
    s.expr = expression(false);
    if (is(',') || peek().kind == Tok::newline) {
      next();
    } else if (is(';')) {
      s.print = false;
      next();
    } else if (is('=')) {
      fail(peek(), "only a name or a list [a, b, ...] of names can be assigned to");
    } else if (peek().kind != Tok::end) {
      fail(peek(), "unexpected " + describe(peek()));
    }
    return s;
  }

  /// Whether the '[' here opens "[a, b] =" rather than a matrix.
  bool multiple_assignment_ahead() const {
    int depth = 0;
    for (std::size_t i = 0;; ++i) {
      const Token& t = peek(i);
      if (t.kind == Tok::newline || t.kind == Tok::end) return false;
      if (t.kind != Tok::punct) continue;
      if (t.punct == '[' || t.punct == '(' || t.punct == '{') ++depth;
      if (t.punct == ']' || t.punct == ')' || t.punct == '}') --depth;
      if (depth == 0) return is('=', i + 1);
    }
  }

  void targets(Statement& s) {
    next();  // '['
    for (;;) {
      if (peek().kind != Tok::name) fail(peek(), "expected a variable name, found " + describe(peek()));
      s.targets.push_back(next().text);
      if (is(',')) next();
      if (is(']')) break;
    }
    next();
    next();  // '='
  }

  /// Counts nesting while an expression is parsed: a deep enough text would
  /// otherwise exhaust the stack here, in evaluation or in destruction.
  class Nesting {
   public:
    Nesting(Parser& parser, int levels) : parser_(parser), levels_(levels) {
      parser_.depth_ += levels_;
      if (parser_.depth_ > kMaxDepth) {
        parser_.depth_ -= levels_;
        fail(parser_.peek(), "expressions are nested too deeply");
      }
    }
    ~Nesting() { parser_.depth_ -= levels_; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

   private:
    Parser& parser_;
    int levels_;
  };
  static constexpr int kMaxDepth = 256;

  NodePtr expression(bool in_matrix) {
    const Nesting nesting(*this, 1);
    NodePtr start = unary(in_matrix);
    if (!is(':')) return start;
    auto range = make(Node::Kind::range, next());
    range->kids.push_back(std::move(start));
    range->kids.push_back(unary(in_matrix));
    if (is(':')) {
      next();
      range->kids.push_back(unary(in_matrix));
    }
    return range;
  }

  NodePtr unary(bool in_matrix) {
    if (is('+')) {
      next();
      return unary(in_matrix);
    }
    if (is('-')) {
      const Nesting nesting(*this, 1);
      auto negate = make(Node::Kind::negate, next());
      negate->kids.push_back(unary(in_matrix));
      return negate;
    }
    return postfix(in_matrix);
  }

  NodePtr postfix(bool in_matrix) {
    NodePtr node = primary();
    for (int links = 1;; ++links) {
      // Inside [] and {} a blank ends the element: [a (1)] is two elements.
      if (in_matrix && peek().space_before) return node;
      Node::Kind kind;
      if (is('(')) {
        kind = Node::Kind::call;
      } else if (is('{')) {
        kind = Node::Kind::brace;
      } else if (is('.')) {
        kind = Node::Kind::field;
      } else {
        return node;
      }
      // Each link of x(1)(2).f nests the tree one level deeper.
      const Nesting nesting(*this, links);
      auto outer = make(kind, peek());
      outer->kids.push_back(std::move(node));
      if (kind == Node::Kind::field) {
        next();
        if (peek().kind != Tok::name) fail(peek(), "expected a field name after '.', found " + describe(peek()));
        outer->text = next().text;
      } else {
        arguments(*outer, kind == Node::Kind::call ? ')' : '}');
      }
      node = std::move(outer);
    }
  }

  void arguments(Node& call, char close) {
    next();  // the opener
    if (is(close)) {
      next();
      return;
    }
    for (;;) {
      if (is(':') && (is(',', 1) || is(close, 1))) {
        call.kids.push_back(make(Node::Kind::colon, next()));
      } else {
        call.kids.push_back(expression(false));
      }
      if (is(close)) {
        next();
        return;
      }
      if (!is(',')) fail(peek(), std::string("expected ',' or '") + close + "', found " + describe(peek()));
      next();
    }
  }

  NodePtr primary() {
    const Token& t = peek();
    switch (t.kind) {
      case Tok::number: {
        auto n = make(Node::Kind::number, next());
        n->value = t.value;
        return n;
      }
      case Tok::text:
      case Tok::name: {
        auto n = make(t.kind == Tok::text ? Node::Kind::text : Node::Kind::name, next());
        n->text = t.text;
        return n;
      }
      case Tok::punct:
        if (t.punct == '(') {
          next();
          NodePtr inner = expression(false);
          expect(')', "to close '('");
          return inner;
        }
        if (t.punct == '[') return bracketed(Node::Kind::matrix, ']');
        if (t.punct == '{') return bracketed(Node::Kind::cell, '}');
        break;
      default: break;
    }
    fail(t, "expected a value, found " + describe(t));
  }

  /// [a b, c; d e f] and {a, b}: elements separated by ',' or blanks, rows by ';'.
  NodePtr bracketed(Node::Kind kind, char close) {
    const Token& open = next();
    auto n = make(kind, open);
    std::size_t in_row = 0;
    bool separated = true;
    for (;;) {
      if (is(close)) {
        next();
        break;
      }
      const Token& t = peek();
      if (t.kind == Tok::newline || t.kind == Tok::end)
        fail(t, std::string("missing '") + close + "' to close the one at column " + std::to_string(open.column));
      if (is(';')) {
        next();
        if (in_row > 0) n->row_sizes.push_back(in_row);
        in_row = 0;
        separated = true;
      } else if (is(',')) {
        if (separated) fail(t, "unexpected ','");
        next();
        separated = true;
      } else {
        if (!separated && !t.space_before) fail(t, "unexpected " + describe(t));
        // [1 -2] is two elements; [1 - 2] would read as a subtraction,
        // which the shell does not do.
        if (!separated && (is('-') || is('+')) && peek(1).space_before)
          fail(t, std::string("unexpected '") + t.punct + "': the shell does no arithmetic");
        n->kids.push_back(expression(true));
        ++in_row;
        separated = false;
      }
    }
    if (in_row > 0) n->row_sizes.push_back(in_row);
    return n;
  }

  std::vector<Token> tokens_;
  std::size_t pos_ = 0;
  int depth_ = 0;
};

}  // namespace

Program parse(std::string_view text) { return Parser(Lexer(text).tokens()).program(); }

}  // namespace tiffgate::shell
