#include "endpoint_check.hpp"

#include <charconv>
#include <exception>
#include <system_error>

#include "tovrin/ai/transport.hpp"

namespace tovrin::ai::eval {

namespace {

bool isHostCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
}

// The runtime hands the host to the resolver as it stands, so only a host
// name or an IPv4 address can ever be found. Empty when host is one.
std::string hostFault(const std::string& host) {
  if (host.find_first_of("[]:") != std::string::npos) {
    return "IPv6 addresses do not work: the runtime takes host names and "
           "IPv4 addresses";
  }
  if (host.find('@') != std::string::npos) {
    return "a user name does not work: everything up to the port is taken "
           "for the host";
  }
  if (host.find_first_of("?#") != std::string::npos) {
    return "a query or fragment needs a path before it (http://host:port/path)";
  }
  for (const char c : host) {
    if (!isHostCharacter(c)) {
      return "the host must be a host name or an IPv4 address (letters, "
             "digits, '.', '-', '_')";
    }
  }
  return "";
}

}  // namespace

std::string endpointFault(const std::string& url) {
  AiEndpoint endpoint;
  try {
    endpoint = parseEndpoint(url);
  } catch (const std::exception& error) {
    return error.what();
  }
  if (std::string fault = hostFault(endpoint.host); !fault.empty()) {
    return fault;
  }
  const std::string& text = endpoint.port;
  unsigned port = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size() || port < 1 ||
      port > 65535) {
    return "port must be a number from 1 to 65535";
  }
  return "";
}

}  // namespace tovrin::ai::eval

