// The socket seam on Linux: BSD sockets, poll, and a pipe as the wake
// signal.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <utility>

#include "socket_native.hpp"
#include "socket_platform.hpp"

namespace tovrin::ai::detail {

namespace {

int toFd(NativeSocket handle) { return static_cast<int>(handle); }

void closeFd(NativeSocket handle) { ::close(toFd(handle)); }

// A game that starts child processes must not hand them our connection.
NativeSocket openSocket(int family, int type, int protocol) {
  const int fd = ::socket(family, type | SOCK_CLOEXEC, protocol);
  return fd < 0 ? kNoSocket : static_cast<NativeSocket>(fd);
}

void setTimeoutOption(const Socket& socket, int option, std::uint32_t ms) {
  timeval value{};
  value.tv_sec = static_cast<decltype(value.tv_sec)>(ms / 1000);
  value.tv_usec = static_cast<decltype(value.tv_usec)>((ms % 1000) * 1000);
  ::setsockopt(toFd(socket.native()), SOL_SOCKET, option, &value,
               sizeof value);
}

bool wouldBlock(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINPROGRESS;
}

struct AddressListDeleter {
  void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListDeleter>;

}  // namespace

namespace native {

bool resolveStream(const std::string& host, const std::string& port,
                   std::vector<Address>& addresses) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &first) != 0) {
    return false;
  }
  const AddressList list(first);
  for (const addrinfo* a = list.get(); a != nullptr; a = a->ai_next) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(a->ai_addr);
    addresses.push_back({a->ai_family, a->ai_socktype, a->ai_protocol,
                         {bytes, bytes + a->ai_addrlen}});
  }
  return !addresses.empty();
}

Socket openFor(const Address& address) {
  return Socket(openSocket(address.family, address.type, address.protocol));
}

Connecting connectTo(const Socket& socket, const Address& address) {
  if (::connect(toFd(socket.native()),
                reinterpret_cast<const sockaddr*>(address.bytes.data()),
                static_cast<socklen_t>(address.bytes.size())) == 0) {
    return Connecting::kConnected;
  }
  return wouldBlock(errno) ? Connecting::kPending : Connecting::kFailed;
}

bool setBlocking(const Socket& socket, bool blocking) {
  const int fd = toFd(socket.native());
  const int flags = ::fcntl(fd, F_GETFL, 0);
  return flags >= 0 &&
         ::fcntl(fd, F_SETFL,
                 blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) == 0;
}

bool connectSucceeded(const Socket& socket) {
  int error = 0;
  socklen_t length = sizeof error;
  return ::getsockopt(toFd(socket.native()), SOL_SOCKET, SO_ERROR, &error,
                      &length) == 0 &&
         error == 0;
}

}  // namespace native

SocketLibrary::SocketLibrary() : started_(true) {}

SocketLibrary::~SocketLibrary() = default;

void Socket::close() {
  if (handle_ != kNoSocket) closeFd(std::exchange(handle_, kNoSocket));
}

void setTimeouts(const Socket& socket, std::uint32_t timeoutMs) {
  setTimeoutOption(socket, SO_RCVTIMEO, timeoutMs);
  setTimeoutOption(socket, SO_SNDTIMEO, timeoutMs);
}

// MSG_NOSIGNAL: a write to a peer that has gone away fails with EPIPE
// instead of killing the game with SIGPIPE.
std::ptrdiff_t sendSome(const Socket& socket, const char* data,
                        std::size_t length) {
  for (;;) {
    const ssize_t sent =
        ::send(toFd(socket.native()), data, length, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    return sent;
  }
}

std::ptrdiff_t receiveSome(const Socket& socket, char* buffer,
                           std::size_t capacity) {
  for (;;) {
    const ssize_t received = ::recv(toFd(socket.native()), buffer, capacity, 0);
    if (received < 0 && errno == EINTR) continue;
    return received;
  }
}

std::ptrdiff_t sendNow(const Socket& socket, const char* data,
                       std::size_t length) {
  const std::ptrdiff_t sent = sendSome(socket, data, length);
  return sent < 0 && wouldBlock(errno) ? kWouldBlock : sent;
}

std::ptrdiff_t receiveNow(const Socket& socket, char* buffer,
                          std::size_t capacity) {
  const std::ptrdiff_t received = receiveSome(socket, buffer, capacity);
  return received < 0 && wouldBlock(errno) ? kWouldBlock : received;
}

bool listenLoopback(std::uint16_t port, Socket& listener,
                    std::uint16_t& boundPort, int backlog) {
  Socket socket(openSocket(AF_INET, SOCK_STREAM, 0));
  if (!socket.isOpen()) return false;
  const int fd = toFd(socket.native());
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);

  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&address),
             sizeof address) != 0 ||
      ::listen(fd, backlog < 0 ? SOMAXCONN : backlog) != 0) {
    return false;
  }
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length) != 0) {
    return false;
  }
  boundPort = ntohs(bound.sin_port);
  listener = std::move(socket);
  return true;
}

bool waitReadable(const Socket& socket, int timeoutMs) {
  pollfd entry{};
  entry.fd = toFd(socket.native());
  entry.events = POLLIN;
  return ::poll(&entry, 1, timeoutMs) > 0;
}

Socket acceptConnection(const Socket& listener) {
  for (;;) {
    const int fd = ::accept(toFd(listener.native()), nullptr, nullptr);
    if (fd < 0 && errno == EINTR) continue;
    return Socket(fd < 0 ? kNoSocket : static_cast<NativeSocket>(fd));
  }
}

void resetOnClose(const Socket& socket) {
  linger value{};
  value.l_onoff = 1;
  value.l_linger = 0;
  ::setsockopt(toFd(socket.native()), SOL_SOCKET, SO_LINGER, &value,
               sizeof value);
}

// Both ends close on exec: a child process must not hold the signal, and
// neither blocks, so that raising never waits for the waiter.
WakeSignal::WakeSignal() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
  readEnd_ = static_cast<NativeSocket>(ends[0]);
  writeEnd_ = static_cast<NativeSocket>(ends[1]);
}

WakeSignal::~WakeSignal() {
  if (!isOpen()) return;
  closeFd(readEnd_);
  closeFd(writeEnd_);
}

// A full pipe is already raised, so a failed write changes nothing.
void WakeSignal::raise() const {
  if (!isOpen()) return;
  const char byte = 1;
  while (::write(toFd(writeEnd_), &byte, 1) < 0 && errno == EINTR) {
  }
}

void WakeSignal::clear() const {
  if (!isOpen()) return;
  char buffer[64];
  for (;;) {
    const ssize_t n = ::read(toFd(readEnd_), buffer, sizeof buffer);
    if (n > 0 || (n < 0 && errno == EINTR)) continue;
    return;
  }
}

WaitResult waitReady(const Socket& socket, bool forWrite,
                     std::uint32_t timeoutMs, const WakeSignal& wake) {
  pollfd entries[2]{};
  entries[0].fd = toFd(socket.native());
  entries[0].events = forWrite ? POLLOUT : POLLIN;
  entries[1].fd = toFd(wake.watched());
  entries[1].events = POLLIN;
  const int timeout =
      static_cast<int>(std::min<std::uint32_t>(timeoutMs, INT_MAX));
  int n = 0;
  do {
    n = ::poll(entries, 2, timeout);
  } while (n < 0 && errno == EINTR);
  if (n < 0) return WaitResult::kFailed;
  if (entries[1].revents != 0) return WaitResult::kWoken;
  return entries[0].revents != 0 ? WaitResult::kReady : WaitResult::kTimedOut;
}

}  // namespace tovrin::ai::detail
