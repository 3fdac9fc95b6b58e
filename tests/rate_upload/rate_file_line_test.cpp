#include "rate_upload/rate_file_line.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <vector>

#include "base/qvn_text.h"

namespace {

constexpr int kLine = 3;

/// A mutable copy that outlives the views into it.
class buffer {
 public:
  explicit buffer(const std::string& text) : text_(text) {}
  char* get() { return text_.data(); }

 private:
  std::string text_;
};

rate_header header_of(const std::string& line) {
  return rate_header_parse(buffer(line).get());
}

TEST(deck_header, names_count_whatever_their_case_and_blanks) {
  const rate_header header = header_of("Code , EFFECTIVE_DATE,\trate, unheard_of,,LATA");
  ASSERT_EQ(header.count, 6U);
  EXPECT_TRUE(header.valid());
  EXPECT_EQ(header.kinds[0], column_kind::code);
  EXPECT_EQ(header.kinds[1], column_kind::effective_date);
  EXPECT_EQ(header.kinds[2], column_kind::rate);
  EXPECT_EQ(header.kinds[3], column_kind::ignored);
  EXPECT_EQ(header.kinds[4], column_kind::ignored);
  EXPECT_EQ(header.kinds[5], column_kind::lata);
}

TEST(deck_header, needs_code_and_effective_date) {
  EXPECT_FALSE(header_of("code,rate").valid());
  EXPECT_FALSE(header_of("effective_date,rate").valid());
  EXPECT_FALSE(header_of("").valid());
  EXPECT_FALSE(header_of("\"code\",effective_date").valid()) << "quotes belong to the name";
  EXPECT_FALSE(rate_header{}.valid());
}

TEST(deck_header, takes_at_most_255_cells) {
  std::string line;
  for (int i = 0; i < 300; ++i) {
    line += "x,";
  }
  EXPECT_EQ(header_of(line).count, 255U);
}

TEST(date_format_name, is_compared_without_regard_to_case) {
  EXPECT_EQ(rate_date_format_index("MM/DD/YYYY"), date_format::mdy_slash);
  EXPECT_EQ(rate_date_format_index("yyyy-mm-dd"), date_format::ymd_dash);
  EXPECT_EQ(rate_date_format_index("YYYY/mm/DD"), date_format::ymd_slash);
  EXPECT_EQ(rate_date_format_index(""), date_format::unsupported);
  EXPECT_EQ(rate_date_format_index("YYYY-MM-DD "), date_format::unsupported);
}

/// One line against one header, in the time zone of the daemon's service, UTC.
class deck_line : public testing::Test {
 protected:
  static constexpr int64_t kNow = 1'700'000'000;  // 2023-11-14 22:13:20 UTC
  static constexpr int64_t kDay = 86'400;

  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }

  /// The line's refusal, or an empty text when it is accepted.
  std::string check(const std::string& header_line, const std::string& line,
                    date_format format = date_format::ymd_dash) {
    const rate_header header = header_of(header_line);
    line_.emplace(line);
    std::array<char*, kMaxCells> entries;
    const std::span<char*> cells = rate_line_split(line_->get(), entries);
    dates_.emplace(format, kNow);
    values_ = {};
    refusal_.clear();
    return rate_line_check(header, cells, kLine, *dates_, values_, refusal_) ? "" : refusal_;
  }

  std::optional<buffer> line_;
  std::optional<rate_date_reader> dates_;
  import_values values_;
  std::string refusal_;
};

using deck_line_test = deck_line;

TEST_F(deck_line, refusals_name_line_column_and_cell) {
  struct cell_case {
    const char* column;
    const char* cell;
    const char* refusal;
  };
  constexpr cell_case kCases[] = {
      {"zone", "x", "Line 3 : zone invalid, x\n"},
      {"interval", "1.5", "Line 3 : interval invalid, 1.5\n"},
      {"seconds", "-1", "Line 3 : second invalid, -1\n"},
      {"rate_type", "a", "Line 3 : rate type invalid, a\n"},
      {"min_time", "1 2", "Line 3 : min time invalid, 1 2\n"},
      {"grace_time", "+1", "Line 3 : grace time invalid, +1\n"},
      {"code", "44x", "Line 3 : code invalid, 44x\n"},
      {"rate", ".5", "Line 3 : rate invalid, .5\n"},
      {"setup_fee", "-1", "Line 3 : setup free rate invalid, -1\n"},
      {"intra_rate", "1e3", "Line 3 : intra rate invalid, 1e3\n"},
      {"inter_rate", "x", "Line 3 : inter rate invalid, x\n"},
      {"local_rate", "$1", "Line 3 : local rate invalid, $1\n"},
      {"effective_date", "2024-13-01", "Line 3 : Effective date month invalid, 2024-13-01\n"},
      {"end_date", "soon", "Line 3 : End date format invalid, soon\n"},
  };
  for (const cell_case& test : kCases) {
    EXPECT_EQ(check(test.column, test.cell), test.refusal);
  }
}

TEST_F(deck_line, first_bad_column_names_the_refusal) {
  EXPECT_EQ(check("rate,code", "x,y"), "Line 3 : rate invalid, x\n");
}

TEST_F(deck_line, empty_and_blank_cells_leave_the_defaults) {
  EXPECT_EQ(check("code,rate,setup_fee,interval,end_date", " , \t,,,"), "");
  EXPECT_TRUE(values_.code.empty());
  EXPECT_EQ(values_.rate, -1.0F);
  EXPECT_EQ(values_.setup_fee, 0.0F);
  EXPECT_EQ(values_.end.text, nullptr);
}

TEST_F(deck_line, ignored_columns_are_not_tested) {
  EXPECT_EQ(check("ocn,lata,note", "x-y,$$,<>"), "");
}

TEST_F(deck_line, numbers_are_cut_to_16_bits_and_rates_end_at_a_second_point) {
  EXPECT_EQ(check("seconds,interval,rate", " 65537 , 65536,1.2.3"), "");
  EXPECT_EQ(values_.seconds, 1U);
  EXPECT_EQ(values_.interval, 0U);
  EXPECT_EQ(values_.rate, 1.2F);
}

TEST_F(deck_line, quotes_around_names_are_taken_off) {
  EXPECT_EQ(check("code_name,country", "\"\"London\"x, \"UK"), "");
  EXPECT_EQ(values_.code_name, "London");
  EXPECT_EQ(values_.country, "UK");
}

TEST_F(deck_line, dates_in_each_format_become_the_same_text) {
  struct format_case {
    date_format format;
    const char* cell;
  };
  constexpr format_case kCases[] = {
      {date_format::mdy_slash, "12/31/2023"}, {date_format::ymd_dash, "2023-12-31"},
      {date_format::dmy_dash, "31-12-2023"},  {date_format::mdy_dash, "12-31-2023"},
      {date_format::dmy_slash, "31/12/2023"}, {date_format::ymd_slash, "2023/12/31 with a note"},
  };
  for (const format_case& test : kCases) {
    EXPECT_EQ(
        check("effective_date,end_date", std::string(test.cell) + "," + test.cell, test.format),
        "");
    EXPECT_STREQ(values_.effective.text, "2023-12-31 00:00:00+00") << test.cell;
    EXPECT_EQ(values_.effective.epoch, 1703980800) << test.cell;
    EXPECT_STREQ(values_.end.text, "2023-12-31 23:59:59+00") << test.cell;
    EXPECT_EQ(values_.end.epoch, 1704067199) << test.cell;
  }
}

TEST_F(deck_line, date_parts_are_checked_month_first_then_day_then_year) {
  struct date_case {
    date_format format;
    const char* cell;
    const char* refusal;  // the part behind the label, or empty
  };
  constexpr date_case kCases[] = {
      {date_format::dmy_slash, "12/31/1999", "month invalid, 12/31/1999"},
      {date_format::mdy_slash, "12/32/1999", "day invalid, 12/32/1999"},
      {date_format::mdy_slash, "12/31/1999", "year invalid, 12/31/1999"},
      {date_format::ymd_slash, "2023/1/-1", "day invalid, 2023/1/-1"},
      {date_format::dmy_slash, "-1/1/2023", ""},
      {date_format::ymd_dash, "2023-00-00", ""},
      {date_format::ymd_dash, "2023-02-31", ""},
      {date_format::ymd_dash, "2023-1", "format invalid, 2023-1"},
      {date_format::ymd_dash, "2023-1-1-1", "format invalid, 2023-1-1-1"},
      {date_format::ymd_dash, "2023/01/01", "format invalid, 2023/01/01"},
      {date_format::ymd_dash, "--", "year invalid, --"},
      {date_format::ymd_dash, "2023- -01", ""},
      {date_format::unsupported, "2023-01-01", "invalid, 2023-01-01"},
      {date_format::ymd_dash, "x-xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx",
       "format invalid, x-xxxxxxxxxxxxxxxxxxxxxxxxxxx"},
  };
  for (const date_case& test : kCases) {
    const std::string refusal =
        *test.refusal ? qvn_format("Line 3 : Effective date %s\n", test.refusal) : "";
    EXPECT_EQ(check("effective_date", test.cell, test.format), refusal) << test.cell;
  }
}

TEST_F(deck_line, only_the_moment_is_normalised_not_the_text) {
  EXPECT_EQ(check("effective_date", "2023-02-31"), "");
  EXPECT_STREQ(values_.effective.text, "2023-02-31 00:00:00+00");
  EXPECT_EQ(values_.effective.epoch, 1677801600) << "3 March 2023";
}

TEST_F(deck_line, dates_too_far_ahead_are_refused) {
  const auto date = [](int64_t time) {
    tm parts{};
    gmtime_r(&time, &parts);
    return qvn_format("%04d-%02d-%02d", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
  };
  EXPECT_EQ(check("effective_date", date(kNow + 90 * kDay)), "");
  EXPECT_EQ(check("effective_date", date(kNow + 91 * kDay)),
            "Line 3 : Effective date too long, " + date(kNow + 91 * kDay) + "\n");
  EXPECT_EQ(check("end_date", date(kNow + 179 * kDay)), "");
  EXPECT_EQ(check("end_date", date(kNow + 181 * kDay)),
            "Line 3 : End date too long, " + date(kNow + 181 * kDay) + "\n");
}

TEST_F(deck_line, absurd_numbers_do_not_overflow) {
  for (const char* const cell : {"2147483647/1/1", "2000/-2147483648/1", "2000/1/-2147483648",
                                 "99999999999999999999/1/1", "2000/-99999999999999999999/1"}) {
    (void)check("effective_date", cell, date_format::ymd_slash);
  }
}

/// The last date of each column is remembered: the two must not be mixed up, and a refused one not
/// kept.
TEST_F(deck_line, remembered_dates_are_those_of_their_column) {
  rate_date_reader dates(date_format::ymd_dash, kNow);
  const auto read = [&](column_kind kind, const char* text) {
    import_date date;
    std::string refusal;
    return dates.read(kind, text, kLine, date, refusal) ? date.text : refusal;
  };
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(read(column_kind::effective_date, "2023-12-01"), "2023-12-01 00:00:00+00");
    EXPECT_EQ(read(column_kind::end_date, "2023-12-01"), "2023-12-01 23:59:59+00");
    EXPECT_EQ(read(column_kind::end_date, "x"), "Line 3 : End date format invalid, x\n");
  }
}

}  // namespace
