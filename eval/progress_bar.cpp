#include "progress_bar.hpp"

#include <charconv>
#include <cmath>

namespace tovrin::ai::eval {

namespace {

constexpr std::size_t kBarWidth = 30;

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
                           double elapsedSeconds) {
  const std::size_t filled = total == 0 ? kBarWidth : done * kBarWidth / total;
  std::string line = "[";
  line.append(filled, '#');
  line.append(kBarWidth - filled, '.');
  line += "]  " + std::to_string(done) + "/" + std::to_string(total);
  if (done == 0 || elapsedSeconds <= 0) return line + "  - req/s  left -";
  const double rate = static_cast<double>(done) / elapsedSeconds;
  const double left = static_cast<double>(total - done) / rate;
  return line + "  " + oneDecimal(rate) + " req/s  left " + clockText(left);
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
  std::string line = "\r" + formatProgress(done, total, elapsed);
  // Blanks over the tail of a longer earlier line.
  const std::size_t width = line.size();
  if (width < width_) line.append(width_ - width, ' ');
  width_ = width;
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
