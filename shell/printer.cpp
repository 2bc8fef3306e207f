#include "shell/printer.h"

#include "shell/sha256.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace tiffgate::shell {

// The digest hashes the elements' bytes as stored, which is the
// little-endian form only on a little-endian machine.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the digests assume a little-endian machine");

namespace {

template <class T>
std::string floating(T v) {
  if (std::isnan(v)) return "NaN";
  if (std::isinf(v)) return v > 0 ? "Inf" : "-Inf";
  char buffer[64];
  // Without a format, to_chars gives the shortest text that round-trips.
  return std::string(buffer, std::to_chars(buffer, buffer + sizeof buffer, v).ptr);
}

template <class T>
void append_element(std::string& out, T v) {
  if constexpr (std::is_same_v<T, bool>) {
    out += v ? '1' : '0';
  } else if constexpr (std::is_floating_point_v<T>) {
    out += floating(v);
  } else {
    char buffer[24];
    out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, v).ptr);
  }
}

template <class T>
std::string digest(const Array& a) {
  const T* v = a.data_as<T>();
  bool any = false;
  T least{}, greatest{};
  for (std::size_t i = 0; i < a.numel(); ++i) {
    if constexpr (std::is_floating_point_v<T>) {
      if (std::isnan(v[i])) continue;  // as min and max do: NaN only when all are
    }
    if (!any || v[i] < least) least = v[i];
    if (!any || v[i] > greatest) greatest = v[i];
    any = true;
  }
  std::string out = "sha256=" + sha256_hex(a.data(), a.byte_size()) + " min=";
  if (!any) return out + "NaN max=NaN";
  append_element(out, least);
  out += " max=";
  append_element(out, greatest);
  return out;
}

}  // namespace

std::string shortest(double v) { return floating(v); }
std::string shortest(float v) { return floating(v); }

std::string quoted(std::string_view utf8) {
  std::string out = "'";
  for (char c : utf8) {
    out += c;
    if (c == '\'') out += '\'';
  }
  return out + "'";
}

std::string describe(const Array& value, bool full) {
  std::string out = std::string(value.class_name()) + " " + dims_text(value.dims());
  switch (value.class_id()) {
    case zvCHAR_CLASS: return out + " " + quoted(value.utf8());
    case zvCELL_CLASS: {
      out += " {";
      for (std::size_t i = 0; i < value.numel(); ++i) out += (i ? "; " : "") + describe(value.cells()[i], full);
      return out + "}";
    }
    case zvSTRUCT_CLASS: {
      // A structure inside a cell: its fields inline, in order.
      if (value.numel() != 1) return out;
      out += " {";
      const auto& names = value.field_names();
      for (std::size_t f = 0; f < names.size(); ++f)
        out += (f ? "; ." : ".") + names[f] + " = " + describe(*value.field(names[f]), full);
      return out + "}";
    }
    default: break;
  }
  if (!is_numeric_or_logical(value.class_id()) || value.empty()) return out;
  out += ' ';
  with_element_type(value.class_id(), [&](auto type) {
    using T = decltype(type);
    if (value.numel() > kMaxPrintedElements && !full) {
      out += digest<T>(value);
      return;
    }
    for (std::size_t i = 0; i < value.numel(); ++i) {
      if (i) out += ' ';
      append_element(out, value.at<T>(i));
    }
  });
  return out;
}

void print_value(std::ostream& out, const std::string& name, const Array& value, bool full) {
  if (value.class_id() != zvSTRUCT_CLASS || value.numel() != 1) {
    out << name << " = " << describe(value, full) << '\n';
    return;
  }
  out << name << " = struct 1x1\n";
  for (const std::string& field : value.field_names()) print_value(out, name + "." + field, *value.field(field), full);
}

void print_diagnostic(std::ostream& err, const char* kind, const std::string& identifier, const std::string& message) {
  err << kind << ": " << identifier << ": " << message << '\n';
}

}  // namespace tiffgate::shell
