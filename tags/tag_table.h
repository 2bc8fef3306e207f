#pragma once
/// The tags the module knows, one row each: number, name, how getField
/// reads it and how setField writes it (a value shape, or a setter that
/// first checks the value against the tags already set).

#include "core/host.h"

#include <cstdint>
#include <map>
#include <string>

typedef struct tiff TIFF;

namespace tiffgate {

/// One getField call as a reader sees it: the tag, its name, and the row's
/// count (values per matrix row, or the count expected) where its form has one.
struct TagRef {
  std::uint32_t number;
  const std::string& name;
  std::uint32_t count;
};
/// Builds the host value of one tag.
using TagReader = zvArray* (*)(TIFF*, const TagRef&);

/// One setField call as a writer sees it.
struct TagWrite {
  TIFF* tif;
  std::uint32_t tag;
  const char* name;     ///< the tag's name
  const char* text;     ///< text argument where an error has its own literal, else name
  std::uint32_t count;  ///< the row's expected count, minimum length or matrix width
  const zvArray* value;
};
/// Writes one tag; returns libtiff's TIFFSetField result.
using TagWriter = int (*)(const TagWrite&);

enum TagFlags : unsigned {
  kSeparated = 1,     ///< PhotometricInterpretation must be Separated first
  kWhileReading = 2,  ///< a codec setting, allowed on a file opened for reading
  kUnchecked = 4,     ///< libtiff's answer to the write is not examined
};

struct TagRow {
  std::uint32_t number;
  const char* name;             ///< as callers see it in messages, odd spellings included
  TagReader read = nullptr;     ///< null: getField refuses it (unhandledTagId)
  std::uint32_t count = 0;      ///< see TagRef and TagWrite
  TagWriter write = nullptr;    ///< null: not settable (unrecognizedTagNumber)
  const char* text = nullptr;   ///< setField's error text where it differs from name
  unsigned flags = 0;
};

/// The row of a tag, or null for a number the module does not know.
const TagRow* find_tag(std::uint32_t tag);

/// Tag number to name, for every row.
const std::map<std::uint32_t, std::string>& TagNameTable();
/// The name of tag; raises unrecognizedTagNumber for a number not in the table.
std::string tagName(std::uint32_t tag);

}  // namespace tiffgate
