// parseEndpoint on any bytes: either the three pieces that spell the URL
// again, or one of its two messages.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.hpp"
#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {
namespace {

constexpr std::string_view kScheme = "http://";

void checkPieces(const std::string& url, const AiEndpoint& endpoint) {
  FUZZ_CHECK(!endpoint.host.empty());
  FUZZ_CHECK(!endpoint.port.empty());
  FUZZ_CHECK(!endpoint.path.empty() && endpoint.path.front() == '/');
  FUZZ_CHECK(endpoint.host.find('/') == std::string::npos);
  FUZZ_CHECK(endpoint.port.find_first_of(":/") == std::string::npos);

  // Nothing dropped, nothing added: host, port (when written) and path put
  // together are the URL after the scheme.
  const std::string rest = url.substr(kScheme.size());
  const bool hasPath = rest.find('/') != std::string::npos;
  if (!hasPath) FUZZ_CHECK(endpoint.path == "/");
  const std::string tail = hasPath ? endpoint.path : "";
  const bool portWritten = endpoint.host + ":" + endpoint.port + tail == rest;
  const bool portDefaulted = endpoint.port == "80" &&
                             endpoint.host.find(':') == std::string::npos &&
                             endpoint.host + tail == rest;
  FUZZ_CHECK(portWritten || portDefaulted);
}

}  // namespace
}  // namespace tovrin::ai

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  using namespace tovrin::ai;
  const std::string url = fuzz::bytes(data, size);
  const bool http = url.compare(0, kScheme.size(), kScheme) == 0;
  try {
    checkPieces(url, parseEndpoint(url));
    FUZZ_CHECK(http);
  } catch (const std::runtime_error& error) {
    const std::string message = error.what();
    FUZZ_CHECK(message == (http ? "Invalid AI endpoint URL"
                                : "AI endpoint must use http://"));
  }
  return 0;
}
