#include "server/log_capture.hpp"

#include <algorithm>
#include <array>

namespace tovrin::ai::detail {

namespace {

constexpr int kReadSliceMs = 50;
// Once asked to finish, what is already in the pipe is read, up to this
// many reads: a process that escaped the kill and keeps writing must not
// hold the drain.
constexpr int kFinalReads = 16;

}  // namespace

LogCapture::LogCapture(const std::filesystem::path& file, std::size_t tailBytes) : limit_(tailBytes) {
  if (file.empty()) return;
  file_.open(file, std::ios::binary | std::ios::trunc);
  const std::u8string name = file.u8string();
  if (!file_) append("[tovrin-ai] cannot write the log file " + std::string(name.begin(), name.end()) + "\n");
}

void LogCapture::append(std::string_view bytes) {
  {
    const std::lock_guard<std::mutex> lock(fileMutex_);
    if (file_.is_open()) file_.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush();
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  held_.append(bytes);
  if (held_.size() > 2 * limit_) {
    held_.erase(0, held_.size() - limit_);
    cut_ = true;
  }
}

void LogCapture::note(std::string_view line) {
  const std::lock_guard<std::mutex> lock(fileMutex_);
  if (file_.is_open()) (file_ << line << '\n').flush();
}

std::string LogCapture::tail() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return held_.size() > limit_ ? held_.substr(held_.size() - limit_) : held_;
}

std::vector<std::string> LogCapture::lastLines(std::size_t count) const {
  std::string text;
  bool cut;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    cut = cut_ || held_.size() > limit_;
    text = cut ? held_.substr(held_.size() - std::min(limit_, held_.size())) : held_;
  }
  std::vector<std::string> lines;
  std::size_t end = text.size();
  if (end > 0 && text[end - 1] == '\n') --end;
  while (lines.size() < count && end > 0) {
    const std::size_t start = text.rfind('\n', end - 1);
    if (start == std::string::npos && cut) break;
    const std::size_t from = start == std::string::npos ? 0 : start + 1;
    std::string line = text.substr(from, end - from);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(std::move(line));
    if (start == std::string::npos) break;
    end = start;
  }
  return {lines.rbegin(), lines.rend()};
}

OutputDrain::OutputDrain(ChildProcess& child, LogCapture& log)
    : child_(child), log_(log), thread_([this] { drain(); }) {}

OutputDrain::~OutputDrain() {
  finish_ = true;
  thread_.join();
}

void OutputDrain::drain() try {
  std::array<char, 64 * 1024> buffer{};
  for (int finalReads = 0;;) {
    const bool finishing = finish_;
    const std::ptrdiff_t n = readOutput(child_, buffer.data(), buffer.size(), finishing ? 0 : kReadSliceMs);
    if (n < 0) return;
    if (n > 0) log_.append(std::string_view(buffer.data(), static_cast<std::size_t>(n)));
    if (finishing && (n == 0 || ++finalReads >= kFinalReads)) return;
  }
} catch (const std::exception&) {
  // Out of memory for the log: the server's output is lost, not the game.
}

}  // namespace tovrin::ai::detail
