#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {

namespace {

constexpr std::string_view kContentKey = "\"content\"";

// The letter after a backslash and the byte it stands for.
struct SimpleEscape {
  char letter;
  char byte;
};
constexpr SimpleEscape kSimpleEscapes[] = {
    {'"', '"'},  {'\\', '\\'}, {'/', '/'},  {'b', '\b'},
    {'f', '\f'}, {'n', '\n'},  {'r', '\r'}, {'t', '\t'},
};

constexpr const char* kNoContent =
    "AI response does not contain message.content";

// isspace of the "C" locale, spelled out so that the global locale never
// matters.
bool isJsonSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' ||
         c == '\r';
}

// The end of the JSON string whose contents begin at pos: its first double
// quote not escaped by a backslash, or the end of text when it has none. A
// backslash escapes the byte after it, whatever that is. Jumps from one
// quote or backslash to the next, never looking at a byte twice.
std::size_t stringEnd(std::string_view text, std::size_t pos) {
  std::size_t quote = text.find('"', pos);
  for (;;) {
    const std::size_t limit = quote == std::string_view::npos ? text.size()
                                                              : quote;
    const std::size_t backslash = text.substr(0, limit).find('\\', pos);
    if (backslash == std::string_view::npos) return limit;
    pos = backslash + 2;
    if (pos >= text.size()) return text.size();
    if (quote != std::string_view::npos && quote < pos) {
      quote = text.find('"', pos);
    }
  }
}

}  // namespace

// No JSON parser: the key is found by its text and, of several string
// values, the last decides. Every search starts where the previous one
// stopped, so the scan stays linear however the body is shaped.
std::string extractMessageContent(const std::string& body) {
  const std::string_view text = body;
  std::string result;
  std::size_t key = text.find(kContentKey);
  while (key != std::string_view::npos) {
    const std::size_t start = key + kContentKey.size();
    if (start >= text.size()) break;
    std::size_t pos = text.find(':', start);
    if (pos == std::string_view::npos) break;
    ++pos;
    while (pos < text.size() && isJsonSpace(text[pos])) ++pos;
    if (pos >= text.size() || text[pos] != '"') {
      key = text.find(kContentKey, pos);
      continue;
    }
    const std::size_t rawStart = pos + 1;
    pos = stringEnd(text, rawStart);
    result = jsonUnescape(text.substr(rawStart, pos - rawStart));
    key = text.find(kContentKey, pos);
  }
  if (result.empty()) throw std::runtime_error(kNoContent);
  return result;
}

// A \u escape stays as written: the answer goes to a game that shows UTF-8
// as it comes, and the servers in use send non-ASCII text raw.
std::string jsonUnescape(const char* data, std::size_t length) {
  const std::string_view raw(data, length);
  std::string out;
  out.reserve(length);
  std::size_t i = 0;
  while (i < length) {
    // Text up to the next backslash is copied whole.
    const std::size_t backslash = std::min(raw.find('\\', i), length);
    out.append(data + i, backslash - i);
    i = backslash;
    if (i + 1 >= length) break;
    const char escape = data[i + 1];
    i += 2;
    if (escape == 'u') {
      // A cut-off \u loses its two bytes; what follows is plain text.
      if (length - i >= 4) {
        out.append(data + i - 2, 6);
        i += 4;
      }
      continue;
    }
    // An escape letter outside the table stands for itself.
    char resolved = escape;
    for (const SimpleEscape& entry : kSimpleEscapes) {
      if (entry.letter == escape) resolved = entry.byte;
    }
    out += resolved;
  }
  return out;
}

std::string jsonUnescape(std::string_view raw) {
  return jsonUnescape(raw.data(), raw.size());
}

}  // namespace tovrin::ai
