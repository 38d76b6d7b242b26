// Endpoints the runtime could never reach, found before the first call.
#ifndef TOVRIN_AI_EVAL_ENDPOINT_CHECK_HPP_
#define TOVRIN_AI_EVAL_ENDPOINT_CHECK_HPP_

#include <string>

namespace tovrin::ai::eval {

// Why url can never work as the runtime's endpoint, or "" when it can. The
// runtime parses it with parseEndpoint and hands the host and port to the
// system's resolver as they stand, so beyond what the parser refuses, only
// a host name or an IPv4 address and a port from 1 to 65535 can ever be
// reached: brackets (an IPv6 address), '@', '?', blanks and any other byte
// outside a host name never resolve, and each gets a reason of its own.
std::string endpointFault(const std::string& url);

}  // namespace tovrin::ai::eval

#endif  // TOVRIN_AI_EVAL_ENDPOINT_CHECK_HPP_
