// A one-line progress bar for runs on a terminal.
#ifndef TOVRIN_AI_EVAL_PROGRESS_BAR_HPP_
#define TOVRIN_AI_EVAL_PROGRESS_BAR_HPP_

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>

namespace tovrin::ai::eval {

// "[#######.............]  12/30  2.4 req/s  left 0:08": the bar, the
// runs done, the rate so far and the time left at that rate. Rate and time
// left read "-" until the first run has ended. With columns (0: no limit)
// the line stays shorter than that, so that the terminal never wraps it:
// the bar narrows, then goes, then the tail is cut.
std::string formatProgress(std::size_t done, std::size_t total,
                           double elapsedSeconds, std::size_t columns = 0);

// Redraws the bar in place on stream ("\r", no escape sequences, so any
// console shows it), fitted to the terminal's width at each redraw. Draws
// nothing at all when disabled.
class ProgressBar {
 public:
  ProgressBar(std::FILE* stream, bool enabled);
  void update(std::size_t done, std::size_t total);
  // Ends the line, so that what follows starts on a fresh one.
  void finish();

 private:
  std::FILE* stream_;
  bool enabled_;
  bool drawn_ = false;
  std::size_t width_ = 0;
  std::chrono::steady_clock::time_point start_;
};

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_PROGRESS_BAR_HPP_
