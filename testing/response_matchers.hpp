// Whole-response comparison for tests: every field, with its name in the
// failure message.
#ifndef TOVRIN_AI_TESTING_RESPONSE_MATCHERS_HPP_
#define TOVRIN_AI_TESTING_RESPONSE_MATCHERS_HPP_

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tovrin/ai.hpp"

namespace tovrin::ai::test {

// A response with every field given, in the record's order.
inline AiResponse response(bool ok, std::string answer, std::string model,
                           bool watchdogPassed,
                           std::vector<std::string> watchdogReasons,
                           bool fallback, std::size_t attempts,
                           std::string error) {
  return {ok,       std::move(answer),          std::move(model),
          watchdogPassed, std::move(watchdogReasons), fallback,
          attempts, std::move(error)};
}

inline void expectResponse(const AiResponse& actual, const AiResponse& expected,
                           const std::string& context) {
  EXPECT_EQ(actual.ok, expected.ok) << context << ": ok";
  EXPECT_EQ(actual.answer, expected.answer) << context << ": answer";
  EXPECT_EQ(actual.model, expected.model) << context << ": model";
  EXPECT_EQ(actual.watchdogPassed, expected.watchdogPassed)
      << context << ": watchdogPassed";
  EXPECT_EQ(actual.watchdogReasons, expected.watchdogReasons)
      << context << ": watchdogReasons";
  EXPECT_EQ(actual.fallback, expected.fallback) << context << ": fallback";
  EXPECT_EQ(actual.attempts, expected.attempts) << context << ": attempts";
  EXPECT_EQ(actual.error, expected.error) << context << ": error";
}

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_RESPONSE_MATCHERS_HPP_
