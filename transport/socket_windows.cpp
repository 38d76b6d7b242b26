// The socket seam on Windows: Winsock 2, WSAPoll, and a datagram socket as
// the wake signal. CMake defines WIN32_LEAN_AND_MEAN, NOMINMAX and a
// _WIN32_WINNT that has WSAPoll for this file.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <utility>

#include "socket_native.hpp"
#include "socket_platform.hpp"

namespace tovrin::ai::detail {

namespace {

SOCKET toSocket(NativeSocket handle) { return static_cast<SOCKET>(handle); }

void closeHandle(NativeSocket handle) { ::closesocket(toSocket(handle)); }

NativeSocket openSocket(int family, int type, int protocol) {
  const SOCKET s = ::socket(family, type, protocol);
  return s == INVALID_SOCKET ? kNoSocket : static_cast<NativeSocket>(s);
}

// Winsock takes the time-out as a DWORD of milliseconds.
void setTimeoutOption(const Socket& socket, int option, std::uint32_t ms) {
  const DWORD value = ms;
  ::setsockopt(toSocket(socket.native()), SOL_SOCKET, option,
               reinterpret_cast<const char*>(&value), sizeof value);
}

bool wouldBlockNow() {
  const int error = ::WSAGetLastError();
  return error == WSAEWOULDBLOCK || error == WSAEINPROGRESS;
}

bool setSocketBlocking(SOCKET s, bool blocking) {
  u_long nonBlocking = blocking ? 0 : 1;
  return ::ioctlsocket(s, FIONBIO, &nonBlocking) == 0;
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
  if (::connect(toSocket(socket.native()),
                reinterpret_cast<const sockaddr*>(address.bytes.data()),
                static_cast<int>(address.bytes.size())) == 0) {
    return Connecting::kConnected;
  }
  return wouldBlockNow() ? Connecting::kPending : Connecting::kFailed;
}

bool setBlocking(const Socket& socket, bool blocking) {
  return setSocketBlocking(toSocket(socket.native()), blocking);
}

bool connectSucceeded(const Socket& socket) {
  int error = 0;
  int length = sizeof error;
  return ::getsockopt(toSocket(socket.native()), SOL_SOCKET, SO_ERROR,
                      reinterpret_cast<char*>(&error), &length) == 0 &&
         error == 0;
}

}  // namespace native

SocketLibrary::SocketLibrary() {
  WSADATA data;
  started_ = ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

SocketLibrary::~SocketLibrary() {
  if (started_) ::WSACleanup();
}

void Socket::close() {
  if (handle_ != kNoSocket) closeHandle(std::exchange(handle_, kNoSocket));
}

void setTimeouts(const Socket& socket, std::uint32_t timeoutMs) {
  setTimeoutOption(socket, SO_RCVTIMEO, timeoutMs);
  setTimeoutOption(socket, SO_SNDTIMEO, timeoutMs);
}

// Winsock never signals a write to a closed peer; it returns an error.
std::ptrdiff_t sendSome(const Socket& socket, const char* data,
                        std::size_t length) {
  const int chunk = static_cast<int>(std::min<std::size_t>(length, INT_MAX));
  return ::send(toSocket(socket.native()), data, chunk, 0);
}

std::ptrdiff_t receiveSome(const Socket& socket, char* buffer,
                           std::size_t capacity) {
  const int chunk = static_cast<int>(std::min<std::size_t>(capacity, INT_MAX));
  return ::recv(toSocket(socket.native()), buffer, chunk, 0);
}

std::ptrdiff_t sendNow(const Socket& socket, const char* data,
                       std::size_t length) {
  const std::ptrdiff_t sent = sendSome(socket, data, length);
  return sent < 0 && ::WSAGetLastError() == WSAEWOULDBLOCK ? kWouldBlock : sent;
}

std::ptrdiff_t receiveNow(const Socket& socket, char* buffer,
                          std::size_t capacity) {
  const std::ptrdiff_t received = receiveSome(socket, buffer, capacity);
  return received < 0 && ::WSAGetLastError() == WSAEWOULDBLOCK ? kWouldBlock : received;
}

// SO_REUSEADDR on Winsock lets another process take the port over, so the
// listener keeps the default.
bool listenLoopback(std::uint16_t port, Socket& listener,
                    std::uint16_t& boundPort, int backlog) {
  Socket socket(openSocket(AF_INET, SOCK_STREAM, 0));
  if (!socket.isOpen()) return false;
  const SOCKET s = toSocket(socket.native());

  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(s, reinterpret_cast<const sockaddr*>(&address),
             sizeof address) != 0 ||
      ::listen(s, backlog < 0 ? SOMAXCONN : backlog) != 0) {
    return false;
  }
  sockaddr_in bound{};
  int length = sizeof bound;
  if (::getsockname(s, reinterpret_cast<sockaddr*>(&bound), &length) != 0) {
    return false;
  }
  boundPort = ntohs(bound.sin_port);
  listener = std::move(socket);
  return true;
}

bool waitReadable(const Socket& socket, int timeoutMs) {
  WSAPOLLFD entry{};
  entry.fd = toSocket(socket.native());
  entry.events = POLLRDNORM;
  return ::WSAPoll(&entry, 1, timeoutMs) > 0;
}

Socket acceptConnection(const Socket& listener) {
  const SOCKET s = ::accept(toSocket(listener.native()), nullptr, nullptr);
  return Socket(s == INVALID_SOCKET ? kNoSocket : static_cast<NativeSocket>(s));
}

// Winsock's linger has u_short fields and takes the option through a byte
// pointer.
void resetOnClose(const Socket& socket) {
  linger value{};
  value.l_onoff = 1;
  value.l_linger = 0;
  ::setsockopt(toSocket(socket.native()), SOL_SOCKET, SO_LINGER,
               reinterpret_cast<const char*>(&value), sizeof value);
}

// A datagram socket bound to the loopback interface and connected to
// itself: what it sends, it receives, and WSAPoll can watch it (WSAPoll
// watches sockets only, so a pipe will not do).
WakeSignal::WakeSignal() {
  if (!library_.started()) return;
  const NativeSocket handle = openSocket(AF_INET, SOCK_DGRAM, 0);
  if (handle == kNoSocket) return;
  const SOCKET s = toSocket(handle);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int length = sizeof address;
  if (::bind(s, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      ::getsockname(s, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      ::connect(s, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      !setSocketBlocking(s, false)) {
    closeHandle(handle);
    return;
  }
  readEnd_ = writeEnd_ = handle;
}

WakeSignal::~WakeSignal() {
  if (isOpen()) closeHandle(readEnd_);
}

void WakeSignal::raise() const {
  if (!isOpen()) return;
  const char byte = 1;
  ::send(toSocket(writeEnd_), &byte, 1, 0);
}

void WakeSignal::clear() const {
  if (!isOpen()) return;
  char buffer[64];
  while (::recv(toSocket(readEnd_), buffer, sizeof buffer, 0) > 0) {
  }
}

// Both sockets in one WSAPoll; a failed connection shows as POLLERR or
// POLLHUP, which are reported whether asked for or not.
WaitResult waitReady(const Socket& socket, bool forWrite,
                     std::uint32_t timeoutMs, const WakeSignal& wake) {
  WSAPOLLFD entries[2]{};
  entries[0].fd = toSocket(socket.native());
  entries[0].events = forWrite ? POLLWRNORM : POLLRDNORM;
  entries[1].fd = toSocket(wake.watched());
  entries[1].events = POLLRDNORM;
  const int timeout =
      static_cast<int>(std::min<std::uint32_t>(timeoutMs, INT_MAX));
  const int n = ::WSAPoll(entries, 2, timeout);
  if (n < 0) return WaitResult::kFailed;
  if (entries[1].revents != 0) return WaitResult::kWoken;
  return entries[0].revents != 0 ? WaitResult::kReady : WaitResult::kTimedOut;
}

}  // namespace tovrin::ai::detail
