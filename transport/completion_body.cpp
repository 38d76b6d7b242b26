#include <charconv>
#include <cmath>
#include <string>

#include "runtime/byte_classes.hpp"
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

// The body reserves its fixed members and this share of the prompts again,
// so that prompts with a line feed every few words fit at once.
constexpr std::size_t kBodyFixedBytes = 256;
constexpr std::size_t kBodyEscapeShare = 16;

// Runs of plain text are found a block at a time and copied whole.
bool needsEscape(unsigned char byte) {
  return byte < 0x20 || byte == '"' || byte == '\\';
}

// How many bytes from data on need no escape.
std::size_t plainRun(const char* data, std::size_t length) {
  // A lambda, not the function's address, so that the test inlines and
  // each block vectorises.
  return detail::findFirstByte(
      data, 0, length, [](unsigned char byte) { return needsEscape(byte); });
}

void appendEscape(std::string& out, char c) {
  for (const ShortEscape& entry : kShortEscapes) {
    if (entry.byte == c) {
      out += entry.text;
      return;
    }
  }
  const auto byte = static_cast<unsigned char>(c);
  out += "\\u00";
  out += kHexDigits[byte >> 4];
  out += kHexDigits[byte & 0x0F];
}

// Appends the escaped bytes to out, so that the body needs no temporary
// string per text.
void appendJsonEscaped(std::string& out, const char* data, std::size_t length) {
  std::size_t i = 0;
  while (i < length) {
    const std::size_t run = plainRun(data + i, length - i);
    out.append(data + i, run);
    i += run;
    if (i < length) appendEscape(out, data[i++]);
  }
}

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
  appendJsonEscaped(out, data, length);
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
  const std::size_t texts =
      model.size() + systemPrompt.size() + userPrompt.size();
  std::string body;
  body.reserve(texts + texts / kBodyEscapeShare + kBodyFixedBytes);
  body += "{\"model\":\"";
  appendJsonEscaped(body, model.data(), model.size());
  body += "\",\"messages\":[";
  body += "{\"role\":\"system\",\"content\":\"";
  appendJsonEscaped(body, systemPrompt.data(), systemPrompt.size());
  body += "\"},";
  body += "{\"role\":\"user\",\"content\":\"";
  appendJsonEscaped(body, userPrompt.data(), userPrompt.size());
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
