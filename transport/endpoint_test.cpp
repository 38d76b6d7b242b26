#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {
namespace {

// "host port path" of the split, or the message of the refusal.
std::string split(const std::string& url) {
  try {
    const AiEndpoint endpoint = parseEndpoint(url);
    return endpoint.host + " " + endpoint.port + " " + endpoint.path;
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

TEST(ParseEndpoint, Cases) {
  const struct {
    const char* name;
    const char* url;
    const char* expected;
  } kCases[] = {
      {"default_endpoint", "http://127.0.0.1:17944/v1/chat/completions", "127.0.0.1 17944 /v1/chat/completions"},
      {"host_only", "http://model-host", "model-host 80 /"},
      {"no_port_keeps_query", "http://model-host/v1/chat/completions?x=1", "model-host 80 /v1/chat/completions?x=1"},
      {"last_colon_splits", "http://model-host:1:2/p", "model-host:1 2 /p"},
      {"port_without_path", "http://model-host:8080", "model-host 8080 /"},
      {"question_mark_before_slash_stays_in_host", "http://h?x=1", "h?x=1 80 /"},
      {"colon_in_path_is_not_a_port", "http://h/a:b", "h 80 /a:b"},
      {"non_numeric_port_accepted", "http://h:abc/", "h abc /"},
      {"brackets_and_user_stay_in_host", "http://u@[::1]:8080/v1", "u@[::1] 8080 /v1"},
      {"blanks_fragment_percent_kept", "http:// h%41 :9/a b#frag", " h%41  9 /a b#frag"},
      {"empty", "", "AI endpoint must use http://"},
      {"shorter_than_scheme", "http:/", "AI endpoint must use http://"},
      {"https", "https://h:443/", "AI endpoint must use http://"},
      {"upper_case_scheme", "HTTP://h:80/", "AI endpoint must use http://"},
      {"leading_blank", " http://h:80/", "AI endpoint must use http://"},
      {"scheme_alone", "http://", "Invalid AI endpoint URL"},
      {"slash_right_after_scheme", "http:///v1", "Invalid AI endpoint URL"},
      {"port_without_host", "http://:8080", "Invalid AI endpoint URL"},
      {"empty_port_before_path", "http://h:/v1", "Invalid AI endpoint URL"},
      {"empty_port_at_end", "http://h:", "Invalid AI endpoint URL"},
  };
  for (const auto& c : kCases) EXPECT_EQ(split(c.url), c.expected) << c.name;
}

}  // namespace
}  // namespace tovrin::ai
