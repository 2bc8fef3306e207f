#pragma once
/// The forms in which getField reads tags and the shapes in which setField
/// writes them: what the rows of the tag table name. The setters that check
/// a value against the tags already set are in tag_checks.h.

#include "tags/tag_table.h"

namespace tiffgate::detail {

using TagReadFn = zvArray*(TIFF*, const TagRef&);
using TagWriteFn = int(const TagWrite&);

// Readers (get_field.cpp). Scalars come back as doubles; *_defaulted take
// libtiff's default for an absent tag; rows and records are counted values,
// records one per matrix row of `count` values.
TagReadFn read_text, read_u16, read_u16_defaulted, read_u32, read_u32_defaulted, read_float, read_double,
    read_pair, read_pair_defaulted, read_u16_row, read_u64_row, read_double_row, read_u16_records,
    read_double_records, read_planar_configuration, read_rational_vector, read_byte_text, read_byte_block,
    read_ink_names, read_color_map, read_transfer_function, read_strip_array, read_tile_array,
    read_unsupported;

// Writers of a value shape (set_field.cpp). Scalars are one-element doubles;
// `count` is the expected count, minimum length or matrix width.
TagWriteFn write_u16, write_u32, write_dimension, write_tile_dimension, write_float1, write_double1,
    write_pair16, write_text, write_date_time, write_counted16, write_doubles, write_floats,
    write_double_records, write_u16_records, write_bytes, write_xml_packet, write_sub_ifds,
    write_unsupported;

}  // namespace tiffgate::detail
