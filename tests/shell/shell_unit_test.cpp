// Unit tests of the shell's parts: the digest, number printing, structures
// (which no script can make yet), syntax error positions, and random input
// thrown at the parser and the interpreter.

#include "shell/interpreter.h"
#include "shell/printer.h"
#include "shell/sha256.h"
#include "shell/syntax.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>

namespace {

using namespace tiffgate::shell;

TEST(Sha256, KnownDigests) {
  // Expected digests from FIPS 180-4's examples and Python's hashlib.
  const auto of = [](const std::string& s) { return sha256_hex(s.data(), s.size()); };
  EXPECT_EQ(of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  // Lengths at the padding's edges: 55 bytes fit one block, 56 need two.
  EXPECT_EQ(of(std::string(55, 'a')), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318");
  EXPECT_EQ(of(std::string(56, 'a')), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a");
  EXPECT_EQ(of(std::string(64, 'a')), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb");
  // A million bytes fed in pieces that straddle block boundaries.
  Sha256 hash;
  const std::string a(1000, 'a');
  std::size_t fed = 0;
  for (std::size_t piece = 1; fed < 1000000; piece = piece % 997 + 13) {
    const std::size_t n = std::min({piece, a.size(), 1000000 - fed});
    hash.update(a.data(), n);
    fed += n;
  }
  EXPECT_EQ(hash.hex(), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Printer, ShortestNumbersReadBack) {
  EXPECT_EQ(shortest(0.1), "0.1");
  EXPECT_EQ(shortest(65535.0), "65535");
  EXPECT_EQ(shortest(-0.0), "-0");
  EXPECT_EQ(shortest(5e-324), "5e-324");
  EXPECT_EQ(shortest(1.0 / 3), "0.3333333333333333");
  EXPECT_EQ(shortest(std::numeric_limits<float>::max()), "3.4028235e+38");
  EXPECT_EQ(shortest(0.1f), "0.1");
  EXPECT_EQ(shortest(static_cast<double>(0.1f)), "0.10000000149011612");
  EXPECT_EQ(shortest(std::nan("")), "NaN");
  EXPECT_EQ(shortest(-std::numeric_limits<double>::infinity()), "-Inf");
  EXPECT_EQ(shortest(std::numeric_limits<float>::infinity()), "Inf");
  // Any finite value reads back exactly, as a double or as a single.
  std::mt19937_64 random(12345);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    float f;
    const auto low = static_cast<std::uint32_t>(bits);
    std::memcpy(&f, &low, sizeof f);
    if (std::isfinite(d)) {
      ASSERT_EQ(std::strtod(shortest(d).c_str(), nullptr), d) << shortest(d);
    }
    if (std::isfinite(f)) {
      ASSERT_EQ(std::strtof(shortest(f).c_str(), nullptr), f) << shortest(f);
    }
  }
}

Array metadata() {
  return Array::structure({{"ImageWidth", Array::scalar(640)},
                           {"Name", Array::text("a'b")},
                           {"Inner", Array::structure({{"Flag", Array::logical(true)}})},
                           {"Empty", Array()}});
}

TEST(Printer, StructuresAndCells) {
  std::ostringstream out;
  print_value(out, "s", metadata(), false);
  EXPECT_EQ(out.str(),
            "s = struct 1x1\n"
            "s.ImageWidth = double 1x1 640\n"
            "s.Name = char 1x3 'a''b'\n"
            "s.Inner = struct 1x1\n"
            "s.Inner.Flag = logical 1x1 1\n"
            "s.Empty = double 0x0\n");
  EXPECT_EQ(
      describe(Array::cell({Array::structure({{"A", Array::scalar(1)}, {"B", Array::cell({})}}), Array::text("")}),
               false),
      "cell 1x2 {struct 1x1 {.A = double 1x1 1; .B = cell 1x0 {}}; char 0x0 ''}");
  // Each class at its element size; logical is one byte.
  EXPECT_EQ(describe(Array::of<std::uint16_t>(zvUINT16_CLASS, {1, 3}, {1, 65535, 7}), false), "uint16 1x3 1 65535 7");
  EXPECT_EQ(describe(Array::of<std::int32_t>(zvINT32_CLASS, {2, 1}, {-2147483647 - 1, 5}), false),
            "int32 2x1 -2147483648 5");
}

TEST(Interpreter, FieldsBracesAndValuesOfStructures) {
  std::ostringstream out, err;
  Interpreter shell(out, err, {false, true});
  shell.assign("s", metadata());
  shell.run(
      parse("w = s.ImageWidth, s.Inner.Flag, c = {s, 'x'}; c{1}.Name, c{2}\n"
            "s.Missing\n"
            "w.Field\n"
            "t = s(1); t.ImageWidth\n"
            "c{1:2}\n"
            "s(2)"));
  EXPECT_EQ(out.str(),
            "w = double 1x1 640\n"
            "ans = logical 1x1 1\n"
            "ans = char 1x3 'a''b'\n"
            "ans = char 1x1 'x'\n"
            "ans = double 1x1 640\n");
  EXPECT_EQ(err.str(),
            "error: tiffgate:noSuchField: the structure has no field 'Missing'\n"
            "error: tiffgate:noSuchField: '.Field' needs a structure, not double\n"
            "error: tiffgate:badIndex: {} must pick one element, not 2\n"
            "error: tiffgate:indexOutOfBounds: index 2 exceeds the 1 elements\n");
}

TEST(Parser, ReportsLineAndColumn) {
  struct Case {
    const char* text;
    int line;
    int column;
  };
  const Case cases[] = {
      {"x = (1", 1, 7},           {"[1 2", 1, 5},    {"x = 3x", 1, 5},
      {"a = 1\n'abc", 2, 1},      {"a b", 1, 3},     {"x(1) = 2", 1, 6},
      {"f(1,,2)", 1, 5},          {"y = @", 1, 5},   {"s = 'ü' $", 1, 9},
      {"[a, 1] = 2", 1, 5},       {"s.", 1, 3},      {"1:", 1, 3},
      {"ok = 1\r\nno = )", 2, 6}, {"[1 - 2]", 1, 4}, {"x = 1e+", 1, 5},
      {"{1, 2\n}", 1, 6},         {"\xff", 1, 1},    {"x = 'a'b", 1, 8},
  };
  for (const Case& c : cases) {
    try {
      parse(c.text);
      ADD_FAILURE() << "no syntax error in " << c.text;
    } catch (const SyntaxError& e) {
      EXPECT_EQ(e.line(), c.line) << c.text << ": " << e.describe();
      EXPECT_EQ(e.column(), c.column) << c.text << ": " << e.describe();
    }
  }
}

// A text nested deeper than the parser allows is a syntax error, not a
// stack overflow in the parser or the interpreter.
TEST(Parser, RefusesDeepNesting) {
  const auto nested = [](std::string open, std::string middle, std::string close, int n) {
    std::string text;
    for (int i = 0; i < n; ++i) text += open;
    text += middle;
    for (int i = 0; i < n; ++i) text += close;
    return text;
  };
  EXPECT_THROW(parse(nested("(", "1", ")", 100000)), SyntaxError);
  EXPECT_THROW(parse(nested("[", "1", "]", 100000)), SyntaxError);
  EXPECT_THROW(parse(nested("-", "1", "", 100000)), SyntaxError);
  EXPECT_THROW(parse(nested("", "x", "(1)", 100000)), SyntaxError);
  EXPECT_THROW(parse(nested("", "x", ".f", 100000)), SyntaxError);
  // Reasonable depths still parse and run.
  std::ostringstream out, err;
  Interpreter shell(out, err, {false, false});
  EXPECT_TRUE(shell.run(parse(nested("(", "{[-1]}", ")", 100) + "{1}" + nested("", "", "(1)", 50))));
  EXPECT_EQ(out.str(), "ans = double 1x1 -1\n");
}

// Random input never gets past the parser's own error, and its position is
// always within the text.
TEST(Parser, SurvivesRandomBytes) {
  std::mt19937 random(2024);
  for (int i = 0; i < 5000; ++i) {
    std::string text(random() % 80, '\0');
    for (char& c : text) c = static_cast<char>(random() % 4 ? "x1 ([{'.,;:=-+}])\n%#"[random() % 21] : random());
    int lines = 1;
    for (char c : text) lines += c == '\n';
    try {
      parse(text);
    } catch (const SyntaxError& e) {
      ASSERT_GE(e.line(), 1);
      ASSERT_LE(e.line(), lines);
      ASSERT_GE(e.column(), 1);
      ASSERT_LE(static_cast<std::size_t>(e.column()), text.size() + 1);
    }
  }
}

// Token soup over the builtins: whatever parses runs to an error of the
// shell's own, never to a crash or a foreign exception.
TEST(Interpreter, SurvivesTokenSoup) {
  const char* vocabulary[] = {
      "x",        "y",
      "=",        "(",
      ")",        "[",
      "]",        "{",
      "}",        ",",
      ";",        ":",
      "-",        "0",
      "1",        "2",
      "3",        "0.5",
      "-1",       "NaN",
      "Inf",      "true",
      "'ab'",     "''",
      "zeros",    "ones",
      "reshape",  "cat",
      "size",     "class",
      "numel",    "uint8",
      "int8",     "single",
      "uint64",   "logical",
      "double",   "'18446744073709551615'",
      "'uint16'", "x(",
      "y{",       ".f",
      "\n",       "[]",
      "{}",       "%",
      " ",
  };
  std::mt19937 random(77);
  std::size_t parsed = 0;
  for (int i = 0; i < 4000; ++i) {
    std::string text = i % 2 ? "x = 1:3; y = {1, 'a'};\n" : "";
    const int count = 1 + static_cast<int>(random() % 12);
    for (int t = 0; t < count; ++t) {
      text += vocabulary[random() % std::size(vocabulary)];
      if (random() % 2) text += ' ';
    }
    Program program;
    try {
      program = parse(text);
    } catch (const SyntaxError&) {
      continue;
    }
    ++parsed;
    std::ostringstream out, err;
    Interpreter shell(out, err, {false, true});
    ASSERT_NO_THROW(shell.run(program)) << text;
    std::istringstream lines(err.str());
    for (std::string line; std::getline(lines, line);) {
      ASSERT_EQ(line.rfind("error: tiffgate:", 0), 0u) << text << "\n" << line;
      ASSERT_EQ(line.find("internalError"), std::string::npos) << text << "\n" << line;
    }
  }
  EXPECT_GT(parsed, 500u);  // the soup must exercise the interpreter, not only the parser
}

}  // namespace
