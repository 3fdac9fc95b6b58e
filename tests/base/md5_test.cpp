#include <gtest/gtest.h>
#include <string>

#include "base/qvn_md5.h"

namespace {

TEST(md5, gives_the_known_digests) {
  const struct {
    std::string text;
    const char* digest;
  } cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {{"\xff\x80\0z", 4}, "5ec6b25d08a426c07fc56d5bcd81a79a"},
      // Around the ends of blocks.
      {std::string(55, 'x'), "04364420e25c512fd958a70738aa8f72"},
      {std::string(56, 'x'), "668a72d5ba17f08e62dabcafad6db14b"},
      {std::string(64, 'x'), "c1bb4f81d892b2d57947682aeb252456"},
      {std::string(120, 'x'), "fb98667f98096de92620b64f46e1c5b5"},
  };
  for (const auto& c : cases) {
    EXPECT_STREQ(qvn_md5(c.text).data(), c.digest) << c.text;
  }
}

}  // namespace
