// A deck's dates, its end, and the row that shows what became of it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "rate_upload/deck_validation.h"
#include "rate_upload/rate_upload_row.h"

namespace {

constexpr int64_t kDay = 86'400;
constexpr int64_t kJanuary1 = 1'767'225'600;  // 2026-01-01 00:00:00 UTC

TEST(deck_dates, lie_at_most_90_and_180_days_ahead_to_the_second) {
  for (const int64_t late : {0, 1}) {
    for (const auto& [kind, now] :
         {std::pair(column_kind::effective_date, kJanuary1 - 90 * kDay),
          std::pair(column_kind::end_date, kJanuary1 + kDay - 1 - 180 * kDay)}) {
      rate_date_reader dates(date_format::ymd_dash, now - late);
      import_date date;
      std::string refusal;
      EXPECT_EQ(dates.read(kind, "2026-01-01", 1, date, refusal), late == 0) << refusal;
    }
  }
}

TEST(deck_dates, are_read_in_the_deck_s_format) {
  for (const auto& [format, text] : {std::pair("MM/DD/YYYY", "2/3/2025"),
                                     {"yyyy-mm-dd", "2025-02-03"},
                                     {"DD-MM-YYYY", "03-02-2025"},
                                     {"MM-DD-YYYY", "02-03-2025"},
                                     {"DD/MM/YYYY", "03/02/2025"},
                                     {"YYYY/MM/DD", "2025/02/03"}}) {
    rate_date_reader dates(rate_date_format_index(format), kJanuary1);
    import_date date;
    std::string refusal;
    EXPECT_TRUE(dates.read(column_kind::effective_date, text, 1, date, refusal)) << refusal;
    EXPECT_STREQ(date.text, "2025-02-03 00:00:00+00");
    EXPECT_EQ(date.epoch, 1'738'540'800);
    EXPECT_FALSE(rate_date_reader(date_format::unsupported, kJanuary1)
                     .read(column_kind::end_date, text, 1, date, refusal));
  }
}

struct counter : rate_deck_listener {
  bool accepted(const import_values&, const rate_deck_line&) override { return ++lines > 0; }
  void refused(std::string_view message, const rate_deck_line&) override {
    ADD_FAILURE() << message;
  }
  int lines = 0;
};

// A pipe whose writer has said nothing more yet, or has gone.
TEST(deck, that_cannot_be_read_to_its_end_does_not_pass_for_a_whole_one) {
  for (const bool ends : {true, false}) {
    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_NONBLOCK | O_CLOEXEC), 0);
    const std::string text = "code,effective_date\n44,2024-01-01\n\n45,2024-01-01\r\n46,2024-01-01";
    ASSERT_EQ(write(pipe[1], text.data(), text.size()), std::ssize(text));
    if (ends) {
      close(pipe[1]);
    }
    const qvn_file deck(fdopen(pipe[0], "r"));
    rate_date_reader dates(date_format::ymd_dash, 1'800'000'000);
    seen_codes codes;
    counter listener;
    EXPECT_EQ(
        rate_deck_validate({deck.get(), nullptr, nullptr, dates, codes, nullptr, ""}, listener),
        ends ? rate_deck_end::whole : rate_deck_end::unreadable);
    EXPECT_EQ(listener.lines, ends ? 3 : 2);
  }
}

TEST(rate_upload_row, shows_how_the_import_ended) {
  const rate_upload_figures figures{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  rate_upload_outcome outcome;
  EXPECT_EQ(
      rate_upload_row_final_update(11, outcome, figures, 12, 13, "/r/"),
      "update rate_upload_task set progress='Insert: 3, Delete: 4, Update: 5, Error: 2',status=4,"
      "start_time=12,end_time=13,expense_detail='Download: 6, Process: 7, Delete: 8, Update: 9, "
      "Copy: 10',result_file_path='/r/' where id=11");
  outcome.fail((std::string(198, 'x') + "\u00e4").c_str());
  outcome.fail("later");
  EXPECT_EQ(outcome.text(), std::string(198, 'x'));
}

}  // namespace
