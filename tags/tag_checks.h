#pragma once
/// What the tag setters share: the reads of tags already in the directory
/// that the checks need, and the setters that rows of the tag table name.

#include "core/convert.h"
#include "core/host.h"
#include "tags/tag_table.h"

#include <cstddef>
#include <cstdint>
#include <limits>

typedef struct tiff TIFF;

namespace tiffgate::detail {

/// A uint16 tag that must already be set (TIFFGetField); raises
/// tagRetrievalBeforeWriteFailed(name of tag, writing) when it is not.
std::uint16_t u16_before_write(TIFF* tif, std::uint32_t tag, const char* writing);
/// PhotometricInterpretation, which most setters check against; must be set.
std::uint16_t photometric_before_write(const TagWrite& w);
/// An element count that libtiff takes as T; one that does not fit is
/// refused like any value out of range, never cut short.
template <class T>
T count_as(std::size_t n) {
  if (n > static_cast<std::size_t>(std::numeric_limits<T>::max())) throw_positive_overflow();
  return static_cast<T>(n);
}

/// The ink tags need a Separated image: photometricInterpretationNotSeparated.
void check_separated(TIFF* tif, const char* name);

// Image-structure setters.
int set_photometric(const TagWrite& w);
int set_samples_per_pixel(const TagWrite& w);
int set_sample_format(const TagWrite& w);
int set_compression(const TagWrite& w);
int set_threshholding(const TagWrite& w);
int set_bits_per_sample(const TagWrite& w);
int set_planar_configuration(const TagWrite& w);
int set_number_of_inks(const TagWrite& w);
int set_sgi_log_data_fmt(const TagWrite& w);

// Colour and range setters.
int set_ink_names(const TagWrite& w);
int set_transfer_function(const TagWrite& w);
int set_white_point(const TagWrite& w);
int set_primary_chromaticities(const TagWrite& w);
int set_reference_black_white(const TagWrite& w);
int set_color_map(const TagWrite& w);
int set_sample_min_max(const TagWrite& w);

}  // namespace tiffgate::detail
