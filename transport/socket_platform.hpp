// The platform seam of the transport: the few socket calls it makes, on
// Winsock 2 (socket_windows.cpp) or on Linux sockets (socket_posix.cpp),
// which CMake picks, and the portable rest (socket_common.cpp). Nothing
// else in the project includes a system socket header or tests for a
// platform.
#ifndef TOVRIN_AI_TRANSPORT_SOCKET_PLATFORM_HPP_
#define TOVRIN_AI_TRANSPORT_SOCKET_PLATFORM_HPP_

#include <cstddef>
#include <cstdint>
#include <string>

namespace tovrin::ai::detail {

// Wide enough for a Winsock SOCKET and a POSIX descriptor alike. Both
// platforms' "no socket" values (INVALID_SOCKET, -1) convert to all ones.
using NativeSocket = std::uintptr_t;
inline constexpr NativeSocket kNoSocket = ~NativeSocket{0};

// Keeps the socket library started while it lives: WSAStartup 2.2 on
// construction and, only when that succeeded, WSACleanup on destruction.
// Elsewhere there is nothing to start and started() is always true.
class SocketLibrary {
 public:
  SocketLibrary();
  ~SocketLibrary();
  SocketLibrary(const SocketLibrary&) = delete;
  SocketLibrary& operator=(const SocketLibrary&) = delete;

  bool started() const { return started_; }

 private:
  bool started_ = false;
};

// Owns one socket and closes it exactly once: on close() or on
// destruction, whichever comes first.
class Socket {
 public:
  Socket() = default;
  explicit Socket(NativeSocket handle) : handle_(handle) {}
  Socket(Socket&& other) noexcept;
  Socket& operator=(Socket&& other) noexcept;
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  bool isOpen() const { return handle_ != kNoSocket; }
  NativeSocket native() const { return handle_; }
  void close();

 private:
  NativeSocket handle_ = kNoSocket;
};

// The per-call time-out handed to the socket options: max(timeoutMs, 1),
// then limited to what 32 bits of milliseconds can hold. There is no way
// to ask for "no time-out".
std::uint32_t socketTimeoutMs(std::int64_t timeoutMs);

enum class ConnectResult {
  kConnected,    // connected holds the open socket
  kUnresolved,   // the resolver failed or returned no address
  kNotAccepted,  // no address accepted the connection
  kInterrupted,  // the wake signal was raised while connecting
};

// Resolves host and port (any family, stream sockets) and connects to the
// first address, in the resolver's order, that accepts. The receive and
// send time-outs are set on each candidate before connecting; refused
// candidates are closed before the next one is tried. The name lookup
// (getaddrinfo) blocks for as long as the system's resolver takes.
ConnectResult connectTcp(const std::string& host, const std::string& port,
                         std::uint32_t timeoutMs, Socket& connected);

// Sets the receive, then the send time-out of socket. Failures are ignored:
// the exchange still works, only without the bound.
void setTimeouts(const Socket& socket, std::uint32_t timeoutMs);

// One send call: the number of bytes taken, or 0 or less on failure or
// time-out. A peer that has gone away gives a failure, never a signal.
std::ptrdiff_t sendSome(const Socket& socket, const char* data,
                        std::size_t length);

// One receive call: the number of bytes read, 0 when the peer has closed,
// below 0 on failure or time-out.
std::ptrdiff_t receiveSome(const Socket& socket, char* buffer,
                           std::size_t capacity);

// The listening side, used by the loopback test server. Listens on
// 127.0.0.1 at port (0 for any free one) and reports the port bound. The
// backlog is the system's largest unless given (0 fills at the first
// connection not accepted, for tests of connecting).
inline constexpr int kLargestBacklog = -1;
bool listenLoopback(std::uint16_t port, Socket& listener,
                    std::uint16_t& boundPort, int backlog = kLargestBacklog);

// True when socket has something to read (for a listener: a connection to
// accept) or an error pending, within timeoutMs.
bool waitReadable(const Socket& socket, int timeoutMs);

// The next pending connection of listener; not open on failure.
Socket acceptConnection(const Socket& listener);

// Makes closing socket abort the connection: the peer gets a reset instead
// of an orderly end (SO_LINGER on, zero seconds). For the test server's
// hostile answers.
void resetOnClose(const Socket& socket);

// ---- Wakeable waits ------------------------------------------------------
//
// A blocked exchange that another thread can end at once. The socket is
// only ever used and closed by the thread that waits on it; the other thread
// touches nothing but the wake signal, so an interruption can never close a
// descriptor twice or use one after it is closed. The socket never blocks:
// every call moves what it can at once, and the only waits are waitReady's,
// which watch the signal. Only the name lookup cannot be woken.

// A signal that waits watch beside their socket: a non-blocking pipe on
// POSIX, a datagram socket connected to itself on Winsock (WSAPoll watches
// sockets only). Raised, it stays raised until clear(). raise() may run on
// any thread while another waits; the owner keeps the signal alive until
// both are done.
class WakeSignal {
 public:
  WakeSignal();   // isOpen() is false when the descriptors cannot be made
  ~WakeSignal();  // closes both ends exactly once
  WakeSignal(const WakeSignal&) = delete;
  WakeSignal& operator=(const WakeSignal&) = delete;

  bool isOpen() const { return readEnd_ != kNoSocket; }
  void raise() const;  // makes every wait return kWoken until clear()
  void clear() const;  // consumes every raise so far
  NativeSocket watched() const { return readEnd_; }  // what waits poll

 private:
  SocketLibrary library_;  // first: started before the ends exist
  NativeSocket readEnd_ = kNoSocket;
  NativeSocket writeEnd_ = kNoSocket;  // the same socket on Winsock
};

enum class WaitResult {
  kReady,     // the socket can be read (written), or has an error pending
  kTimedOut,  // timeoutMs passed first
  kWoken,     // the signal is raised (wins over a ready socket)
  kFailed,    // the wait itself failed
};

// Waits until socket can be read (written when forWrite), wake is raised or
// timeoutMs pass.
WaitResult waitReady(const Socket& socket, bool forWrite,
                     std::uint32_t timeoutMs, const WakeSignal& wake);

// connectTcp for a wakeable exchange: the same resolver, order, time-outs
// and failures, but each candidate connects without blocking and waits with
// waitReady, at most timeoutMs. kInterrupted when woken, before or while
// connecting; the lookup before it is not watched. The connected socket
// stays non-blocking: use sendNow and receiveNow on it.
ConnectResult connectTcpWakeable(const std::string& host,
                                 const std::string& port,
                                 std::uint32_t timeoutMs,
                                 const WakeSignal& wake, Socket& connected);

// What sendNow and receiveNow return when the socket can take or give
// nothing yet: wait with waitReady, then call again.
inline constexpr std::ptrdiff_t kWouldBlock = -2;

// sendSome on a non-blocking socket: the bytes taken at once (as many as
// fit), kWouldBlock when none fit, -1 on failure. Never waits.
std::ptrdiff_t sendNow(const Socket& socket, const char* data,
                       std::size_t length);

// receiveSome on a non-blocking socket: the bytes read at once, 0 when the
// peer has closed, kWouldBlock when nothing has arrived, -1 on failure.
// Never waits.
std::ptrdiff_t receiveNow(const Socket& socket, char* buffer,
                          std::size_t capacity);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_TRANSPORT_SOCKET_PLATFORM_HPP_
