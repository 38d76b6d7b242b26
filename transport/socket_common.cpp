// The parts of the socket seam that are the same on every platform: the
// owning handle, the time-out rule and the loop over resolved addresses.
#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "socket_native.hpp"
#include "socket_platform.hpp"

namespace tovrin::ai::detail {

namespace {

// Both connects: each candidate in the resolver's order gets the time-outs
// before connecting. With wake, the socket never blocks, from the connect
// on, and the connect's wait is waitReady's; without, it is one blocking
// call.
ConnectResult connectFirst(const std::string& host, const std::string& port,
                           std::uint32_t timeoutMs, const WakeSignal* wake,
                           Socket& connected) {
  std::vector<native::Address> candidates;
  if (!native::resolveStream(host, port, candidates)) {
    return ConnectResult::kUnresolved;
  }
  for (const native::Address& address : candidates) {
    Socket candidate = native::openFor(address);
    if (!candidate.isOpen()) continue;
    setTimeouts(candidate, timeoutMs);
    if (wake != nullptr && !native::setBlocking(candidate, false)) continue;
    switch (native::connectTo(candidate, address)) {
      case native::Connecting::kConnected:
        break;
      case native::Connecting::kFailed:
        continue;
      case native::Connecting::kPending: {
        if (wake == nullptr) continue;
        const WaitResult waited = waitReady(candidate, true, timeoutMs, *wake);
        if (waited == WaitResult::kWoken) return ConnectResult::kInterrupted;
        if (waited != WaitResult::kReady ||
            !native::connectSucceeded(candidate)) {
          continue;
        }
        break;
      }
    }
    connected = std::move(candidate);
    return ConnectResult::kConnected;
  }
  return ConnectResult::kNotAccepted;
}

}  // namespace

Socket::Socket(Socket&& other) noexcept
    : handle_(std::exchange(other.handle_, kNoSocket)) {}

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    close();
    handle_ = std::exchange(other.handle_, kNoSocket);
  }
  return *this;
}

Socket::~Socket() { close(); }

std::uint32_t socketTimeoutMs(std::int64_t timeoutMs) {
  const std::int64_t atLeastOne = std::max<std::int64_t>(timeoutMs, 1);
  return static_cast<std::uint32_t>(
      std::min<std::int64_t>(atLeastOne, UINT32_MAX));
}

ConnectResult connectTcp(const std::string& host, const std::string& port,
                         std::uint32_t timeoutMs, Socket& connected) {
  return connectFirst(host, port, timeoutMs, nullptr, connected);
}

ConnectResult connectTcpWakeable(const std::string& host,
                                 const std::string& port,
                                 std::uint32_t timeoutMs,
                                 const WakeSignal& wake, Socket& connected) {
  if (!wake.isOpen()) return ConnectResult::kNotAccepted;
  return connectFirst(host, port, timeoutMs, &wake, connected);
}

}  // namespace tovrin::ai::detail
