// Cancellations that land while requests finish, thousands of times, over
// real connections. Every request must end exactly once, and no descriptor
// may be closed twice or left open; under the sanitizers a use after close
// or a data race fails the run. A cancel that returns true must end its
// request as cancelled.
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "testing/loopback_server.hpp"
#include "testing/process_runner.hpp"
#include "tovrin/ai/service.hpp"

namespace tovrin::ai {
namespace {

constexpr int kRaces = 10000;
constexpr int kBatch = 50;

TEST(ServiceRace, CancelWhileFinishingEndsOnceAndLeaksNothing) {
  const long before = test::openDescriptors();
  std::set<AiRequestId> ended;
  std::set<AiRequestId> promised;  // cancel() returned true
  std::size_t answered = 0;
  std::size_t cancelled = 0;
  {
    test::LoopbackServer server({test::chatCompletionStep("Dobrý den.")});
    AiService service({.endpoint = server.endpoint(), .helperPath = {}}, {4, kBatch, std::chrono::seconds(30)});
    std::minstd_rand random(7);
    std::vector<AiCompletion> done;
    for (int batch = 0; batch < kRaces / kBatch; ++batch) {
      std::vector<AiRequestId> ids;
      for (int i = 0; i < kBatch; ++i) {
        ids.push_back(service.submit({.request = {.message = "Ahoj"}}));
      }
      // Spread the cancellations of every other request over the time the
      // batch takes, so that they hit queued requests, running exchanges
      // and requests that have just finished.
      for (std::size_t i = 0; i < ids.size(); i += 2) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        if (service.cancel(ids[i])) promised.insert(ids[i]);
      }
      while (service.pending() > 0) std::this_thread::yield();
      service.poll(done);
      for (const AiCompletion& completion : done) {
        ASSERT_TRUE(ended.insert(completion.id).second) << completion.id;
        // A cancel that returned true ends the request as cancelled.
        if (completion.ending == AiEnding::kAnswered) {
          ASSERT_EQ(promised.count(completion.id), 0u) << completion.id;
          ++answered;
          EXPECT_TRUE(completion.response.ok) << completion.response.error;
        } else {
          ++cancelled;
          ASSERT_EQ(completion.ending, AiEnding::kCancelled);
        }
      }
    }
  }
  RecordProperty("answered", static_cast<int>(answered));
  EXPECT_EQ(ended.size(), static_cast<std::size_t>(kRaces));
  EXPECT_GT(answered, 0u);
  EXPECT_GT(cancelled, 0u);
  EXPECT_EQ(test::openDescriptors(), before);
}

}  // namespace
}  // namespace tovrin::ai
