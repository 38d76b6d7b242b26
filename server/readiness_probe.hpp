// One readiness check: a GET of the health path on 127.0.0.1, bounded in
// time and ended at once by a wake signal.
#ifndef TOVRIN_AI_SERVER_READINESS_PROBE_HPP_
#define TOVRIN_AI_SERVER_READINESS_PROBE_HPP_

#include <chrono>
#include <cstdint>
#include <string>

#include "transport/socket_platform.hpp"

namespace tovrin::ai::detail {

enum class ProbeResult {
  kReady,        // the status line said 200
  kAnswered,     // an HTTP status other than 200 (llama-server: 503 while loading)
  kNoAnswer,     // refused, closed, not HTTP, or nothing within the time-out
  kInterrupted,  // the wake signal was raised
};

struct Probe {
  ProbeResult result = ProbeResult::kNoAnswer;
  std::string statusLine;  // as received, without its line end
};

// Connects to 127.0.0.1:port, sends "GET path HTTP/1.1" asking the server
// to close, and reads up to the end of the status line. The whole probe,
// connect included, takes at most timeout.
Probe probeReadiness(std::uint16_t port, const std::string& path, std::chrono::milliseconds timeout,
                     const WakeSignal& wake);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVER_READINESS_PROBE_HPP_
