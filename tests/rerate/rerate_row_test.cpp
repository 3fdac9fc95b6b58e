#include "rerate/rerate_row.h"

#include <gtest/gtest.h>

namespace {

TEST(rerate_row, shows_how_the_rerating_ended) {
  const rerate_figures figures{1, 2, 3, "a.cdr,b.cdr,"};
  EXPECT_EQ(rerate_row_final_update(4, {}, figures, 5, 6, "/r/"),
            "update rerate_cdr_task set err_code=0,progress='',status=4,load_cdr_elapsed_sec=1,"
            "load_rate_elapsed_sec=2,rerate_elapsed_sec=0,start_time=5,end_time=6,"
            "cdr_file='a.cdr,b.cdr',cdr_file_path='/r/' where id=4");
  const rerate_outcome outcome = rerate_fail(rerate_error::rating, "%198s\u00e4", "x");
  EXPECT_EQ(outcome.text, std::string(197, ' ') + "x");
}

}  // namespace
