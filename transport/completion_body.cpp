#include <charconv>
#include <cmath>
#include <string>

#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {

namespace {

// Bytes written as a backslash and one letter; the other bytes below 0x20
// are written as \u00 and two lower-case hex digits.
struct ShortEscape {
  char byte;
  const char* text;
};
constexpr ShortEscape kShortEscapes[] = {
    {'\b', "\\b"}, {'\t', "\\t"}, {'\n', "\\n"},  {'\f', "\\f"},
    {'\r', "\\r"}, {'"', "\\\""}, {'\\', "\\\\"},
};

constexpr char kHexDigits[] = "0123456789abcdef";

// The output reserves this much beyond the input so that a prompt with a
// few line feeds or quotes is escaped without a reallocation.
constexpr std::size_t kEscapeSlack = 32;

// Writes value as printf's "%g" writes it in the "C" locale. to_chars is
// specified as exactly that and never looks at the global locale, so a
// game that switches to a comma decimal point cannot break the body.
// NaN and the infinities have no JSON number; "null" keeps the body
// well-formed and leaves the refusal to the server.
void appendNumber(std::string& out, float value) {
  const double widened = value;
  if (!std::isfinite(widened)) {
    out += "null";
    return;
  }
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, widened,
                                    std::chars_format::general, 6);
  out.append(buffer, result.ptr);
}

void appendDecimal(std::string& out, std::size_t value) {
  char buffer[24];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, result.ptr);
}

}  // namespace

std::string jsonEscape(const char* data, std::size_t length) {
  std::string out;
  out.reserve(length + kEscapeSlack);
  for (std::size_t i = 0; i < length; ++i) {
    const char c = data[i];
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && c != '"' && c != '\\') {
      out += c;
      continue;
    }
    const char* shortEscape = nullptr;
    for (const ShortEscape& entry : kShortEscapes) {
      if (entry.byte == c) shortEscape = entry.text;
    }
    if (shortEscape != nullptr) {
      out += shortEscape;
    } else {
      out += "\\u00";
      out += kHexDigits[byte >> 4];
      out += kHexDigits[byte & 0x0F];
    }
  }
  return out;
}

std::string jsonEscape(std::string_view text) {
  return jsonEscape(text.data(), text.size());
}

std::string buildCompletionBody(const std::string& model,
                                const std::string& systemPrompt,
                                const std::string& userPrompt,
                                float temperature, float topP,
                                std::size_t maxTokens) {
  std::string body;
  body.reserve(model.size() + systemPrompt.size() + userPrompt.size() + 256);
  body += "{\"model\":\"";
  body += jsonEscape(model);
  body += "\",\"messages\":[";
  body += "{\"role\":\"system\",\"content\":\"";
  body += jsonEscape(systemPrompt);
  body += "\"},";
  body += "{\"role\":\"user\",\"content\":\"";
  body += jsonEscape(userPrompt);
  body += "\"}],";
  body += "\"temperature\":";
  appendNumber(body, temperature);
  body += ",\"top_p\":";
  appendNumber(body, topP);
  body += ",\"max_tokens\":";
  appendDecimal(body, maxTokens);
  body += ",\"cache_prompt\":true,\"stream\":false}";
  return body;
}

}  // namespace tovrin::ai
