#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "testing/files.hpp"
#include "tovrin/ai/transport.hpp"

namespace tovrin::ai {
namespace {

// The parts of the split, each between < and >, or the message of the
// refusal.
std::string split(const std::string& url) {
  try {
    const AiEndpoint endpoint = parseEndpoint(url);
    return "host <" + endpoint.host + "> port <" + endpoint.port + "> path <" + endpoint.path + ">";
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

// testdata/endpoints.txt: a URL between < and > on each line, then what
// parseEndpoint makes of it.
TEST(ParseEndpoint, Cases) {
  const std::string expected = test::readTestdata("endpoints.txt");
  std::istringstream lines(expected);
  std::string splits;
  for (std::string line; std::getline(lines, line);) {
    const std::string url = line.substr(1, line.find("> ") - 1);
    splits += "<" + url + "> " + split(url) + "\n";
  }
  EXPECT_EQ(splits, expected);
}

}  // namespace
}  // namespace tovrin::ai
