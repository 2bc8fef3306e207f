#include "core/catalogue.h"

#include <iterator>  // std::size

namespace tiffgate {

const CatalogueEntry kCatalogue[] = {
#define TG_KIND(ns, name, text, ...) {"Quarn:imagesci:" #ns ":" #name, text},
#include "core/kinds.def"
#undef TG_KIND
};

static_assert(std::size(kCatalogue) == kKindCount, "one catalogue text per error kind");

}  // namespace tiffgate
