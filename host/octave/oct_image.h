#pragma once
/// The oct-file's internal entries for the whole-image helpers
/// (tiffgate_read.m, tiffgate_write.m): every strip or tile of an image goes
/// through the module's own read or write command, one call each, and the
/// entry places it straight into (or takes it straight from) the image, so
/// the image is allocated once and no chunk is concatenated in Octave.
///
///   img = tiffgate ("__readImage__", id, command, [L W S], [rows columns], separate)
///   tiffgate ("__writeImage__", id, command, img, [rows columns], separate, count)
///
/// `command` is readEncodedStrip or readEncodedTile (writeEncoded... to
/// write); `rows` x `columns` is one chunk's extent (a strip: rows per strip
/// x image width); chunks are numbered as libtiff numbers them, plane by
/// plane when `separate`; at most `count` chunks are written (Inf: all).

#include <octave/oct.h>

namespace tiffgate::octave_host {

/// Whether `word` names one of the internal entries.
bool is_image_entry(const std::string& word);

/// Runs the internal entry named by args(0).
octave_value_list run_image_entry(const octave_value_list& args);

}  // namespace tiffgate::octave_host
