#include "progress_bar.hpp"

#include <gtest/gtest.h>

namespace tovrin::ai::eval {
namespace {

TEST(FormatProgress, BarRateAndTimeLeft) {
  struct Row {
    const char* name;
    std::size_t done;
    std::size_t total;
    double elapsedSeconds;
    std::size_t columns;  // 0: no limit
    const char* expected;
  };
  const Row rows[] = {
      {"nothing_done_yet", 0, 30, 3.0, 0, "[..............................]  0/30  - req/s  left -"},
      {"partly_done", 12, 30, 5.0, 0, "[############..................]  12/30  2.4 req/s  left 0:08"},
      {"all_done", 30, 30, 10.0, 0, "[##############################]  30/30  3.0 req/s  left 0:00"},
      {"hours_left", 1, 7201, 1.0, 0, "[..............................]  1/7201  1.0 req/s  left 2:00:00"},
      {"no_time_yet", 5, 30, 0.0, 0, "[#####.........................]  5/30  - req/s  left -"},
      {"nothing_to_do", 0, 0, 0.0, 0, "[##############################]  0/0  - req/s  left -"},
      // One column short of the width, so that the terminal never wraps.
      {"wide_terminal_full_bar", 12, 30, 5.0, 80, "[############..................]  12/30  2.4 req/s  left 0:08"},
      {"narrow_bar", 12, 30, 5.0, 45, "[#####........]  12/30  2.4 req/s  left 0:08"},
      {"no_room_for_a_bar", 12, 30, 5.0, 35, "12/30  2.4 req/s  left 0:08"},
      {"tail_cut", 12, 30, 5.0, 11, "12/30  2.4"},
      {"one_column", 12, 30, 5.0, 1, ""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(formatProgress(row.done, row.total, row.elapsedSeconds, row.columns), row.expected) << row.name;
  }
}

}  // namespace
}  // namespace tovrin::ai::eval
