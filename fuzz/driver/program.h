#pragma once
/// The command driver's input language, shared by the driver that reads it
/// and the seed generator that writes it.
///
/// An input is a sequence of steps, each: a word byte (which command), a
/// count byte (how many operands), an output-count byte, then one operand
/// after another. Each operand has a role fixed by the command and its
/// position (an identifier, a tag, a tag value, an image, ...); its first
/// byte chooses a form of that role, or, at kHostile and above, an array of
/// any class and shape instead.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace tiffgate::fuzz::program {

/// The 25 commands, the hosts' entries, then words that are no command
/// (an empty word, other case, a trailing blank, a trailing NUL).
inline constexpr std::string_view kWords[] = {
    "close", "computeStrip", "computeTile", "currentDirectory", "getField", "getVersion", "isTiled",
    "lastDirectory", "numberOfStrips", "numberOfTiles", "open", "readDirectory", "readEncodedStrip",
    "readEncodedTile", "readRGBAImage", "readRGBAStrip", "readRGBATile", "rewriteDirectory",
    "retrieveMetadata", "setDirectory", "setField", "setSubDirectory", "writeDirectory",
    "writeEncodedStrip", "writeEncodedTile", "__readImage__", "__writeImage__", "__tagNames__", "__listTags__",
    "__tagValue__", "__setTag__", "", "Close", "close ",
    std::string_view("close\0", 6)};
inline constexpr std::size_t kWordCount = std::size(kWords);
/// Word choices past the words: a call with no inputs at all, and one whose
/// first input is a number instead of text.
inline constexpr std::size_t kNoInputs = kWordCount;
inline constexpr std::size_t kNumericWord = kWordCount + 1;
inline constexpr std::size_t kWordChoices = kWordCount + 2;

constexpr std::size_t word_index(std::string_view word) {
  for (std::size_t i = 0; i < kWordCount; ++i)
    if (kWords[i] == word) return i;
  return kWordCount;
}

/// A count byte below this gives a count within the command's limits; at or
/// above it, any count from 0 to 6.
inline constexpr std::uint8_t kAnyCount = 0xF0;
/// An operand byte at or above this gives an array of any class instead of
/// one of its role's forms.
inline constexpr std::uint8_t kHostile = 0xF0;

enum class Role : std::uint8_t { Any, Id, Name, Mode, Tag, Value, Number, Offset, Position, Image };

/// The role of each operand position of each command; positions past the
/// list (and every position of a word that is no command) are Any.
struct Signature {
  std::string_view word;
  std::array<Role, 5> roles;
};
using R = Role;
inline constexpr Signature kSignatures[] = {
    {"close", {R::Id}},
    {"computeStrip", {R::Id, R::Number, R::Number}},
    {"computeTile", {R::Id, R::Position, R::Number}},
    {"currentDirectory", {R::Id}},
    {"getField", {R::Id, R::Tag}},
    {"isTiled", {R::Id}},
    {"lastDirectory", {R::Id}},
    {"numberOfStrips", {R::Id}},
    {"numberOfTiles", {R::Id}},
    {"open", {R::Name, R::Mode}},
    {"readDirectory", {R::Id}},
    {"readEncodedStrip", {R::Id, R::Number}},
    {"readEncodedTile", {R::Id, R::Number, R::Any}},
    {"readRGBAImage", {R::Id}},
    {"readRGBAStrip", {R::Id, R::Number}},
    {"readRGBATile", {R::Id, R::Number, R::Number}},
    {"rewriteDirectory", {R::Id}},
    {"retrieveMetadata", {R::Id}},
    {"setDirectory", {R::Id, R::Number}},
    {"setField", {R::Id, R::Tag, R::Value}},
    {"setSubDirectory", {R::Id, R::Offset}},
    {"writeDirectory", {R::Id}},
    {"writeEncodedStrip", {R::Id, R::Number, R::Image, R::Image, R::Image}},
    {"writeEncodedTile", {R::Id, R::Number, R::Image, R::Image, R::Image}},
    {"__readImage__", {R::Id, R::Number, R::Value}},
    {"__writeImage__", {R::Id, R::Image, R::Number}},
    {"__tagNames__", {}},
    {"__listTags__", {R::Id}},
    {"__tagValue__", {R::Id, R::Tag}},
    {"__setTag__", {R::Id, R::Tag, R::Value}},
};

constexpr Role role_of(std::string_view word, std::size_t position) {
  if (position >= 5) return Role::Any;
  for (const Signature& s : kSignatures)
    if (s.word == word) return s.roles[position];
  return Role::Any;
}

// --- the forms of each role (the operand's first byte, modulo kCount) ---

/// Identifiers, for every command alike: the dispatcher checks each one
/// against the registry before anything else. Pool names one opened this
/// input, open or closed since; Closed one closed since (a stale one once
/// a file was opened after it); Near an opened one plus or minus one, which
/// may be the next one issued; the others values no file has, or an opened
/// one in another class or shape.
enum class IdForm : std::uint8_t {
  Pool, PoolAsDouble, PoolAsInt64, PoolPair, Zero, ZeroDouble, Empty, Text, Negative, Huge, NaN,
  Forged, PoolAsUint32, PoolAsSingle, Closed, Near, kCount
};
/// Whether a form reads a pool position (a byte, even with nothing to pick).
constexpr bool pooled(IdForm f) {
  return f <= IdForm::PoolPair || f == IdForm::PoolAsUint32 || f == IdForm::PoolAsSingle || f == IdForm::Closed ||
         f == IdForm::Near;
}
/// File names for "open": a corpus file (always with a reading mode), the
/// scratch files, a scratch copy of a corpus file (any mode), and names
/// that cannot be opened.
enum class NameForm : std::uint8_t {
  ReadFile, WriteFile, OtherScratch, Missing, Directory, Empty, WithNul, NonAscii, LoneSurrogate, Long,
  Numeric, Copy, kCount
};
enum class ModeForm : std::uint8_t { Fixed, Random, Numeric, kCount };
inline constexpr std::string_view kModes[] = {"r",  "w",  "a",  "r+", "a+", "w8", "wl", "wb", "wm", "rm", "rh",
                                              "rc", "rC", "rM", "rO", "rD", "wZ", "w4", "r8", "",   "x",  "w+"};
/// Tags: one of the tag table (by position), one by number (four bytes),
/// numbers no table has, and the same in other classes and shapes.
enum class TagForm : std::uint8_t { Table, Number, Unknown, Special, AsUint16, Row, Empty, kCount };
inline constexpr double kUnknownTags[] = {0, 260, 326, 342, 65535, 65536, 4294967295.0};
enum class NumberForm : std::uint8_t {
  Small, Special, SmallAsClass, Empty, Fraction, Big, KnownOffset, KnownOffsetAsDouble, kCount
};
enum class PositionForm : std::uint8_t { Pair, PairSpecial, Single, Triple, Empty, PairAsClass, kCount };
/// Tag values: scalars, rows, matrices, text, byte blocks, cells of text,
/// and tables of 1 or 3 columns (colour maps and transfer functions).
enum class ValueForm : std::uint8_t {
  Small, Special, Row, SpecialRow, Matrix, Text, Blob, TextCell, Uint16Row, Single, Logical, Empty, Big,
  Table, kCount
};
inline constexpr std::size_t kMatrixColumns[] = {1, 2, 3, 4, 6, 16};
inline constexpr std::size_t kTableRows[] = {1, 2, 4, 16, 256, 4096, 65536};
/// Element fills of numeric arrays.
enum class Fill : std::uint8_t { Zeros, Pattern, Bytes, Specials, kCount };

/// Texts worth trying: empty, a date of 19 characters, of 16 and of 20, an
/// XML packet, an ink name, non-ASCII, an embedded NUL, a long one; past
/// the list, a text of random UTF-16 units.
inline constexpr std::string_view kTexts[] = {
    "",  "a", "2024:01:02 03:04:05", "2024:01:02 03:04", "2024:01:02 03:04:05x", "<x:xmpmeta/>", "Cyan",
    "\xC3\xA9\xE6\x97\xA5", std::string_view("a\0b", 3)};
inline constexpr std::size_t kTextChoices = std::size(kTexts) + 2;  ///< + long, + random

/// Doubles at the edges of every conversion: signed zero, fractions, the
/// limits of 8, 16, 32 and 64 bits on both sides, beyond doubles'
/// integers, infinities, NaN and the least subnormal.
inline constexpr double kSpecials[] = {
    0.0,  -0.0, 1.0,  -1.0, 0.5,  -0.5,  2.9, 15, 16, 17, 255, 256, 65535, 65536, -65536, 2147483647.0,
    2147483648.0, 4294967295.0, 4294967296.0, 9007199254740993.0, 18446744073709551615.0, 1e300, -1e300,
    std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
    std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::denorm_min()};

/// Classes of image arrays, most often the ones images are written from.
inline constexpr std::uint8_t kImageClasses[] = {9, 9, 11, 3, 6, 7, 8, 10, 12, 13, 14, 15, 4, 1};
/// Extents of image arrays: around the chunk sizes (16, 32, 64) and tiny.
inline constexpr std::size_t kImageDims[] = {0, 1, 2, 3, 4, 7, 8, 15, 16, 17, 31, 32, 33, 48, 64, 65};
/// Sample counts of image arrays; 0 means a two-dimensional array.
inline constexpr std::size_t kImageSamples[] = {0, 1, 2, 3, 4, 5};
/// Extents of arrays of any class, up to sizes no tag or chunk takes.
inline constexpr std::size_t kAnyDims[] = {0, 1, 1, 2, 3, 4, 5, 8, 16, 17, 64, 255, 256, 1000, 4096, 65536};
/// Numeric classes for numbers given in another class than double.
inline constexpr std::uint8_t kNumericClasses[] = {3, 7, 8, 9, 10, 11, 12, 13, 14, 15};

}  // namespace tiffgate::fuzz::program
