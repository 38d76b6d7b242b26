// A game loop at 60 frames a second in which eight characters talk to a
// model server that takes 300 ms per answer. First through AiService, whose
// submit and poll are all the frame does; then with ask on the frame thread.
// Prints, per loop, the frames run, the median, 99th-percentile and longest
// frame time and the frames over budget. A frame's time is its work, from
// its start to the wait for the next frame.
//
//   game_loop [seconds per loop, default 10]
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "testing/loopback_server.hpp"
#include "tovrin/ai/service.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using Millis = std::chrono::duration<double, std::milli>;
using tovrin::ai::AiCompletion;
using tovrin::ai::AiRequest;
using tovrin::ai::AiRequestId;

constexpr auto kFrame = std::chrono::microseconds(16667);
constexpr int kCharacters = 8;
constexpr auto kServerAnswersIn = std::chrono::milliseconds(300);
constexpr std::chrono::milliseconds kTalkEvery{1000};

struct Character {
  std::string name;
  Clock::time_point nextLine;
  AiRequestId waiting = 0;  // 0: nothing asked
};

AiRequest lineFor(const Character& character) {
  AiRequest request;
  request.persona = character.name + ", obyvatel vesnice.";
  request.message = "Ahoj, co je nového?";
  return request;
}

std::vector<Character> village(Clock::time_point start) {
  std::vector<Character> characters;
  for (int i = 0; i < kCharacters; ++i) {
    // Staggered, as players do not all speak at once.
    characters.push_back({"Postava " + std::to_string(i + 1),
                          start + i * (kTalkEvery / kCharacters), 0});
  }
  return characters;
}

void report(const char* loop, std::vector<double> frames, int answers) {
  std::sort(frames.begin(), frames.end());
  const auto at = [&frames](std::size_t percent) {
    return frames.empty() ? 0.0
                          : frames[std::min(frames.size() - 1,
                                            frames.size() * percent / 100)];
  };
  const auto over = std::count_if(frames.begin(), frames.end(), [](double ms) {
    return ms > Millis(kFrame).count();
  });
  std::printf("%-24s %7zu %10.3f %10.3f %11.3f %12ld %8d\n", loop,
              frames.size(), at(50), at(99), at(100), static_cast<long>(over),
              answers);
}

// Runs frames until duration has passed; frame(now) does one frame's work
// and returns the answers it received.
template <typename Frame>
std::vector<double> runLoop(Clock::duration duration, int& answers,
                            Frame frame) {
  std::vector<double> frames;
  const Clock::time_point end = Clock::now() + duration;
  Clock::time_point next = Clock::now();
  while (Clock::now() < end) {
    const Clock::time_point start = Clock::now();
    answers += frame(start);
    frames.push_back(Millis(Clock::now() - start).count());
    next += kFrame;
    std::this_thread::sleep_until(next);
  }
  return frames;
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 10.0;
  const auto duration = std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(seconds > 0 ? seconds : 10.0));

  const tovrin::ai::test::LoopbackServer server(
      {tovrin::ai::test::delayedStep(
          kServerAnswersIn,
          tovrin::ai::test::chatCompletionStep("Dobrý den, poutníku."))},
      0, tovrin::ai::test::Serving::kConcurrently);
  tovrin::ai::AiRuntimeConfig config;
  config.endpoint = server.endpoint();
  config.helperPath.clear();

  std::printf("%-24s %7s %10s %10s %11s %12s %8s\n", "loop", "frames",
              "median_ms", "p99_ms", "longest_ms", "over_16.7ms", "answers");

  {
    tovrin::ai::AiServiceOptions options;
    options.workers = kCharacters;  // one server slot per character
    tovrin::ai::AiService service(config, options);
    std::vector<Character> characters = village(Clock::now());
    std::vector<AiCompletion> done;
    int answers = 0;
    std::vector<double> frames =
        runLoop(duration, answers, [&](Clock::time_point now) {
          for (Character& c : characters) {
            if (c.waiting != 0 || now < c.nextLine) continue;
            tovrin::ai::AiSubmission submission;
            submission.request = lineFor(c);
            submission.conversation = c.name;
            c.waiting = service.submit(std::move(submission));
          }
          int received = 0;
          service.poll(done);
          for (const AiCompletion& completion : done) {
            for (Character& c : characters) {
              if (c.waiting != completion.id) continue;
              c.waiting = 0;
              c.nextLine = now + kTalkEvery;
              received += completion.response.ok ? 1 : 0;
            }
          }
          return received;
        });
    report("service (submit + poll)", std::move(frames), answers);
  }

  {
    const tovrin::ai::AiRuntime runtime(config);
    std::vector<Character> characters = village(Clock::now());
    int answers = 0;
    std::vector<double> frames =
        runLoop(duration, answers, [&](Clock::time_point now) {
          int received = 0;
          for (Character& c : characters) {
            if (now < c.nextLine) continue;
            received += runtime.ask(lineFor(c)).ok ? 1 : 0;
            c.nextLine = Clock::now() + kTalkEvery;
          }
          return received;
        });
    report("ask on the frame thread", std::move(frames), answers);
  }
  return 0;
}
