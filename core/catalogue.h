#pragma once
/// The message catalogue: one text per error kind, keyed by identifier.

#include <cstddef>

namespace tiffgate {

struct CatalogueEntry {
  const char* identifier;  ///< e.g. "Quarn:imagesci:Tiff:badFileId"
  const char* text;        ///< {1}, {2}, ... stand for the arguments in order
};

inline constexpr std::size_t kKindCount = 117;
extern const CatalogueEntry kCatalogue[kKindCount];

}  // namespace tiffgate
