#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>

#include "testing/row_name.hpp"
#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {
namespace {

struct SplitCase {
  const char* name;
  const char* url;
  const char* host;
  const char* port;
  const char* path;
};

void PrintTo(const SplitCase& row, std::ostream* out) { *out << row.name; }

constexpr SplitCase kSplitCases[] = {
    {"DefaultEndpoint", "http://127.0.0.1:17944/v1/chat/completions",
     "127.0.0.1", "17944", "/v1/chat/completions"},
    {"HostOnly", "http://model-host", "model-host", "80", "/"},
    {"NoPortKeepsQuery", "http://model-host/v1/chat/completions?x=1",
     "model-host", "80", "/v1/chat/completions?x=1"},
    {"LastColonSplits", "http://model-host:1:2/p", "model-host:1", "2", "/p"},
    {"PortWithoutPath", "http://model-host:8080", "model-host", "8080", "/"},
    {"SlashAloneIsThePath", "http://model-host/", "model-host", "80", "/"},
    {"QuestionMarkBeforeSlashStaysInHost", "http://h?x=1", "h?x=1", "80", "/"},
    {"ColonInPathIsNotAPort", "http://h/a:b", "h", "80", "/a:b"},
    {"NonNumericPortAccepted", "http://h:abc/", "h", "abc", "/"},
    {"UserInfoStaysInHost", "http://user@h:81/", "user@h", "81", "/"},
    {"BracketsStayInHost", "http://[::1]:8080/v1", "[::1]", "8080", "/v1"},
    {"FragmentAndBlanksKept", "http:// h :9/a b#frag", " h ", "9", "/a b#frag"},
    {"PercentNotDecoded", "http://h%41/%20", "h%41", "80", "/%20"},
};

class EndpointSplitTest : public ::testing::TestWithParam<SplitCase> {};

TEST_P(EndpointSplitTest, SplitsHostPortAndPath) {
  const SplitCase& c = GetParam();
  const AiEndpoint endpoint = parseEndpoint(c.url);
  EXPECT_EQ(endpoint.host, c.host);
  EXPECT_EQ(endpoint.port, c.port);
  EXPECT_EQ(endpoint.path, c.path);
}

INSTANTIATE_TEST_SUITE_P(Urls, EndpointSplitTest,
                         ::testing::ValuesIn(kSplitCases), test::RowName());

struct RefusedCase {
  const char* name;
  const char* url;
  const char* message;
};

void PrintTo(const RefusedCase& row, std::ostream* out) { *out << row.name; }

constexpr RefusedCase kRefusedCases[] = {
    {"Empty", "", "AI endpoint must use http://"},
    {"ShorterThanScheme", "http:/", "AI endpoint must use http://"},
    {"Https", "https://h:443/", "AI endpoint must use http://"},
    {"UpperCaseScheme", "HTTP://h:80/", "AI endpoint must use http://"},
    {"LeadingBlank", " http://h:80/", "AI endpoint must use http://"},
    {"SchemeAlone", "http://", "Invalid AI endpoint URL"},
    {"SlashRightAfterScheme", "http:///v1", "Invalid AI endpoint URL"},
    {"PortWithoutHost", "http://:8080", "Invalid AI endpoint URL"},
    {"EmptyPortBeforePath", "http://h:/v1", "Invalid AI endpoint URL"},
    {"EmptyPortAtEnd", "http://h:", "Invalid AI endpoint URL"},
};

class EndpointRefusedTest : public ::testing::TestWithParam<RefusedCase> {};

TEST_P(EndpointRefusedTest, ThrowsItsMessage) {
  const RefusedCase& c = GetParam();
  try {
    parseEndpoint(c.url);
    ADD_FAILURE() << "no exception for " << c.url;
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), c.message);
  }
}

INSTANTIATE_TEST_SUITE_P(Urls, EndpointRefusedTest,
                         ::testing::ValuesIn(kRefusedCases), test::RowName());

}  // namespace
}  // namespace tovrin::ai
