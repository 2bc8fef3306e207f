#pragma once
/// The libtiff error stack: libtiff's errors and warnings recorded during
/// one gateway call, surfaced as host warnings after a successful call.

#include <cstdarg>
#include <cstddef>
#include <string>
#include <vector>

extern "C" {
void ZKTIFFerrHandler(const char* module, const char* format, va_list arguments);
void ZKTIFFwarnHandler(const char* module, const char* format, va_list arguments);
}

/// Empties the record; called at the start of every gateway call.
void ZKTIFFinitializeErrorStack();
/// Issues what libtiff recorded during the call as host warnings, in order.
void ZKTIFFcheckErrorAsWarning();

namespace tiffgate {

/// What libtiff said on one thread, kept or counted.
struct LibtiffMessages {
  struct Message {
    bool is_error;
    std::string text;
  };
  std::vector<Message> kept;
  std::size_t dropped = 0;
};
/// This thread's record, which is left empty.
LibtiffMessages take_libtiff_messages();
/// Appends to this thread's record, within the same limit as libtiff's own.
void add_libtiff_messages(LibtiffMessages&& messages);

/// Identifiers of the warnings that carry libtiff's own messages.
inline constexpr const char* kLibtiffErrorId = "Quarn:imagesci:Tiff:libtiffError";
inline constexpr const char* kLibtiffWarningId = "Quarn:imagesci:Tiff:libtiffWarning";
}  // namespace tiffgate
