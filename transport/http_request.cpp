#include <charconv>
#include <string>

#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {

std::string buildHttpRequest(const AiEndpoint& endpoint,
                             const std::string& body) {
  char length[24];
  const auto lengthEnd =
      std::to_chars(length, length + sizeof length, body.size()).ptr;

  std::string request;
  request.reserve(endpoint.path.size() + endpoint.host.size() +
                  endpoint.port.size() + body.size() + 160);
  request += "POST ";
  request += endpoint.path;
  request += " HTTP/1.1\r\nHost: ";
  request += endpoint.host;
  request += ':';
  request += endpoint.port;
  request +=
      "\r\nContent-Type: application/json\r\nAccept: application/json\r\n"
      "Connection: close\r\nContent-Length: ";
  request.append(length, lengthEnd);
  request += "\r\n\r\n";
  request += body;
  return request;
}

}  // namespace tovrin::ai
