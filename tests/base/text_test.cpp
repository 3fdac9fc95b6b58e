#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "base/qvn_text.h"

namespace {

using testing::ElementsAre;

/// Shows an absent text as such.
std::string shown(const char* text) {
  return text == nullptr ? "(absent)" : text;
}
std::string shown(const qvn_heap_text& text) {
  return shown(text.get());
}

[[gnu::format(printf, 1, 2)]] qvn_heap_text cut_printf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  qvn_heap_text text = qvn_vsprintf_dup(format, arguments);
  va_end(arguments);
  return text;
}

TEST(Text, AbsentAndEmptyAreTheSame) {
  EXPECT_EQ(zstr(nullptr), 1);
  EXPECT_EQ(zstr(""), 1);
  EXPECT_EQ(zstr(" "), 0);
  EXPECT_EQ(str_nonzero(nullptr), 0);
  EXPECT_EQ(str_nonzero(""), 0);
  EXPECT_EQ(str_nonzero(" "), 1);
}

TEST(Text, AnEmptyTextIsNotCopied) {
  EXPECT_EQ(shown(qvn_strdup(nullptr)), "(absent)");
  EXPECT_EQ(shown(qvn_strdup("")), "(absent)");
  EXPECT_EQ(shown(qvn_strdup("a b")), "a b");
}

TEST(Text, ConcatenationTakesAnAbsentPartForNone) {
  EXPECT_EQ(shown(qvn_strcat("ab", "cd")), "abcd");
  EXPECT_EQ(shown(qvn_strcat("", "cd")), "cd");
  EXPECT_EQ(shown(qvn_strcat("", "")), "");
  EXPECT_EQ(shown(qvn_strcat(nullptr, "cd")), "cd");
  EXPECT_EQ(shown(qvn_strcat("ab", nullptr)), "ab");
  EXPECT_EQ(shown(qvn_strcat("", nullptr)), "(absent)");
  EXPECT_EQ(shown(qvn_strcat(nullptr, nullptr)), "(absent)");
}

TEST(Text, FormattedCopiesHold2046Characters) {
  const std::string longest(2046, 'x');
  const std::string longer(2047, 'x');
  EXPECT_EQ(shown(qvn_dup_printf("%s", longest.c_str())), longest);
  EXPECT_EQ(shown(qvn_dup_printf("%s", longer.c_str())), "(absent)");
  EXPECT_EQ(shown(cut_printf("%s", longest.c_str())), longest);
  EXPECT_EQ(shown(cut_printf("%s", longer.c_str())), longest);
  EXPECT_EQ(qvn_format("%s%d", longer.c_str(), 1), longer + "1");
  EXPECT_EQ(qvn_format("%s", ""), "");
}

// A byte above 127 is no blank, although it is negative as a char.
TEST(Text, BlanksAreTheCodes1To32) {
  char text[] = "\x01\t\n \x80z  \xff";
  EXPECT_STREQ(qvn_skip_blanks(text), "\x80z  \xff");
  EXPECT_STREQ(qvn_skip_nonblanks(qvn_skip_blanks(text)), "  \xff");
  char blanks[] = " \t";
  EXPECT_STREQ(qvn_skip_blanks(blanks), "");
  EXPECT_STREQ(qvn_skip_nonblanks(blanks), blanks);
  char trimmed[] = " a\xa0 \x01\t\n";
  EXPECT_STREQ(qvn_trim_suffix_blank(trimmed), " a\xa0");
  char all_blank[] = " \n";
  EXPECT_STREQ(qvn_trim_suffix_blank(all_blank), "");
  EXPECT_EQ(qvn_trim_suffix_blank(nullptr), nullptr);
}

TEST(Text, ARunOfANamedCharacterIsSkipped) {
  char text[] = "//a/";
  EXPECT_STREQ(qvn_skip_named_char(text, '/'), "a/");
  EXPECT_STREQ(qvn_skip_named_char(text, 'a'), "//a/");
  char run[] = "//";
  EXPECT_STREQ(qvn_skip_named_char(run, '/'), "");
  EXPECT_STREQ(qvn_skip_named_char(run + 2, '\0'), "");
}

TEST(Text, PrefixBlanksAreTabBlankAndCarriageReturnOnly) {
  char text[] = " \t\r\nx";
  EXPECT_STREQ(qvn_strip_prefix_blank(text), "\nx");
}

TEST(Text, SuffixIsStrippedBackwardsUpToAnyOtherCharacterOrNul) {
  char text[] = "[a\v \t\r\n";
  qvn_strip_suffix_blank(text + 6);
  EXPECT_STREQ(text, "[a\v");
  char behind_nul[] = {' ', '\0', ' ', ' ', '\0'};
  qvn_strip_suffix_blank(behind_nul + 3);
  EXPECT_EQ(behind_nul[0], ' ');
  EXPECT_EQ(behind_nul[2], '\0');
}

TEST(Text, DigitsAndTelephoneNumbers) {
  struct row {
    const char* text;
    int32_t digits;
    int32_t telephone;
  };
  for (const row& r :
       {row{"", 1, 1}, row{"0123456789", 1, 1}, row{"12a", 0, 0}, row{"+12", 0, 1},
        row{"-12", 0, 1}, row{"++12", 0, 0}, row{"1+2", 0, 0}, row{"1.2", 0, 1}, row{"+", 0, 1},
        row{" 1", 0, 0}, row{"/", 0, 0}, row{":", 0, 0}, row{"\xb2", 0, 0}}) {
    EXPECT_EQ(qvn_is_digit(r.text), r.digits) << r.text;
    EXPECT_EQ(qvn_is_telephone_number(r.text), r.telephone) << r.text;
  }
}

TEST(Text, OnlyALetterMakesAHostName) {
  EXPECT_EQ(qvn_is_ipaddr(nullptr), -1);
  for (const char* address : {"", "127.0.0.1", "999.1", "@[`{", "\xe4"}) {
    EXPECT_EQ(qvn_is_ipaddr(address), 0) << address;
  }
  for (const char* host : {"a", "1.z", "A1", "Z"}) {
    EXPECT_EQ(qvn_is_ipaddr(host), 1) << host;
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

using row_parser = int32_t (*)(char*, std::span<char*>, char);

/// Splits at commas; an entry that was not reached shows as "-". The index of the last field comes
/// first.
std::vector<std::string> split(row_parser parse, std::string line, std::size_t max) {
  std::array<char, 2> untouched{"-"};
  std::vector<char*> fields(max, untouched.data());
  std::vector<std::string> result{std::to_string(parse(line.data(), fields, ','))};
  result.insert(result.end(), fields.begin(), fields.end());
  return result;
}

TEST(RowParse, LastFieldIsCutOnlyWhenTheVectorIsFull) {
  const auto parse = qvn_row_parse_to_array;
  EXPECT_THAT(split(parse, "a,b,c", 5), ElementsAre("2", "a", "b", "c", "-", "-"));
  EXPECT_THAT(split(parse, "a,b,c\n", 4), ElementsAre("2", "a", "b", "c\n", "-"));
  EXPECT_THAT(split(parse, "a,b,c\n", 3), ElementsAre("2", "a", "b", "c"));
  EXPECT_THAT(split(parse, "a,b,c\n", 2), ElementsAre("1", "a", "b"));
  EXPECT_THAT(split(parse, "a,b", 1), ElementsAre("0", "a"));
  EXPECT_THAT(split(parse, "", 2), ElementsAre("0", "", "-"));
  EXPECT_THAT(split(parse, ",,", 4), ElementsAre("2", "", "", "", "-"));
  EXPECT_THAT(split(parse, "a,", 2), ElementsAre("1", "a", ""));
  EXPECT_THAT(split(parse, "a\nb,c", 3), ElementsAre("1", "a\nb", "c", "-"));
}

TEST(RowParse, VstrKeepsSeparatorsInTheLastFieldOfAFullVector) {
  const auto parse = qvn_row_parse_to_array_vstr;
  EXPECT_THAT(split(parse, "a,b,c\n", 2), ElementsAre("1", "a", "b,c"));
  EXPECT_THAT(split(parse, "a,b,c\nd", 1), ElementsAre("0", "a,b,c"));
  EXPECT_THAT(split(parse, "a,b\n", 3), ElementsAre("1", "a", "b\n", "-"));
  EXPECT_THAT(split(parse, ",b,", 3), ElementsAre("2", "", "b", ""));
}

TEST(RowParse, VstrEmptyFieldsShareOneText) {
  char line[] = ",,x,\n";
  std::array<char*, 4> fields{};
  EXPECT_EQ(qvn_row_parse_to_array_vstr(line, fields, ','), 3);
  EXPECT_EQ(fields[0], fields[1]);
  EXPECT_EQ(fields[0], fields[3]);
  EXPECT_TRUE(fields[0] < line || fields[0] >= line + sizeof(line));
}

}  // namespace
