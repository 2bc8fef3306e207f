#pragma once
/// Values of the shell (the embedded host's arrays) and what the statement
/// language does with them: builtins, indexing, concatenation, ranges.

#include "host/embedded/array.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace tiffgate::shell {

using embedded::Array;

/// A failure while running a statement, shown as "error: ID: MESSAGE".
class ShellError : public std::runtime_error {
 public:
  ShellError(std::string identifier, const std::string& message)
      : std::runtime_error(message), identifier_(std::move(identifier)) {}
  const std::string& identifier() const { return identifier_; }

 private:
  std::string identifier_;
};

/// The shell's one way to fail a statement; never returns.
[[noreturn]] inline void fail(const std::string& identifier, const std::string& message) {
  throw ShellError(identifier, message);
}

/// Calls f with a value of the element type of class cls (bool for
/// logical, char16_t for char); cell, struct and others fail.
template <class F>
decltype(auto) with_element_type(zvClassID cls, F&& f) {
  switch (cls) {
    case zvDOUBLE_CLASS: return f(double{});
    case zvSINGLE_CLASS: return f(float{});
    case zvLOGICAL_CLASS: return f(bool{});
    case zvCHAR_CLASS: return f(char16_t{});
    case zvINT8_CLASS: return f(std::int8_t{});
    case zvUINT8_CLASS: return f(std::uint8_t{});
    case zvINT16_CLASS: return f(std::int16_t{});
    case zvUINT16_CLASS: return f(std::uint16_t{});
    case zvINT32_CLASS: return f(std::int32_t{});
    case zvUINT32_CLASS: return f(std::uint32_t{});
    case zvINT64_CLASS: return f(std::int64_t{});
    case zvUINT64_CLASS: return f(std::uint64_t{});
    default: break;
  }
  fail("tiffgate:wrongClass",
       std::string("expected an array of numbers, logicals or characters, not ") + embedded::class_name(cls));
}

/// Numeric (double, single, integers) or logical.
bool is_numeric_or_logical(zvClassID cls);

/// One subscript of x(...): ':' or an array of 1-based indices or a mask.
struct Subscript {
  bool all = false;
  Array values;
};

/// x(s1, s2, ...): the elements the subscripts select.
Array index(const Array& base, const std::vector<Subscript>& subscripts);
/// cat(dim, ...) with dim counted from 0; empty parts are left out.
Array concatenate(std::size_t dim, const std::vector<Array>& parts);
/// start:step:stop, a 1xN double.
Array range(double start, double step, double stop);
/// -x: doubles and singles negated, integers with saturation.
Array negate(const Array& x);

/// "2x3", "16x16x3".
std::string dims_text(const Array::Dims& dims);

/// Whether name is a builtin function of the shell.
bool is_builtin(std::string_view name);
/// Calls the builtin name (is_builtin(name) must hold) with args; only size
/// gives more than one value, when nargout asks for them.
std::vector<Array> call_builtin(std::string_view name, const std::vector<Array>& args, int nargout);

}  // namespace tiffgate::shell
