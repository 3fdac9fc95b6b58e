#include <gtest/gtest.h>
#include <string>

#include "base/qvn_md5.h"

namespace {

TEST(md5, gives_the_digests_of_rfc_1321) {
  const struct {
    const char* text;
    const char* digest;
  } cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& c : cases) {
    EXPECT_STREQ(qvn_md5(c.text).data(), c.digest) << c.text;
  }
}

TEST(md5, pads_texts_around_the_ends_of_blocks) {
  const struct {
    std::size_t length;
    const char* digest;
  } cases[] = {
      {55, "04364420e25c512fd958a70738aa8f72"},  {56, "668a72d5ba17f08e62dabcafad6db14b"},
      {63, "7dc2ca208106a2f703567bdff99d8981"},  {64, "c1bb4f81d892b2d57947682aeb252456"},
      {65, "1bc932052302d074bdec39795fe00cf6"},  {119, "ab347a5f68c8a443cfcddc633f12c24f"},
      {120, "fb98667f98096de92620b64f46e1c5b5"}, {1000, "398533d48111e9f664b1f64cb10c4b63"},
  };
  for (const auto& c : cases) {
    EXPECT_STREQ(qvn_md5(std::string(c.length, 'x')).data(), c.digest) << c.length;
  }
}

TEST(md5, takes_every_byte) {
  EXPECT_STREQ(qvn_md5(std::string_view("\xff\x80\0z", 4)).data(),
               "5ec6b25d08a426c07fc56d5bcd81a79a");
}

}  // namespace
