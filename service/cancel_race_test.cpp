// Cancellations that land while requests finish, thousands of times, over
// real connections. Every request must end exactly once, and no descriptor
// may be closed twice or left open; under the sanitizers a use after close
// or a data race fails the run.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "testing/loopback_server.hpp"
#include "tovrin/ai/service.hpp"

namespace tovrin::ai {
namespace {

constexpr int kRaces = 10000;
constexpr int kBatch = 50;

// Open descriptors of this process; -1 where the system does not list them
// (under Wine /proc/self/fd lists Wine's own).
long openDescriptors() {
#ifdef __linux__
  std::error_code error;
  std::filesystem::directory_iterator it("/proc/self/fd", error);
  if (error) return -1;
  long count = 0;
  for (; it != std::filesystem::directory_iterator(); ++it) ++count;
  return count;
#else
  return -1;
#endif
}

TEST(ServiceRace, CancelWhileFinishingEndsOnceAndLeaksNothing) {
  const long before = openDescriptors();
  std::set<AiRequestId> ended;
  std::size_t answered = 0;
  std::size_t cancelled = 0;
  {
    test::LoopbackServer server({test::chatCompletionStep("Dobrý den.")});
    AiRuntimeConfig config;
    config.endpoint = server.endpoint();
    config.helperPath.clear();
    AiService service(config, {4, kBatch, std::chrono::seconds(30)});
    std::minstd_rand random(7);
    std::vector<AiCompletion> done;
    for (int batch = 0; batch < kRaces / kBatch; ++batch) {
      std::vector<AiRequestId> ids;
      for (int i = 0; i < kBatch; ++i) {
        AiSubmission submission;
        submission.request.message = "Ahoj";
        ids.push_back(service.submit(std::move(submission)));
      }
      // Spread the cancellations of every other request over the time the
      // batch takes, so that they hit queued requests, running exchanges
      // and requests that have just finished.
      for (std::size_t i = 0; i < ids.size(); i += 2) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        service.cancel(ids[i]);
      }
      while (service.pending() > 0) std::this_thread::yield();
      service.poll(done);
      for (const AiCompletion& completion : done) {
        ASSERT_TRUE(ended.insert(completion.id).second) << completion.id;
        if (completion.ending == AiEnding::kAnswered) {
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
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace tovrin::ai
