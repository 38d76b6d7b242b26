#include "server/readiness_probe.hpp"

#include <algorithm>
#include <array>

namespace tovrin::ai::detail {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kStatusLineLimit = 1024;

std::uint32_t remainingMs(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<std::uint32_t>(std::clamp<long long>(left, 0, 0x7fffffff));
}

// False when the wait ends any other way than with the socket ready; woken
// tells the interruption apart.
bool waitFor(const Socket& socket, bool forWrite, Clock::time_point deadline, const WakeSignal& wake, bool& woken) {
  const std::uint32_t left = remainingMs(deadline);
  if (left == 0) return false;
  const WaitResult result = waitReady(socket, forWrite, left, wake);
  woken = result == WaitResult::kWoken;
  return result == WaitResult::kReady;
}

// "HTTP/1.1 200 OK": the code is the three digits after the first space.
bool isHttpStatus(const std::string& line, bool& ok) {
  const std::size_t space = line.find(' ');
  if (line.rfind("HTTP/", 0) != 0 || space == std::string::npos || line.size() < space + 4) return false;
  for (std::size_t i = space + 1; i < space + 4; ++i) {
    if (line[i] < '0' || line[i] > '9') return false;
  }
  ok = line.compare(space + 1, 3, "200") == 0;
  return true;
}

}  // namespace

Probe probeReadiness(std::uint16_t port, const std::string& path, std::chrono::milliseconds timeout,
                     const WakeSignal& wake) {
  const Clock::time_point deadline = Clock::now() + timeout;
  Probe probe;
  Socket socket;
  const std::string portText = std::to_string(port);
  switch (connectTcpWakeable("127.0.0.1", portText, std::max<std::uint32_t>(remainingMs(deadline), 1), wake, socket)) {
    case ConnectResult::kConnected:
      break;
    case ConnectResult::kInterrupted:
      probe.result = ProbeResult::kInterrupted;
      return probe;
    default:
      return probe;
  }
  const std::string request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + portText + "\r\nConnection: close\r\n\r\n";
  bool woken = false;
  for (std::size_t sent = 0; sent < request.size();) {
    std::ptrdiff_t n = 0;
    if (waitFor(socket, true, deadline, wake, woken)) n = sendSome(socket, request.data() + sent, request.size() - sent);
    if (n < 1) {
      if (woken) probe.result = ProbeResult::kInterrupted;
      return probe;
    }
    sent += static_cast<std::size_t>(n);
  }
  std::string received;
  std::array<char, 512> buffer{};
  while (received.find("\r\n") == std::string::npos && received.size() < kStatusLineLimit) {
    std::ptrdiff_t n = 0;
    if (waitFor(socket, false, deadline, wake, woken)) n = receiveSome(socket, buffer.data(), buffer.size());
    if (n < 1) {
      if (woken) probe.result = ProbeResult::kInterrupted;
      break;
    }
    received.append(buffer.data(), static_cast<std::size_t>(n));
  }
  if (probe.result == ProbeResult::kInterrupted) return probe;
  const std::size_t lineEnd = received.find("\r\n");
  if (lineEnd == std::string::npos) return probe;
  probe.statusLine = received.substr(0, lineEnd);
  bool ok = false;
  if (isHttpStatus(probe.statusLine, ok)) probe.result = ok ? ProbeResult::kReady : ProbeResult::kAnswered;
  return probe;
}

}  // namespace tovrin::ai::detail
