#include "shell/values.h"

#include "shell/printer.h"  // shortest

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

namespace tiffgate::shell {

namespace {

/// Copies count elements (bytes, or cell elements) from one array to another.
void copy_elements(const Array& from, std::size_t from_index, Array& to, std::size_t to_index, std::size_t count) {
  if (from.class_id() == zvCELL_CLASS) {
    std::copy_n(from.cells().begin() + static_cast<std::ptrdiff_t>(from_index), count,
                to.cells().begin() + static_cast<std::ptrdiff_t>(to_index));
    return;
  }
  const std::size_t size = from.element_size();
  if (count > 0)
    std::memcpy(static_cast<unsigned char*>(to.data()) + to_index * size,
                static_cast<const unsigned char*>(from.data()) + from_index * size, count * size);
}

/// Converts one element, the way numerical hosts do: to an integer class
/// rounded to nearest (halves away from zero) and saturated, NaN giving 0.
template <class Dst, class Src>
Dst cast_element(Src v) {
  if constexpr (std::is_same_v<Dst, bool>) {
    return v != 0;
  } else if constexpr (std::is_floating_point_v<Dst>) {
    if constexpr (std::is_same_v<Dst, float> && std::is_same_v<Src, double>) {
      // Past the midpoint between the largest single and 2^128 the nearest
      // single is infinite; a plain cast there would be undefined.
      if (std::fabs(v) >= 0x1.ffffffp127)
        return std::copysign(std::numeric_limits<float>::infinity(), static_cast<float>(v));
    }
    return static_cast<Dst>(v);
  } else if constexpr (std::is_floating_point_v<Src>) {
    if (std::isnan(v)) return 0;
    const double r = std::round(static_cast<double>(v));
    // 2^digits is the first value past the greatest; the least (0 or
    // -2^digits) is exact in a double.
    if (r >= std::ldexp(1.0, std::numeric_limits<Dst>::digits)) return std::numeric_limits<Dst>::max();
    if (r <= static_cast<double>(std::numeric_limits<Dst>::lowest())) return std::numeric_limits<Dst>::lowest();
    return static_cast<Dst>(r);
  } else {
    if constexpr (std::is_signed_v<Src>) {
      if (v < 0) {
        if constexpr (std::is_unsigned_v<Dst>)
          return 0;
        else
          return static_cast<std::intmax_t>(v) < std::numeric_limits<Dst>::lowest() ? std::numeric_limits<Dst>::lowest()
                                                                                    : static_cast<Dst>(v);
      }
    }
    return static_cast<std::uintmax_t>(v) > static_cast<std::uintmax_t>(std::numeric_limits<Dst>::max())
               ? std::numeric_limits<Dst>::max()
               : static_cast<Dst>(v);
  }
}

Array convert(const Array& x, zvClassID target) {
  if (!is_numeric_or_logical(x.class_id()))
    fail("tiffgate:wrongClass",
         std::string("cannot convert ") + x.class_name() + " to " + embedded::class_name(target));
  if (target == zvLOGICAL_CLASS)
    for (std::size_t i = 0; i < x.numel(); ++i)
      if (std::isnan(x.number(i))) fail("tiffgate:badArgument", "NaN cannot be converted to logical");
  Array out(target, x.dims(), false);
  with_element_type(target, [&](auto dst_type) {
    using Dst = decltype(dst_type);
    with_element_type(x.class_id(), [&](auto src_type) {
      using Src = decltype(src_type);
      const Src* from = x.data_as<Src>();
      Dst* to = out.data_as<Dst>();
      for (std::size_t i = 0; i < x.numel(); ++i) to[i] = cast_element<Dst>(from[i]);
    });
  });
  return out;
}

/// uint64('18446744073709551615'): decimal text read exactly, since a
/// double cannot hold every 64-bit integer.
Array uint64_from_text(const Array& text) {
  const std::string digits = text.utf8();
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (digits.empty() || error == std::errc::result_out_of_range || end != digits.data() + digits.size() ||
      !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
    fail("tiffgate:badArgument", "uint64 needs a decimal number from 0 to 18446744073709551615, not '" + digits + "'");
  return Array::uint64(value);
}

struct ClassName {
  const char* name;
  zvClassID cls;
};
constexpr ClassName kConversions[] = {
    {"double", zvDOUBLE_CLASS}, {"single", zvSINGLE_CLASS},   {"int8", zvINT8_CLASS},   {"uint8", zvUINT8_CLASS},
    {"int16", zvINT16_CLASS},   {"uint16", zvUINT16_CLASS},   {"int32", zvINT32_CLASS}, {"uint32", zvUINT32_CLASS},
    {"uint64", zvUINT64_CLASS}, {"logical", zvLOGICAL_CLASS},
};

const ClassName* conversion_named(std::string_view name) {
  for (const ClassName& c : kConversions)
    if (name == c.name) return &c;
  return nullptr;
}

double scalar_argument(const Array& a, std::string_view function) {
  if (!is_numeric_or_logical(a.class_id()) || a.numel() != 1)
    fail("tiffgate:badArgument",
         std::string(function) + " needs a numeric scalar here, not " + a.class_name() + " " + dims_text(a.dims()));
  return a.number(0);
}

std::size_t dimension(double v, std::string_view function) {
  if (!std::isfinite(v) || v != std::floor(v) || v >= 0x1p53)
    fail("tiffgate:badArgument", std::string(function) + " needs whole sizes, not " + shortest(v));
  return v < 0 ? 0 : static_cast<std::size_t>(v);  // a negative size means none
}

/// Sizes given as scalars (d1, d2, ...) or as one vector ([d1 d2 ...]). In
/// reshape one of them may be [], to be worked out from the element count.
Array::Dims sizes(const std::vector<Array>& args, std::size_t first, std::string_view function,
                  std::size_t* placeholder) {
  Array::Dims dims;
  if (args.size() == first + 1 && args[first].numel() > 1) {
    const Array& v = args[first];
    if (!is_numeric_or_logical(v.class_id()))
      fail("tiffgate:badArgument", std::string(function) + " needs sizes as numbers, not " + v.class_name());
    for (std::size_t i = 0; i < v.numel(); ++i) dims.push_back(dimension(v.number(i), function));
    return dims;
  }
  for (std::size_t i = first; i < args.size(); ++i) {
    if (placeholder && args[i].empty() && args[i].class_id() == zvDOUBLE_CLASS && *placeholder == SIZE_MAX) {
      *placeholder = dims.size();
      dims.push_back(1);
      continue;
    }
    dims.push_back(dimension(scalar_argument(args[i], function), function));
  }
  return dims;
}

Array filled(const std::vector<Array>& args, std::string_view function, int value) {
  std::vector<Array> dims_args = args;
  zvClassID cls = zvDOUBLE_CLASS;
  if (!dims_args.empty() && dims_args.back().class_id() == zvCHAR_CLASS) {
    const std::string name = dims_args.back().utf8();
    const ClassName* c = conversion_named(name);
    if (c == nullptr) fail("tiffgate:badArgument", std::string(function) + " cannot make class '" + name + "'");
    cls = c->cls;
    dims_args.pop_back();
  }
  Array::Dims dims = sizes(dims_args, 0, function, nullptr);
  if (dims.empty()) dims = {1, 1};
  if (dims.size() == 1) dims.push_back(dims[0]);  // zeros(n) is n x n
  Array out(cls, dims);
  if (value != 0)
    with_element_type(cls, [&](auto type) {
      using T = decltype(type);
      std::fill_n(out.data_as<T>(), out.numel(), static_cast<T>(value));
    });
  return out;
}

Array reshape(const std::vector<Array>& args) {
  const Array& x = args[0];
  if (x.class_id() == zvSTRUCT_CLASS) fail("tiffgate:wrongClass", "reshape cannot reshape a structure");
  std::size_t placeholder = SIZE_MAX;
  Array::Dims dims = sizes(args, 1, "reshape", &placeholder);
  if (dims.size() < 2) fail("tiffgate:badArgument", "reshape needs two sizes at least");
  std::size_t product = 1;
  for (std::size_t d : dims) product = d == 0 ? 0 : (product > SIZE_MAX / d ? SIZE_MAX : product * d);
  if (placeholder != SIZE_MAX && product != 0 && x.numel() % product == 0) {
    dims[placeholder] = x.numel() / product;
    product = x.numel();
  }
  if (product != x.numel())
    fail("tiffgate:badArgument",
         "reshape cannot arrange " + std::to_string(x.numel()) + " elements as " + dims_text(dims));
  Array out(x.class_id(), dims, false);
  copy_elements(x, 0, out, 0, x.numel());
  return out;
}

Array cat(const std::vector<Array>& args) {
  const double dim = scalar_argument(args[0], "cat");
  if (!(dim >= 1) || dim != std::floor(dim) || dim > 64)
    fail("tiffgate:badArgument", "cat needs a dimension from 1 to 64, not " + shortest(dim));
  return concatenate(static_cast<std::size_t>(dim) - 1, std::vector<Array>(args.begin() + 1, args.end()));
}

/// size(x), size(x, d), and [d1, d2, ...] = size(x) whose last output takes
/// the product of the remaining dimensions.
std::vector<Array> size(const std::vector<Array>& args, int nargout) {
  const Array::Dims& dims = args[0].dims();
  if (args.size() == 2) {
    const std::size_t d = dimension(scalar_argument(args[1], "size"), "size");
    if (d == 0) fail("tiffgate:badArgument", "size counts dimensions from 1");
    return {Array::scalar(d <= dims.size() ? static_cast<double>(dims[d - 1]) : 1.0)};
  }
  if (nargout <= 1) {
    Array out(zvDOUBLE_CLASS, {1, dims.size()});
    std::transform(dims.begin(), dims.end(), out.data_as<double>(),
                   [](std::size_t d) { return static_cast<double>(d); });
    return {out};
  }
  std::vector<Array> outs;
  const std::size_t n = static_cast<std::size_t>(nargout);
  for (std::size_t i = 0; i < n; ++i) {
    double d = i < dims.size() ? static_cast<double>(dims[i]) : 1.0;
    if (i + 1 == n)
      for (std::size_t j = n; j < dims.size(); ++j) d *= static_cast<double>(dims[j]);
    outs.push_back(Array::scalar(d));
  }
  return outs;
}

using BuiltinFunction = std::function<std::vector<Array>(const std::vector<Array>&, int nargout)>;

/// A builtin of one output.
template <class F>
BuiltinFunction one(F f) {
  return [f](const std::vector<Array>& args, int) { return std::vector<Array>{f(args)}; };
}

struct BuiltinRow {
  const char* name;
  std::size_t least;
  std::size_t most;
  BuiltinFunction run;
};

const std::vector<BuiltinRow>& builtins() {
  constexpr std::size_t kAny = SIZE_MAX;
  static const std::vector<BuiltinRow> table = [] {
    std::vector<BuiltinRow> rows = {
        {"zeros", 0, kAny, one([](const std::vector<Array>& a) { return filled(a, "zeros", 0); })},
        {"ones", 0, kAny, one([](const std::vector<Array>& a) { return filled(a, "ones", 1); })},
        {"reshape", 2, kAny, one(reshape)},
        {"cat", 1, kAny, one(cat)},
        {"size", 1, 2, size},
        {"class", 1, 1, one([](const std::vector<Array>& a) { return Array::text(a[0].class_name()); })},
        {"numel", 1, 1,
         one([](const std::vector<Array>& a) { return Array::scalar(static_cast<double>(a[0].numel())); })},
    };
    for (const ClassName& c : kConversions) {
      rows.push_back({c.name, 1, 1, one([cls = c.cls](const std::vector<Array>& a) {
                        if (cls == zvUINT64_CLASS && a[0].class_id() == zvCHAR_CLASS) return uint64_from_text(a[0]);
                        return convert(a[0], cls);
                      })});
    }
    return rows;
  }();
  return table;
}

const BuiltinRow* builtin_named(std::string_view name) {
  for (const BuiltinRow& row : builtins())
    if (name == row.name) return &row;
  return nullptr;
}

/// The 0-based positions that one subscript selects along an extent.
std::vector<std::size_t> positions(const Subscript& s, std::size_t extent, const std::string& where) {
  std::vector<std::size_t> out;
  if (s.all) {
    out.resize(extent);
    for (std::size_t i = 0; i < extent; ++i) out[i] = i;
    return out;
  }
  const Array& v = s.values;
  if (v.class_id() == zvLOGICAL_CLASS) {
    for (std::size_t i = 0; i < v.numel(); ++i) {
      if (!v.at<bool>(i)) continue;
      if (i >= extent) fail("tiffgate:indexOutOfBounds", "index " + std::to_string(i + 1) + " exceeds " + where);
      out.push_back(i);
    }
    return out;
  }
  if (!is_numeric_or_logical(v.class_id()))
    fail("tiffgate:badIndex", std::string("indices must be numbers, not ") + v.class_name());
  out.reserve(v.numel());
  for (std::size_t i = 0; i < v.numel(); ++i) {
    const double d = v.number(i);
    if (!(d >= 1) || d != std::floor(d) || std::isinf(d))
      fail("tiffgate:badIndex", "indices must be positive whole numbers, not " + shortest(d));
    if (d > static_cast<double>(extent))
      fail("tiffgate:indexOutOfBounds", "index " + shortest(d) + " exceeds " + where);
    out.push_back(static_cast<std::size_t>(d) - 1);
  }
  return out;
}

bool is_vector(const Array::Dims& d) { return d.size() == 2 && (d[0] == 1 || d[1] == 1); }

}  // namespace

bool is_numeric_or_logical(zvClassID cls) {
  return cls == zvLOGICAL_CLASS || cls == zvDOUBLE_CLASS || cls == zvSINGLE_CLASS ||
         (cls >= zvINT8_CLASS && cls <= zvUINT64_CLASS);
}

std::string dims_text(const Array::Dims& dims) {
  std::string out;
  for (std::size_t i = 0; i < dims.size(); ++i) out += (i ? "x" : "") + std::to_string(dims[i]);
  return out;
}

Array index(const Array& base, const std::vector<Subscript>& subscripts) {
  const std::size_t k = subscripts.size();
  if (k == 0) return base;
  const Array::Dims& dims = base.dims();
  // With k subscripts the last one runs over all the remaining dimensions.
  std::vector<std::size_t> extent(k, 1);
  for (std::size_t i = 0; i < dims.size(); ++i) extent[std::min(i, k - 1)] *= dims[i];
  std::vector<std::vector<std::size_t>> picks(k);
  for (std::size_t i = 0; i < k; ++i) {
    const std::string where = k == 1 ? "the " + std::to_string(base.numel()) + " elements"
                                     : "dimension " + std::to_string(i + 1) + " of size " + std::to_string(extent[i]);
    picks[i] = positions(subscripts[i], extent[i], where);
  }

  Array::Dims out_dims;
  if (k > 1) {
    for (const auto& p : picks) out_dims.push_back(p.size());
  } else if (subscripts[0].all) {
    out_dims = {picks[0].size(), 1};
  } else if (is_vector(dims) && base.numel() != 1 &&
             (is_vector(subscripts[0].values.dims()) || subscripts[0].values.class_id() == zvLOGICAL_CLASS)) {
    // A vector indexed by a vector keeps its own orientation.
    out_dims = dims[0] == 1 ? Array::Dims{1, picks[0].size()} : Array::Dims{picks[0].size(), 1};
  } else if (subscripts[0].values.class_id() == zvLOGICAL_CLASS) {
    out_dims = {picks[0].size(), 1};
  } else {
    out_dims = subscripts[0].values.dims();
  }

  if (base.class_id() == zvSTRUCT_CLASS) {
    std::size_t count = 1;
    for (const auto& p : picks) count *= p.size();
    if (count != 1) fail("tiffgate:badIndex", "a structure can only be indexed as a whole");
    return base;
  }
  Array out(base.class_id(), out_dims, false);
  std::vector<std::size_t> stride(k, 1), at(k, 0);
  for (std::size_t i = 1; i < k; ++i) stride[i] = stride[i - 1] * extent[i - 1];
  for (std::size_t n = 0; n < out.numel(); ++n) {
    std::size_t source = 0;
    for (std::size_t i = 0; i < k; ++i) source += picks[i][at[i]] * stride[i];
    copy_elements(base, source, out, n, 1);
    for (std::size_t i = 0; i < k && ++at[i] == picks[i].size(); ++i) at[i] = 0;
  }
  return out;
}

Array concatenate(std::size_t dim, const std::vector<Array>& parts) {
  std::vector<const Array*> used;
  for (const Array& p : parts)
    if (!p.empty()) used.push_back(&p);
  if (used.empty()) return parts.empty() ? Array() : parts.front();  // all empty: the first stands for all

  const zvClassID cls = used[0]->class_id();
  std::size_t rank = dim + 1;
  for (const Array* p : used) {
    if (p->class_id() != cls)
      fail("tiffgate:classMismatch", std::string("cannot concatenate ") + embedded::class_name(cls) + " and " +
                                         p->class_name() + "; convert one of them first");
    rank = std::max(rank, p->dims().size());
  }
  if (cls == zvSTRUCT_CLASS) fail("tiffgate:wrongClass", "cannot concatenate structures");
  const auto padded = [rank](const Array& a) {
    Array::Dims d = a.dims();
    d.resize(rank, 1);
    return d;
  };
  Array::Dims out_dims = padded(*used[0]);
  out_dims[dim] = 0;
  for (const Array* p : used) {
    const Array::Dims d = padded(*p);
    for (std::size_t i = 0; i < rank; ++i)
      if (i != dim && d[i] != out_dims[i])
        fail("tiffgate:dimensionMismatch", "cannot concatenate " + dims_text(used[0]->dims()) + " and " +
                                               dims_text(p->dims()) + " along dimension " + std::to_string(dim + 1));
    out_dims[dim] += d[dim];
  }
  // Column-major: each part contributes one run of (dims before dim) x
  // (its extent along dim) elements per index of the dimensions after dim.
  std::size_t after = 1;
  for (std::size_t i = dim + 1; i < rank; ++i) after *= out_dims[i];
  Array out(cls, out_dims, false);
  std::size_t cursor = 0;
  for (std::size_t block = 0; block < after; ++block)
    for (const Array* p : used) {
      const std::size_t run = p->numel() / after;
      copy_elements(*p, block * run, out, cursor, run);
      cursor += run;
    }
  return out;
}

Array range(double start, double step, double stop) {
  if (std::isnan(start) || std::isnan(step) || std::isnan(stop) || step == 0 || (step > 0 && stop < start) ||
      (step < 0 && stop > start))
    return Array(zvDOUBLE_CLASS, {1, 0});
  const double q = (stop - start) / step;
  // A relative tolerance keeps 0:0.1:0.3 at four elements.
  const double count = std::floor(q + std::max(1.0, std::fabs(q)) * 4 * std::numeric_limits<double>::epsilon()) + 1;
  if (!(count <= 0x1p31))
    fail("tiffgate:badArgument", "the range " + shortest(start) + ":" + shortest(step) + ":" + shortest(stop) +
                                     " has too many elements");
  Array out(zvDOUBLE_CLASS, {1, static_cast<std::size_t>(count)}, false);
  double* v = out.data_as<double>();
  for (std::size_t i = 0; i < out.numel(); ++i) v[i] = start + static_cast<double>(i) * step;
  // Never past the stop: the tolerance may have let the last one overshoot.
  if (out.numel() > 0 && (step > 0 ? v[out.numel() - 1] > stop : v[out.numel() - 1] < stop)) v[out.numel() - 1] = stop;
  return out;
}

Array negate(const Array& x) {
  if (x.class_id() == zvLOGICAL_CLASS || x.class_id() == zvCHAR_CLASS) {
    Array as_double(zvDOUBLE_CLASS, x.dims(), false);
    for (std::size_t i = 0; i < x.numel(); ++i) as_double.data_as<double>()[i] = x.number(i);
    return negate(as_double);
  }
  Array out(x.class_id(), x.dims(), false);
  with_element_type(x.class_id(), [&](auto type) {
    using T = decltype(type);
    for (std::size_t i = 0; i < x.numel(); ++i) {
      const T v = x.at<T>(i);
      if constexpr (std::is_floating_point_v<T>)
        out.data_as<T>()[i] = -v;
      else if constexpr (std::is_unsigned_v<T>)
        out.data_as<T>()[i] = 0;
      else
        out.data_as<T>()[i] =
            v == std::numeric_limits<T>::lowest() ? std::numeric_limits<T>::max() : static_cast<T>(-v);
    }
  });
  return out;
}

bool is_builtin(std::string_view name) { return builtin_named(name) != nullptr; }

std::vector<Array> call_builtin(std::string_view name, const std::vector<Array>& args, int nargout) {
  const BuiltinRow& row = *builtin_named(name);
  if (args.size() < row.least || args.size() > row.most) {
    const std::string count = row.least == row.most  ? std::to_string(row.least)
                              : row.most == SIZE_MAX ? "at least " + std::to_string(row.least)
                                                     : std::to_string(row.least) + " or " + std::to_string(row.most);
    fail("tiffgate:wrongNumberOfArguments", std::string(name) + " takes " + count + " argument" +
                                                (row.least == 1 && row.most == 1 ? "" : "s") + ", not " +
                                                std::to_string(args.size()));
  }
  return row.run(args, nargout);
}

}  // namespace tiffgate::shell
