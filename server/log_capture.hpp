// What the server writes: drained from its pipe as it comes, the last
// bytes kept in memory for the status, and everything in the game's log
// file when it names one.
#ifndef TOVRIN_AI_SERVER_LOG_CAPTURE_HPP_
#define TOVRIN_AI_SERVER_LOG_CAPTURE_HPP_

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "server/process_platform.hpp"

namespace tovrin::ai::detail {

class LogCapture {
 public:
  // Truncates file (when not empty) and keeps the last tailBytes in memory.
  // A file that cannot be written is said so in the tail.
  LogCapture(const std::filesystem::path& file, std::size_t tailBytes);

  void append(std::string_view bytes);
  // A line of the layer's own (a start, say), for the file only.
  void note(std::string_view line);

  std::string tail() const;  // at most tailBytes, the newest last
  // The last count lines of the tail without their line ends; a line cut
  // by the tail's start is left out.
  std::vector<std::string> lastLines(std::size_t count) const;

 private:
  const std::size_t limit_;
  mutable std::mutex mutex_;  // held for copies only, never for the file
  std::string held_;          // grows to twice the limit, then loses its oldest half
  bool cut_ = false;          // held_ lost bytes at its start
  std::mutex fileMutex_;
  std::ofstream file_;
};

// Reads a child's output into a log on a thread of its own until the pipe
// closes, so the child never blocks on a full pipe. Destruction waits for
// the pipe to close, at most one read slice after the child has ended.
class OutputDrain {
 public:
  OutputDrain(ChildProcess& child, LogCapture& log);
  ~OutputDrain();
  OutputDrain(const OutputDrain&) = delete;
  OutputDrain& operator=(const OutputDrain&) = delete;

  // From now on reads only what is already in the pipe, so that the
  // destructor returns within one read slice even if a writer survives.
  void finish() { finish_ = true; }

 private:
  void drain();

  ChildProcess& child_;
  LogCapture& log_;
  std::atomic<bool> finish_{false};
  std::thread thread_;
};

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVER_LOG_CAPTURE_HPP_
