#include <gtest/gtest.h>

#include <string>

#include "tovrin/ai/transport.hpp"
#include "testing/files.hpp"

namespace tovrin::ai {
namespace {

TEST(HttpRequest, HostLineNamesPort80WhenTheUrlHasNone) {
  EXPECT_EQ(buildHttpRequest(parseEndpoint("http://model-host"), ""),
            "POST / HTTP/1.1\r\nHost: model-host:80\r\nContent-Type: application/json\r\n"
            "Accept: application/json\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
}

// The inputs were read back from the bodies of recorded requests; our bytes
// must equal what was sent then.
TEST(HttpRequest, ReproducesRecordedRequests) {
  const std::string url = "http://127.0.0.1:17944/v1/chat/completions";
  const std::string ask = "DOTAZ HRÁČE:\nKolik je 2+2?\n\nVrať pouze finální odpověď.";
  const struct {
    const char* file;
    std::string url;
    std::string userPrompt;
    std::size_t maxTokens;
  } kCases[] = {
      {"stories-normal.request", url, ask, 80},
      {"stories-short.request", url, "DOTAZ HRÁČE:\nAhoj\n\nVrať pouze finální odpověď.", 6},
      {"stories-zero.request", url, "DOTAZ HRÁČE:\nAhoj", 0},
      {"stories-wrongpath.request", "http://127.0.0.1:17944/v1/chat/completion", ask, 80},
  };
  for (const auto& c : kCases) {
    const std::string body = buildCompletionBody(
        "Qwen2.5-1.5B-Instruct-Q8", "Jsi lokální AI modul hry. Odpovídej stručně a přirozeně česky.",
        c.userPrompt, 0.03f, 0.8f, c.maxTokens);
    EXPECT_EQ(buildHttpRequest(parseEndpoint(c.url), body), test::readTestdata(c.file)) << c.file;
  }
}

}  // namespace
}  // namespace tovrin::ai
