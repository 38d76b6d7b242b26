#include "socket_platform.hpp"

#include <algorithm>
#include <climits>
#include <memory>
#include <utility>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef _WIN32_WINNT
#define _WIN32_WINNT 0x0600  // WSAPoll
#endif
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace tovrin::ai::detail {

namespace {

#ifdef _WIN32

using PlatformSocket = SOCKET;
using AddressLength = int;

bool startLibrary() {
  WSADATA data;
  return ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

void stopLibrary() { ::WSACleanup(); }

PlatformSocket toPlatform(NativeSocket handle) {
  return static_cast<PlatformSocket>(handle);
}

void closeNative(NativeSocket handle) { ::closesocket(toPlatform(handle)); }

NativeSocket openStreamSocket(int family, int type, int protocol) {
  const SOCKET s = ::socket(family, type, protocol);
  return s == INVALID_SOCKET ? kNoSocket : static_cast<NativeSocket>(s);
}

// Winsock takes the time-out as a DWORD of milliseconds.
void setTimeoutOption(const Socket& socket, int option, std::uint32_t ms) {
  const DWORD value = ms;
  ::setsockopt(toPlatform(socket.native()), SOL_SOCKET, option,
               reinterpret_cast<const char*>(&value), sizeof value);
}

// Winsock never signals a write to a closed peer; it returns an error.
std::ptrdiff_t sendRaw(PlatformSocket s, const char* data, std::size_t length) {
  const int chunk = static_cast<int>(std::min<std::size_t>(length, INT_MAX));
  return ::send(s, data, chunk, 0);
}

std::ptrdiff_t receiveRaw(PlatformSocket s, char* buffer,
                          std::size_t capacity) {
  const int chunk = static_cast<int>(std::min<std::size_t>(capacity, INT_MAX));
  return ::recv(s, buffer, chunk, 0);
}

int pollReadable(PlatformSocket s, int timeoutMs) {
  WSAPOLLFD entry{};
  entry.fd = s;
  entry.events = POLLRDNORM;
  return ::WSAPoll(&entry, 1, timeoutMs);
}

NativeSocket acceptRaw(PlatformSocket listener) {
  const SOCKET s = ::accept(listener, nullptr, nullptr);
  return s == INVALID_SOCKET ? kNoSocket : static_cast<NativeSocket>(s);
}

// SO_REUSEADDR on Winsock lets another process take the port over; the
// default is what a test server wants there.
void allowQuickRebind(const Socket&) {}

bool setBlocking(PlatformSocket s, bool blocking) {
  u_long nonBlocking = blocking ? 0 : 1;
  return ::ioctlsocket(s, FIONBIO, &nonBlocking) == 0;
}

bool wouldBlockNow() {
  const int error = ::WSAGetLastError();
  return error == WSAEWOULDBLOCK || error == WSAEINPROGRESS;
}

int pendingError(PlatformSocket s) {
  int error = 0;
  int length = sizeof error;
  if (::getsockopt(s, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error),
                   &length) != 0) {
    return -1;
  }
  return error;
}

// Both sockets in one WSAPoll; a failed connection shows as POLLERR or
// POLLHUP, which are reported whether asked for or not.
int pollPair(PlatformSocket s, bool forWrite, PlatformSocket wake,
             int timeoutMs, bool& ready, bool& woken) {
  WSAPOLLFD entries[2]{};
  entries[0].fd = s;
  entries[0].events = forWrite ? POLLWRNORM : POLLRDNORM;
  entries[1].fd = wake;
  entries[1].events = POLLRDNORM;
  const int n = ::WSAPoll(entries, 2, timeoutMs);
  ready = entries[0].revents != 0;
  woken = entries[1].revents != 0;
  return n;
}

// A datagram socket bound to the loopback interface and connected to
// itself: what it sends, it receives, and WSAPoll can watch it.
bool openWakePair(NativeSocket& readEnd, NativeSocket& writeEnd) {
  const NativeSocket handle = openStreamSocket(AF_INET, SOCK_DGRAM, 0);
  if (handle == kNoSocket) return false;
  const PlatformSocket s = toPlatform(handle);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int length = sizeof address;
  if (::bind(s, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      ::getsockname(s, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      ::connect(s, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      !setBlocking(s, false)) {
    closeNative(handle);
    return false;
  }
  readEnd = writeEnd = handle;
  return true;
}

void closeWakePair(NativeSocket readEnd, NativeSocket) {
  closeNative(readEnd);
}

void writeWakeByte(NativeSocket writeEnd) {
  const char byte = 1;
  ::send(toPlatform(writeEnd), &byte, 1, 0);
}

void drainWake(NativeSocket readEnd) {
  char buffer[64];
  while (::recv(toPlatform(readEnd), buffer, sizeof buffer, 0) > 0) {
  }
}

#else  // POSIX

using PlatformSocket = int;
using AddressLength = socklen_t;

bool startLibrary() { return true; }

void stopLibrary() {}

PlatformSocket toPlatform(NativeSocket handle) {
  return static_cast<PlatformSocket>(handle);
}

void closeNative(NativeSocket handle) { ::close(toPlatform(handle)); }

// Where the platform has no MSG_NOSIGNAL (macOS), the socket itself is
// told not to raise SIGPIPE.
void suppressSigpipe([[maybe_unused]] int fd) {
#ifdef SO_NOSIGPIPE
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
}

NativeSocket openStreamSocket(int family, int type, int protocol) {
#ifdef SOCK_CLOEXEC
  // A game that starts child processes must not hand them our connection.
  type |= SOCK_CLOEXEC;
#endif
  const int fd = ::socket(family, type, protocol);
  if (fd < 0) return kNoSocket;
  suppressSigpipe(fd);
  return static_cast<NativeSocket>(fd);
}

void setTimeoutOption(const Socket& socket, int option, std::uint32_t ms) {
  timeval value{};
  value.tv_sec = static_cast<decltype(value.tv_sec)>(ms / 1000);
  value.tv_usec = static_cast<decltype(value.tv_usec)>((ms % 1000) * 1000);
  ::setsockopt(toPlatform(socket.native()), SOL_SOCKET, option, &value,
               sizeof value);
}

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

std::ptrdiff_t sendRaw(PlatformSocket fd, const char* data,
                       std::size_t length) {
  for (;;) {
    const ssize_t sent = ::send(fd, data, length, kSendFlags);
    if (sent < 0 && errno == EINTR) continue;
    return sent;
  }
}

std::ptrdiff_t receiveRaw(PlatformSocket fd, char* buffer,
                          std::size_t capacity) {
  for (;;) {
    const ssize_t received = ::recv(fd, buffer, capacity, 0);
    if (received < 0 && errno == EINTR) continue;
    return received;
  }
}

int pollReadable(PlatformSocket fd, int timeoutMs) {
  pollfd entry{};
  entry.fd = fd;
  entry.events = POLLIN;
  return ::poll(&entry, 1, timeoutMs);
}

NativeSocket acceptRaw(PlatformSocket listener) {
  for (;;) {
    const int fd = ::accept(listener, nullptr, nullptr);
    if (fd < 0 && errno == EINTR) continue;
    if (fd < 0) return kNoSocket;
    suppressSigpipe(fd);
    return static_cast<NativeSocket>(fd);
  }
}

void allowQuickRebind(const Socket& socket) {
  const int on = 1;
  ::setsockopt(toPlatform(socket.native()), SOL_SOCKET, SO_REUSEADDR, &on,
               sizeof on);
}

bool setBlocking(PlatformSocket fd, bool blocking) {
  const int flags = ::fcntl(fd, F_GETFL, 0);
  return flags >= 0 &&
         ::fcntl(fd, F_SETFL,
                 blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) == 0;
}

bool wouldBlockNow() {
  return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINPROGRESS;
}

int pendingError(PlatformSocket fd) {
  int error = 0;
  socklen_t length = sizeof error;
  if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return -1;
  return error;
}

int pollPair(PlatformSocket fd, bool forWrite, PlatformSocket wake,
             int timeoutMs, bool& ready, bool& woken) {
  pollfd entries[2]{};
  entries[0].fd = fd;
  entries[0].events = forWrite ? POLLOUT : POLLIN;
  entries[1].fd = wake;
  entries[1].events = POLLIN;
  int n = 0;
  do {
    n = ::poll(entries, 2, timeoutMs);
  } while (n < 0 && errno == EINTR);
  ready = entries[0].revents != 0;
  woken = entries[1].revents != 0;
  return n;
}

bool openWakePair(NativeSocket& readEnd, NativeSocket& writeEnd) {
  int ends[2];
  if (::pipe(ends) != 0) return false;
  for (const int fd : ends) {
    // Not inherited by a child process, never blocking the raiser.
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    setBlocking(fd, false);
  }
  readEnd = static_cast<NativeSocket>(ends[0]);
  writeEnd = static_cast<NativeSocket>(ends[1]);
  return true;
}

void closeWakePair(NativeSocket readEnd, NativeSocket writeEnd) {
  closeNative(readEnd);
  closeNative(writeEnd);
}

// A full pipe is already raised, so a failed write changes nothing.
void writeWakeByte(NativeSocket writeEnd) {
  const char byte = 1;
  while (::write(toPlatform(writeEnd), &byte, 1) < 0 && errno == EINTR) {
  }
}

void drainWake(NativeSocket readEnd) {
  char buffer[64];
  for (;;) {
    const ssize_t n = ::read(toPlatform(readEnd), buffer, sizeof buffer);
    if (n > 0 || (n < 0 && errno == EINTR)) continue;
    return;
  }
}

#endif

struct AddressListDeleter {
  void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListDeleter>;

}  // namespace

SocketLibrary::SocketLibrary() : started_(startLibrary()) {}

SocketLibrary::~SocketLibrary() {
  if (started_) stopLibrary();
}

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

void Socket::close() {
  if (handle_ != kNoSocket) closeNative(std::exchange(handle_, kNoSocket));
}

std::uint32_t socketTimeoutMs(std::int64_t timeoutMs) {
  const std::int64_t atLeastOne = std::max<std::int64_t>(timeoutMs, 1);
  return static_cast<std::uint32_t>(
      std::min<std::int64_t>(atLeastOne, UINT32_MAX));
}

void setTimeouts(const Socket& socket, std::uint32_t timeoutMs) {
  setTimeoutOption(socket, SO_RCVTIMEO, timeoutMs);
  setTimeoutOption(socket, SO_SNDTIMEO, timeoutMs);
}

ConnectResult connectTcp(const std::string& host, const std::string& port,
                         std::uint32_t timeoutMs, Socket& connected) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = 0;
  hints.ai_flags = 0;
  addrinfo* first = nullptr;
  if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &first) != 0) {
    return ConnectResult::kUnresolved;
  }
  const AddressList candidates(first);
  if (!candidates) return ConnectResult::kUnresolved;

  for (const addrinfo* a = candidates.get(); a != nullptr; a = a->ai_next) {
    Socket candidate(
        openStreamSocket(a->ai_family, a->ai_socktype, a->ai_protocol));
    if (!candidate.isOpen()) continue;
    setTimeouts(candidate, timeoutMs);
    if (::connect(toPlatform(candidate.native()), a->ai_addr,
                  static_cast<AddressLength>(a->ai_addrlen)) == 0) {
      connected = std::move(candidate);
      return ConnectResult::kConnected;
    }
  }
  return ConnectResult::kNotAccepted;
}

std::ptrdiff_t sendSome(const Socket& socket, const char* data,
                        std::size_t length) {
  return sendRaw(toPlatform(socket.native()), data, length);
}

std::ptrdiff_t receiveSome(const Socket& socket, char* buffer,
                           std::size_t capacity) {
  return receiveRaw(toPlatform(socket.native()), buffer, capacity);
}

bool listenLoopback(std::uint16_t port, Socket& listener,
                    std::uint16_t& boundPort, int backlog) {
  Socket socket(openStreamSocket(AF_INET, SOCK_STREAM, 0));
  if (!socket.isOpen()) return false;
  allowQuickRebind(socket);
  const PlatformSocket s = toPlatform(socket.native());

  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(s, reinterpret_cast<const sockaddr*>(&address),
             static_cast<AddressLength>(sizeof address)) != 0 ||
      ::listen(s, backlog < 0 ? SOMAXCONN : backlog) != 0) {
    return false;
  }
  sockaddr_in bound{};
  AddressLength length = sizeof bound;
  if (::getsockname(s, reinterpret_cast<sockaddr*>(&bound), &length) != 0) {
    return false;
  }
  boundPort = ntohs(bound.sin_port);
  listener = std::move(socket);
  return true;
}

bool waitReadable(const Socket& socket, int timeoutMs) {
  return pollReadable(toPlatform(socket.native()), timeoutMs) > 0;
}

Socket acceptConnection(const Socket& listener) {
  return Socket(acceptRaw(toPlatform(listener.native())));
}

// Winsock's linger has u_short fields and POSIX's int ones; both take the
// option through a byte pointer.
void resetOnClose(const Socket& socket) {
  linger value{};
  value.l_onoff = 1;
  value.l_linger = 0;
  ::setsockopt(toPlatform(socket.native()), SOL_SOCKET, SO_LINGER,
               reinterpret_cast<const char*>(&value),
               static_cast<AddressLength>(sizeof value));
}

WakeSignal::WakeSignal() {
  if (!library_.started() || !openWakePair(readEnd_, writeEnd_)) {
    readEnd_ = writeEnd_ = kNoSocket;
  }
}

WakeSignal::~WakeSignal() {
  if (isOpen()) closeWakePair(readEnd_, writeEnd_);
}

void WakeSignal::raise() const {
  if (isOpen()) writeWakeByte(writeEnd_);
}

void WakeSignal::clear() const {
  if (isOpen()) drainWake(readEnd_);
}

WaitResult waitReady(const Socket& socket, bool forWrite,
                     std::uint32_t timeoutMs, const WakeSignal& wake) {
  bool ready = false;
  bool woken = false;
  const int timeout =
      static_cast<int>(std::min<std::uint32_t>(timeoutMs, INT_MAX));
  const int n = pollPair(toPlatform(socket.native()), forWrite,
                         toPlatform(wake.watched()), timeout, ready, woken);
  if (n < 0) return WaitResult::kFailed;
  if (woken) return WaitResult::kWoken;
  return ready ? WaitResult::kReady : WaitResult::kTimedOut;
}

ConnectResult connectTcpWakeable(const std::string& host,
                                 const std::string& port,
                                 std::uint32_t timeoutMs,
                                 const WakeSignal& wake, Socket& connected) {
  if (!wake.isOpen()) return ConnectResult::kNotAccepted;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &first) != 0) {
    return ConnectResult::kUnresolved;
  }
  const AddressList candidates(first);
  if (!candidates) return ConnectResult::kUnresolved;

  for (const addrinfo* a = candidates.get(); a != nullptr; a = a->ai_next) {
    Socket candidate(
        openStreamSocket(a->ai_family, a->ai_socktype, a->ai_protocol));
    if (!candidate.isOpen()) continue;
    setTimeouts(candidate, timeoutMs);
    const PlatformSocket s = toPlatform(candidate.native());
    if (!setBlocking(s, false)) continue;
    if (::connect(s, a->ai_addr, static_cast<AddressLength>(a->ai_addrlen)) !=
        0) {
      if (!wouldBlockNow()) continue;
      const WaitResult waited = waitReady(candidate, true, timeoutMs, wake);
      if (waited == WaitResult::kWoken) return ConnectResult::kInterrupted;
      if (waited != WaitResult::kReady || pendingError(s) != 0) continue;
    }
    // Blocking again, so that every send and receive is the same call as in
    // connectTcp's exchange; only the wait in front of it differs.
    if (!setBlocking(s, true)) continue;
    connected = std::move(candidate);
    return ConnectResult::kConnected;
  }
  return ConnectResult::kNotAccepted;
}

}  // namespace tovrin::ai::detail
