#include "shell/interpreter.h"

#include "host/embedded/session.h"
#include "shell/printer.h"

#include <cmath>
#include <limits>
#include <new>

namespace tiffgate::shell {

namespace {

double range_operand(const Array& a) {
  if (!is_numeric_or_logical(a.class_id()) || a.numel() != 1)
    fail("tiffgate:badArgument",
         std::string("a range needs numeric scalars, not ") + a.class_name() + " " + dims_text(a.dims()));
  return a.number(0);
}

/// How an expression is named in messages about its values.
std::string what_gives(const Node& node) {
  if (node.kind == Node::Kind::call && node.kids[0]->kind == Node::Kind::name) return "'" + node.kids[0]->text + "'";
  if (node.kind == Node::Kind::name) return "'" + node.text + "'";
  return "the expression";
}

}  // namespace

bool Interpreter::run(const Program& program) {
  bool ok = true;
  for (const Statement& statement : program) {
    try {
      execute(statement);
      continue;
    } catch (const ShellError& e) {
      report("error", e.identifier(), e.what());
    } catch (const std::bad_alloc&) {
      report("error", "tiffgate:outOfMemory", "Out of memory.");
    } catch (const std::length_error&) {
      report("error", "tiffgate:outOfMemory", "Out of memory.");
    } catch (const std::exception& e) {
      // Nothing else is expected here; report it rather than end the shell.
      report("error", "tiffgate:internalError", e.what());
    }
    ok = false;
    if (!options_.keep_going) break;
  }
  return ok;
}

void Interpreter::leave() {
  for (const auto& w : embedded::unload()) report("warning", w.identifier, w.message);
}

void Interpreter::assign(const std::string& name, Array value) { variables_[name] = std::move(value); }

const Array* Interpreter::variable(const std::string& name) const {
  const auto it = variables_.find(name);
  return it == variables_.end() ? nullptr : &it->second;
}

void Interpreter::report(const char* kind, const std::string& identifier, const std::string& message) {
  out_.flush();  // keep the two streams in the order things happened
  print_diagnostic(err_, kind, identifier, message);
  err_.flush();
}

void Interpreter::show(const std::string& name, const Array& value) { print_value(out_, name, value, options_.full); }

void Interpreter::execute(const Statement& s) {
  if (s.multiple) {
    std::vector<Array> values = evaluate(*s.expr, static_cast<int>(s.targets.size()));
    if (values.size() < s.targets.size())
      fail("tiffgate:missingOutput", what_gives(*s.expr) + " gave " + std::to_string(values.size()) +
                                         " value(s), but " + std::to_string(s.targets.size()) + " were asked for");
    for (std::size_t i = 0; i < s.targets.size(); ++i) variables_[s.targets[i]] = std::move(values[i]);
    if (s.print)
      for (const std::string& name : s.targets) show(name, variables_[name]);
    return;
  }
  if (!s.targets.empty()) {
    Array& slot = variables_[s.targets[0]] = value_of(*s.expr);
    if (s.print) show(s.targets[0], slot);
    return;
  }
  // A bare variable shows itself under its own name.
  if (s.expr->kind == Node::Kind::name && variable(s.expr->text) != nullptr) {
    if (s.print) show(s.expr->text, *variable(s.expr->text));
    return;
  }
  std::vector<Array> values = evaluate(*s.expr, 0);
  if (values.empty()) return;
  Array& ans = variables_["ans"] = std::move(values[0]);
  if (s.print) show("ans", ans);
}

Array Interpreter::value_of(const Node& node) {
  std::vector<Array> values = evaluate(node, 1);
  if (values.empty()) fail("tiffgate:noValue", what_gives(node) + " gave no value");
  return std::move(values[0]);
}

bool Interpreter::is_value_name(const std::string& name) const {
  return variable(name) != nullptr || name == "NaN" || name == "Inf" || name == "true" || name == "false";
}

std::optional<Array> Interpreter::named_value(const std::string& name) const {
  if (const Array* v = variable(name)) return *v;
  if (name == "NaN") return Array::scalar(std::numeric_limits<double>::quiet_NaN());
  if (name == "Inf") return Array::scalar(std::numeric_limits<double>::infinity());
  if (name == "true" || name == "false") return Array::logical(name == "true");
  return std::nullopt;
}

std::vector<Array> Interpreter::evaluate(const Node& node, int nargout) {
  switch (node.kind) {
    case Node::Kind::number: return {Array::scalar(node.value)};
    case Node::Kind::text: return {Array::text(node.text)};
    case Node::Kind::name:
      if (auto v = named_value(node.text)) return {std::move(*v)};
      return call(node, nargout);  // a function named without parentheses
    case Node::Kind::colon: fail("tiffgate:badIndex", "':' stands for a whole dimension only inside an index");
    case Node::Kind::range: {
      const double start = range_operand(value_of(*node.kids[0]));
      const double second = range_operand(value_of(*node.kids[1]));
      if (node.kids.size() == 2) return {range(start, 1, second)};
      return {range(start, second, range_operand(value_of(*node.kids[2])))};
    }
    case Node::Kind::negate: return {negate(value_of(*node.kids[0]))};
    case Node::Kind::call: return call(node, nargout);
    case Node::Kind::brace:
    case Node::Kind::field: {
      const Array base = value_of(*node.kids[0]);
      if (node.kind == Node::Kind::field) {
        const Array* field = base.class_id() == zvSTRUCT_CLASS ? base.field(node.text) : nullptr;
        if (field == nullptr)
          fail("tiffgate:noSuchField",
               base.class_id() == zvSTRUCT_CLASS
                   ? "the structure has no field '" + node.text + "'"
                   : std::string("'.") + node.text + "' needs a structure, not " + base.class_name());
        return {*field};
      }
      if (base.class_id() != zvCELL_CLASS)
        fail("tiffgate:badIndex", std::string("{} indexes a cell, not ") + base.class_name());
      std::vector<Subscript> subscripts;
      for (std::size_t i = 1; i < node.kids.size(); ++i) {
        const bool all = node.kids[i]->kind == Node::Kind::colon;
        subscripts.push_back({all, all ? Array() : value_of(*node.kids[i])});
      }
      const Array picked = index(base, subscripts);
      if (picked.numel() != 1)
        fail("tiffgate:badIndex", "{} must pick one element, not " + std::to_string(picked.numel()));
      return {picked.cells()[0]};
    }
    case Node::Kind::matrix:
    case Node::Kind::cell: return {elements(node)};
  }
  return {};
}

std::vector<Array> Interpreter::call(const Node& node, int nargout) {
  // node is f(args) or x(subscripts), or a bare name of a function.
  const Node& callee = node.kind == Node::Kind::call ? *node.kids[0] : node;
  const std::size_t first = node.kind == Node::Kind::call ? 1 : node.kids.size();
  const bool function = callee.kind == Node::Kind::name && !is_value_name(callee.text);
  if (!function) {
    // Index a variable in place rather than copy what may be a whole image.
    const Array* base = callee.kind == Node::Kind::name ? variable(callee.text) : nullptr;
    std::optional<Array> held;
    if (base == nullptr) base = &held.emplace(value_of(callee));
    std::vector<Subscript> subscripts;
    for (std::size_t i = first; i < node.kids.size(); ++i) {
      const bool all = node.kids[i]->kind == Node::Kind::colon;
      subscripts.push_back({all, all ? Array() : value_of(*node.kids[i])});
    }
    return {index(*base, subscripts)};
  }
  const std::string& name = callee.text;
  std::vector<Array> args;
  for (std::size_t i = first; i < node.kids.size(); ++i) args.push_back(value_of(*node.kids[i]));
  if (name == "gateway") return call_gateway(std::nullopt, std::move(args), nargout);
  if (is_builtin(name)) return call_builtin(name, args, nargout);
  // Any other name goes to the module, which knows its commands: a word it
  // does not know is the name of nothing at all.
  try {
    return call_gateway(name, std::move(args), nargout);
  } catch (const ShellError& e) {
    if (e.identifier() != "Quarn:imagesci:Tiff:InvalidOperation") throw;
    fail("tiffgate:undefined", "'" + name + "' is neither a variable, a builtin nor a command");
  }
}

std::vector<Array> Interpreter::call_gateway(std::optional<std::string> word, std::vector<Array> operands,
                                             int nargout) {
  embedded::CallResult result =
      word ? embedded::call(*word, std::move(operands), nargout) : embedded::call_inputs(operands, nargout);
  for (const auto& w : result.warnings) report("warning", w.identifier, w.message);
  if (!result.ok()) fail(result.error->identifier, result.error->message);
  std::vector<Array> values;
  for (auto& slot : result.outputs) {
    if (!slot) break;
    values.push_back(std::move(*slot));
  }
  return values;
}

Array Interpreter::elements(const Node& node) {
  // Each row is concatenated along dimension 2, then the rows along 1; a
  // cell's elements are each wrapped in a 1x1 cell first.
  std::vector<Array> rows;
  std::size_t next = 0;
  for (std::size_t count : node.row_sizes) {
    std::vector<Array> row;
    for (std::size_t i = 0; i < count; ++i, ++next) {
      Array v = value_of(*node.kids[next]);
      row.push_back(node.kind == Node::Kind::cell ? Array::cell({std::move(v)}) : std::move(v));
    }
    rows.push_back(concatenate(1, row));
  }
  if (rows.empty()) return node.kind == Node::Kind::cell ? Array(zvCELL_CLASS, {0, 0}) : Array();
  return concatenate(0, rows);
}

}  // namespace tiffgate::shell
