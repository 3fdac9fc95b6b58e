#include <gtest/gtest.h>
#include <string>

#include "base/qvn_text.h"

namespace {

/// Shows an absent text as such.
std::string shown(const qvn_heap_text& text) {
  return text ? text.get() : "(absent)";
}

[[gnu::format(printf, 1, 2)]] qvn_heap_text cut_printf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  qvn_heap_text text = qvn_vsprintf_dup(format, arguments);
  va_end(arguments);
  return text;
}

TEST(Text, CopiesTakeAbsentAndEmptyTextsForNone) {
  EXPECT_EQ(shown(qvn_strdup(nullptr)), "(absent)");
  EXPECT_EQ(shown(qvn_strdup("")), "(absent)");
  EXPECT_EQ(shown(qvn_strcat("", "cd")), "cd");
  EXPECT_EQ(shown(qvn_strcat(nullptr, "cd")), "cd");
  EXPECT_EQ(shown(qvn_strcat("ab", nullptr)), "ab");
  EXPECT_EQ(shown(qvn_strcat("", nullptr)), "(absent)");
}

TEST(Text, FormattedCopiesHold2046Characters) {
  const std::string longest(2046, 'x');
  const std::string longer(2047, 'x');
  EXPECT_EQ(shown(qvn_dup_printf("%s", longest.c_str())), longest);
  EXPECT_EQ(shown(qvn_dup_printf("%s", longer.c_str())), "(absent)");
  EXPECT_EQ(shown(cut_printf("%s", longer.c_str())), longest);
  EXPECT_EQ(qvn_format("%s%d", longer.c_str(), 1), longer + "1");
}

// The fault: a database refused every text that was cut in the middle of a character.
TEST(Text, CutsFallBetweenCharacters) {
  EXPECT_EQ(qvn_cut("abc", 3), "abc");
  EXPECT_EQ(qvn_cut("abcd", 3), "abc");
  EXPECT_EQ(qvn_cut("ab\u00e4c", 4), "ab\u00e4");
  EXPECT_EQ(qvn_cut("ab\u00e4c", 3), "ab");
  EXPECT_EQ(qvn_cut("\U0001F4DEx", 4), "\U0001F4DE");
  EXPECT_EQ(qvn_cut("a\U0001F4DE", 4), "a");
  EXPECT_EQ(qvn_cut("ab\xe4\xe4\xe4", 4), "ab\xe4\xe4");              // not UTF-8
  EXPECT_EQ(qvn_cut("\x80\x80\x80\x80\x80", 4), "\x80\x80\x80\x80");  // nor is this
}

TEST(Text, AnyDatabaseInUtf8TakesUtf8) {
  EXPECT_TRUE(qvn_is_utf8("") && qvn_is_utf8("a\u00e4\U0001F4DE"));
  for (const char* other : {"\xe4", "a\xc3", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80"})
    EXPECT_FALSE(qvn_is_utf8(other)) << other;
}

// A byte above 127 is no blank, although it is negative as a char.
TEST(Text, BlanksAreTheCodes1To32) {
  char text[] = "\x01\t\n \x80z  \xff";
  EXPECT_STREQ(qvn_skip_blanks(text), "\x80z  \xff");
  EXPECT_STREQ(qvn_skip_nonblanks(qvn_skip_blanks(text)), "  \xff");
  char trimmed[] = " a\xa0 \x01\t\n";
  EXPECT_STREQ(qvn_trim_suffix_blank(trimmed), " a\xa0");
  char all_blank[] = " \n";
  EXPECT_STREQ(qvn_trim_suffix_blank(all_blank), "");
  EXPECT_EQ(qvn_trim_suffix_blank(nullptr), nullptr);
  char run[] = "//a/";
  EXPECT_STREQ(qvn_skip_named_char(run, '/'), "a/");
}

TEST(Text, DigitsTelephoneNumbersAndHostNames) {
  const struct {
    const char* text;
    int32_t digits, telephone, host;
  } cases[] = {{"", 1, 1, 0},    {"0123456789", 1, 1, 0}, {"12a", 0, 0, 1}, {"+12", 0, 1, 0},
               {"-12", 0, 1, 0}, {"++12", 0, 0, 0},       {"1.2", 0, 1, 0}, {" 1", 0, 0, 0},
               {"/", 0, 0, 0},   {"@[`{", 0, 0, 0},       {"1.z", 0, 0, 1}, {"\xe4", 0, 0, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(qvn_is_digit(c.text), c.digits) << c.text;
    EXPECT_EQ(qvn_is_telephone_number(c.text), c.telephone) << c.text;
    EXPECT_EQ(qvn_is_ipaddr(c.text), c.host) << c.text;
  }
  EXPECT_EQ(qvn_is_ipaddr(nullptr), -1);
}

TEST(Text, ControlCharactersAreMaskedAndLettersAreNot) {
  const struct {
    const char* text;
    const char* masked;
  } cases[] = {
      {"\x01\x1b[2J\x1f\x7f\r\n\ta ~", "??[2J????\ta ~"},
      {"\x9b"
       "31m\xc2\x80\xc2\x9f\xc2\xa0",
       "?31m????\xc2\xa0"},
      // Letters whose bytes would be controls by themselves.
      {"\xc5\x9b\xe2\x80\x9c\xf0\x9f\x92\x80", "\xc5\x9b\xe2\x80\x9c\xf0\x9f\x92\x80"},
      // Longer than need be, a surrogate, above the last code, cut off.
      {"\xe0\x82\x9b\xed\xa0\x9b\xf0\x80\x82\x9b", "\xe0??\xed\xa0?\xf0???"},
      {"\xf4\x90\x80\x80\xf5\x80\xc1\x9b\xe2\x80", "\xf4???\xf5?\xc1?\xe2?"},
  };
  for (const auto& c : cases) {
    std::string text = c.text;
    qvn_mask_controls(text);
    EXPECT_EQ(text, c.masked);
  }
}

TEST(Text, SixWordsAreTrue) {
  for (const char* word : {"t", "true", "y", "yes", "on", "1"}) {
    EXPECT_TRUE(qvn_booleam(word)) << word;
  }
  for (const char* word : {"", "TRUE", "no", "tru", "truex", "11", " t", "off"}) {
    EXPECT_FALSE(qvn_booleam(word)) << word;
  }
  EXPECT_FALSE(qvn_booleam(nullptr));
}

}  // namespace
