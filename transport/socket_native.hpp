// What each platform's socket file (socket_posix.cpp, socket_windows.cpp)
// gives socket_common.cpp, so that the connect loop both exchanges share
// needs no system header. Nothing outside those three files includes it.
#ifndef TOVRIN_AI_TRANSPORT_SOCKET_NATIVE_HPP_
#define TOVRIN_AI_TRANSPORT_SOCKET_NATIVE_HPP_

#include <string>
#include <vector>

#include "socket_platform.hpp"

namespace tovrin::ai::detail::native {

// One address the resolver gave, copied out of its list.
struct Address {
  int family = 0;
  int type = 0;
  int protocol = 0;
  std::vector<unsigned char> bytes;  // the sockaddr, as long as its family's
};

// The addresses of host and port (any family, stream sockets) in the
// resolver's order; false when the resolver fails or gives none. The name
// lookup blocks and nothing can wake it.
bool resolveStream(const std::string& host, const std::string& port,
                   std::vector<Address>& addresses);

// A socket of address's family, type and protocol; not open on failure.
Socket openFor(const Address& address);

enum class Connecting {
  kConnected,  // the connection is made
  kPending,    // still connecting: a non-blocking socket's usual answer
  kFailed,     // refused, unreachable or otherwise failed
};

// One connect call of socket to address.
Connecting connectTo(const Socket& socket, const Address& address);

// Switches socket between blocking and non-blocking calls; false on failure.
bool setBlocking(const Socket& socket, bool blocking);

// Whether a connect that was pending, and that a wait found ready, made the
// connection (no error pending on socket).
bool connectSucceeded(const Socket& socket);

}  // namespace tovrin::ai::detail::native

#endif  // TOVRIN_AI_TRANSPORT_SOCKET_NATIVE_HPP_
