#pragma once
/// The error kinds of the module, generated from kinds.def: one class per
/// kind in Quarn::imagesci::Tiff or Quarn::imagesci::validate, constructed
/// with the arguments its message shows.

#include "core/host.h"
#include "core/msgid.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace tiffgate::detail {

/// A text argument built from narrow text (a NUL-terminated text or a
/// std::string) or from UTF-16 text.
struct Text {
  Quarn::MsgArg value;
  Text(const char* text) : value(std::string(text ? text : "")) {}
  Text(std::string text) : value(std::move(text)) {}
  Text(std::u16string text) : value(std::move(text)) {}
};
using Int = std::int64_t;

inline Quarn::MsgArg to_arg(Text t) { return std::move(t.value); }
inline Quarn::MsgArg to_arg(Int i) { return i; }

/// Position of each kind in kinds.def (and the catalogue).
enum class KindIndex : std::size_t {
#define TG_KIND(ns, name, text, ...) ns##_##name,
#include "core/kinds.def"
#undef TG_KIND
  count
};

template <KindIndex I, class Signature>
struct Kind;

template <KindIndex I, class... Args>
struct Kind<I, void(Args...)> : Quarn::BaseMsgID {
  static constexpr std::size_t kIndex = static_cast<std::size_t>(I);
  static constexpr std::size_t kArgumentCount = sizeof...(Args);
  explicit Kind(Args... args) : BaseMsgID(kIndex, {to_arg(std::move(args))...}) {}
};

/// Argument count of every kind, in catalogue order (for the catalogue test).
inline constexpr std::size_t kArgumentCounts[] = {
#define TG_KIND(ns, name, text, ...) Kind<KindIndex::ns##_##name, void(__VA_ARGS__)>::kArgumentCount,
#include "core/kinds.def"
#undef TG_KIND
};

}  // namespace tiffgate::detail

#define TG_KIND(ns, name, text, ...)                                                         \
  namespace Quarn::imagesci::ns {                                                            \
  struct name : ::tiffgate::detail::Kind<::tiffgate::detail::KindIndex::ns##_##name,         \
                                         void(__VA_ARGS__)> {                                \
    using Kind::Kind;                                                                        \
  };                                                                                         \
  }
namespace Quarn::imagesci::Tiff {
using ::tiffgate::detail::Int;
using ::tiffgate::detail::Text;
}  // namespace Quarn::imagesci::Tiff
namespace Quarn::imagesci::validate {
using ::tiffgate::detail::Int;
using ::tiffgate::detail::Text;
}  // namespace Quarn::imagesci::validate
#include "core/kinds.def"
#undef TG_KIND

namespace tiffgate {

namespace Tiff = Quarn::imagesci::Tiff;
namespace validate = Quarn::imagesci::validate;

/// Raise: throw the kind, for the host's entry to report.
template <class Kind>
[[noreturn]] void raise(const Kind& kind) {
  throw Quarn::Exception<Kind>(kind);
}

/// Warn: show the kind as a host warning and go on.
inline void warn(const Quarn::BaseMsgID& kind) { zvWarningMsgId(kind); }

}  // namespace tiffgate
