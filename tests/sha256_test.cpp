// The tests' SHA-256 against the published test vectors, whole and fed in
// pieces that straddle its 64-byte blocks.
#include "support/sha256.h"

#include <gtest/gtest.h>

#include <string>

namespace tiffgate::testing {
namespace {

TEST(sha256, published_vectors) {
  EXPECT_EQ(sha256_hex("", 0), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(sha256_hex("abc", 3), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  const std::string two = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";  // 56 bytes: two blocks of padding
  EXPECT_EQ(sha256_hex(two.data(), two.size()), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  const std::string million(1000000, 'a');
  Sha256 pieces;
  for (std::size_t at = 0, step = 1; at < million.size(); at += step, step = step % 97 + 1)
    pieces.update(million.data() + at, std::min(step, million.size() - at));
  EXPECT_EQ(pieces.hex(), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

}  // namespace
}  // namespace tiffgate::testing
