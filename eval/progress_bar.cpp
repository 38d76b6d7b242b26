#include "progress_bar.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "terminal.hpp"

namespace tovrin::ai::eval {

namespace {

constexpr std::size_t kBarWidth = 30;
// Narrower than this a bar says too little to be worth its room.
constexpr std::size_t kMinBarWidth = 5;

std::string oneDecimal(double value) {
  char buffer[32];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value,
                                          std::chars_format::fixed, 1);
  return error == std::errc() ? std::string(buffer, end) : "-";
}

// "m:ss", or "h:mm:ss" from an hour on.
std::string clockText(double seconds) {
  const auto whole = static_cast<long long>(std::llround(seconds));
  const long long hours = whole / 3600;
  const long long minutes = whole / 60 % 60;
  const long long rest = whole % 60;
  auto twoDigits = [](long long value) {
    return (value < 10 ? "0" : "") + std::to_string(value);
  };
  if (hours > 0) {
    return std::to_string(hours) + ":" + twoDigits(minutes) + ":" +
           twoDigits(rest);
  }
  return std::to_string(minutes) + ":" + twoDigits(rest);
}

}  // namespace

std::string formatProgress(std::size_t done, std::size_t total,
                           double elapsedSeconds, std::size_t columns) {
  std::string tail = std::to_string(done) + "/" + std::to_string(total);
  if (done == 0 || elapsedSeconds <= 0) {
    tail += "  - req/s  left -";
  } else {
    const double rate = static_cast<double>(done) / elapsedSeconds;
    const double left = static_cast<double>(total - done) / rate;
    tail += "  " + oneDecimal(rate) + " req/s  left " + clockText(left);
  }
  // A line that fills the last column wraps on many terminals.
  const std::size_t limit = columns == 0 ? std::string::npos : columns - 1;
  const std::size_t frame = tail.size() + 4;  // "[", "]" and two blanks
  std::size_t barWidth = kBarWidth;
  if (limit != std::string::npos) {
    barWidth =
        limit >= frame + kMinBarWidth ? std::min(kBarWidth, limit - frame) : 0;
  }
  if (barWidth == 0) return tail.substr(0, limit);
  const std::size_t filled = total == 0 ? barWidth : done * barWidth / total;
  std::string line = "[";
  line.append(filled, '#');
  line.append(barWidth - filled, '.');
  return line + "]  " + tail;
}

ProgressBar::ProgressBar(std::FILE* stream, bool enabled)
    : stream_(stream),
      enabled_(enabled),
      start_(std::chrono::steady_clock::now()) {}

void ProgressBar::update(std::size_t done, std::size_t total) {
  if (!enabled_) return;
  const double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start_)
          .count();
  const std::size_t columns = terminalColumns(stream_);
  std::string line = formatProgress(done, total, elapsed, columns);
  // Blanks over the tail of a longer earlier line, within the width.
  std::size_t width = line.size();
  if (width < width_) {
    const std::size_t room =
        columns == 0 ? width_ : std::min(width_, columns - 1);
    if (room > width) line.append(room - width, ' ');
  }
  width_ = width;
  line.insert(0, 1, '\r');
  std::fwrite(line.data(), 1, line.size(), stream_);
  std::fflush(stream_);
  drawn_ = true;
}

void ProgressBar::finish() {
  if (!drawn_) return;
  std::fputc('\n', stream_);
  std::fflush(stream_);
  drawn_ = false;
}

}  // namespace tovrin::ai::eval
