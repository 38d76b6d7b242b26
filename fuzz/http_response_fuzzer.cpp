// parseHttpResponse on any bytes a server might send before closing: the
// answer, or one of the fixed messages, with the status line copied byte
// for byte. The same bytes as a body behind an accepted head, and as a
// status line, must reach extraction and the message unchanged.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "fuzz/fuzz_support.hpp"
#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {
namespace {

constexpr const char* kMalformed = "Malformed AI HTTP response";
constexpr const char* kNoContent =
    "AI response does not contain message.content";
constexpr std::string_view kRefused = "AI endpoint returned ";

// The refusal as a caller reads it: an exception's message is a C string,
// so a status line is reported up to its first NUL byte.
std::string refusal(const std::string& statusLine) {
  const std::string message = std::string(kRefused) + statusLine;
  return message.substr(0, message.find('\0'));
}

std::string parsed(const std::string& response) {
  try {
    const std::string answer = parseHttpResponse(response);
    FUZZ_CHECK(!answer.empty());
    return "returned: " + answer;
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

std::string extracted(const std::string& body) {
  try {
    return "returned: " + extractMessageContent(body);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

void checkRawResponse(const std::string& response) {
  const std::string outcome = parsed(response);
  const std::size_t headEnd = response.find("\r\n\r\n");
  if (headEnd == std::string::npos) {
    FUZZ_CHECK(outcome == kMalformed);
    return;
  }
  const std::string statusLine = response.substr(0, response.find("\r\n"));
  if (statusLine.find(" 200 ") == std::string::npos) {
    FUZZ_CHECK(outcome == refusal(statusLine));
    return;
  }
  FUZZ_CHECK(outcome == extracted(response.substr(headEnd + 4)));
}

}  // namespace
}  // namespace tovrin::ai

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  using namespace tovrin::ai;
  const std::string input = fuzz::bytes(data, size);
  checkRawResponse(input);

  // Behind an accepted head the input is the body, whatever it holds.
  const std::string outcome = parsed("HTTP/1.1 200 OK\r\n\r\n" + input);
  FUZZ_CHECK(outcome == extracted(input));
  FUZZ_CHECK(outcome.rfind("returned: ", 0) == 0 || outcome == kNoContent);

  // As a status line (cut at its first line end) it is refused with its
  // bytes, NUL and high bytes included, unless it holds " 200 ".
  const std::string line = input.substr(0, input.find("\r\n"));
  const std::string statusOutcome =
      parsed(line + "\r\nContent-Length: 15\r\n\r\n{\"content\":\"x\"}");
  if (line.find(" 200 ") == std::string::npos) {
    FUZZ_CHECK(statusOutcome == refusal(line));
  } else {
    FUZZ_CHECK(statusOutcome == "returned: x");
  }
  return 0;
}
