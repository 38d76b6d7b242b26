#include <stdexcept>
#include <string>

#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {

namespace {

constexpr std::string_view kScheme = "http://";
constexpr const char* kWrongScheme = "AI endpoint must use http://";
constexpr const char* kInvalidUrl = "Invalid AI endpoint URL";
constexpr const char* kDefaultPort = "80";

}  // namespace

AiEndpoint parseEndpoint(const std::string& url) {
  if (url.size() < kScheme.size() ||
      url.compare(0, kScheme.size(), kScheme) != 0) {
    throw std::runtime_error(kWrongScheme);
  }
  const std::size_t slash = url.find('/', kScheme.size());
  const std::size_t authorityEnd =
      slash == std::string::npos ? url.size() : slash;
  const std::string authority =
      url.substr(kScheme.size(), authorityEnd - kScheme.size());

  AiEndpoint endpoint;
  // The last colon splits, so "h:1:2" keeps "h:1" as the host; an IPv6
  // literal is not recognised and fails later at resolution.
  const std::size_t colon = authority.rfind(':');
  if (colon == std::string::npos) {
    endpoint.host = authority;
    endpoint.port = kDefaultPort;
  } else {
    endpoint.host = authority.substr(0, colon);
    endpoint.port = authority.substr(colon + 1);
  }
  endpoint.path = slash == std::string::npos ? "/" : url.substr(slash);
  if (endpoint.host.empty() || endpoint.port.empty()) {
    throw std::runtime_error(kInvalidUrl);
  }
  return endpoint;
}

}  // namespace tovrin::ai
