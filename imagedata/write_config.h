#pragma once
/// The checks a write runs before any data reaches libtiff: the image
/// arrays the host passed against the tags already set in the current
/// directory.

#include "core/host.h"
#include "tags/layout.h"

#include <cstddef>

namespace tiffgate {

/// Raw YCbCr: the data come as three planes (Y, Cb, Cr), packed into
/// subsampled units. With JPEGColorMode RGB libtiff takes one RGB image
/// instead and converts it itself.
bool is_raw_ycbcr(const ImageLayout& layout);

/// Runs every rule in a fixed order and raises the first that fails:
/// dimensions, the photometric rules with the checks of each array,
/// ExtraSamples, JPEG, and last the planar configuration of one sample.
/// count is at least 1 (the command table admits no write without data).
void validate_write_configuration(const ImageLayout& layout, const zvArray* const images[], std::size_t count);

}  // namespace tiffgate
