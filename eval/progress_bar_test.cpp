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
    const char* expected;
  };
  const Row rows[] = {
      {"nothing_done_yet", 0, 30, 3.0,
       "[..............................]  0/30  - req/s  left -"},
      {"partly_done", 12, 30, 5.0,
       "[############..................]  12/30  2.4 req/s  left 0:08"},
      {"all_done", 30, 30, 10.0,
       "[##############################]  30/30  3.0 req/s  left 0:00"},
      {"hours_left", 1, 7201, 1.0,
       "[..............................]  1/7201  1.0 req/s  left 2:00:00"},
      {"nothing_to_do", 0, 0, 0.0,
       "[##############################]  0/0  - req/s  left -"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(formatProgress(row.done, row.total, row.elapsedSeconds),
              row.expected)
        << row.name;
  }
}

}  // namespace
}  // namespace tovrin::ai::eval
