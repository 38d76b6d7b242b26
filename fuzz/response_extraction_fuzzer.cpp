// extractMessageContent and jsonUnescape on any bytes, and the round trip
// through jsonEscape: any text escaped into a server's answer comes back
// unchanged, except that control bytes come back as the \u00XX escapes
// jsonEscape wrote (jsonUnescape leaves \u escapes as written).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "fuzz/fuzz_support.hpp"
#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {
namespace {

constexpr const char* kNoContent =
    "AI response does not contain message.content";

// What a text looks like after escaping and unescaping, worked out without
// either function.
std::string afterRoundTrip(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool shortEscape = c == '\b' || c == '\t' || c == '\n' ||
                             c == '\f' || c == '\r';
    if (byte < 0x20 && !shortEscape) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", byte);
      out += escape;
    } else {
      out += c;
    }
  }
  return out;
}

// The answer, or the message when there is none.
std::string extracted(const std::string& body) {
  try {
    const std::string content = extractMessageContent(body);
    FUZZ_CHECK(!content.empty());
    return content;
  } catch (const std::runtime_error& error) {
    FUZZ_CHECK(std::string(error.what()) == kNoContent);
    return kNoContent;
  }
}

}  // namespace
}  // namespace tovrin::ai

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  using namespace tovrin::ai;
  const std::string input = fuzz::bytes(data, size);

  // Unescaping only ever shortens or keeps; so does extraction.
  FUZZ_CHECK(jsonUnescape(input).size() <= input.size());
  const std::string asBody = extracted(input);
  FUZZ_CHECK(asBody == kNoContent || asBody.size() <= input.size());

  const std::string expected = afterRoundTrip(input);
  const std::string escaped = jsonEscape(input);
  FUZZ_CHECK(jsonUnescape(escaped) == expected);
  const std::string body =
      "{\"choices\":[{\"message\":{\"role\":\"assistant\",\"content\":\"" +
      escaped + "\"},\"finish_reason\":\"stop\"}]}";
  FUZZ_CHECK(extracted(body) == (expected.empty() ? kNoContent : expected));
  return 0;
}
