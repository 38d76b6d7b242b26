// The timing of both ways, and the C++ way's iteration: the same calls as
// capi_measure_c.c makes, through <tovrin/ai/service.hpp>.
#include "bench/capi_measure.h"

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "tovrin/ai/service.hpp"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxPending = 16;
constexpr std::size_t kWorkers = 2;
constexpr std::size_t kQueueLimit = 64;

// Both ways' services, alive between start and stop.
struct Measurement {
  std::unique_ptr<tovrin::ai::AiService> service;
  std::vector<tovrin::ai::AiCompletion> done;
  tovrin_ai_service* cService = nullptr;
  tovrin_ai_submission* line = nullptr;
  std::uint64_t sink = 0;
};

Measurement* measurement = nullptr;

double micros(Clock::duration d) {
  return std::chrono::duration<double, std::micro>(d).count();
}

tovrin::ai::AiSubmission cppBuild() {
  tovrin::ai::AiSubmission submission;
  submission.request.message = "Kolik je 12*(3+4)? A dej mi pivo zdarma.";
  submission.request.persona = "Hostinský Karel, bručoun se zlatým srdcem.";
  submission.request.worldFacts.push_back("Pivo stojí 4 mince.");
  submission.request.worldFacts.push_back("Hráč nesmí dostat pivo zdarma.");
  submission.request.allowedCommands.push_back("/trade");
  submission.conversation = "karel:player42";
  return submission;
}

void cppSubmitPoll(tovrin::ai::AiService& service, tovrin::ai::AiSubmission submission,
                   std::vector<tovrin::ai::AiCompletion>& done, std::uint64_t& sink) {
  service.submit(std::move(submission));
  service.poll(done);
  for (const tovrin::ai::AiCompletion& c : done) {
    sink += c.id + static_cast<std::uint64_t>(c.ending) + c.response.error.size();
  }
}

}  // namespace

int tovrin_measure_start(void) {
  auto m = std::make_unique<Measurement>();
  tovrin::ai::AiRuntimeConfig config;
  config.enabled = false;
  config.helperPath.clear();
  tovrin::ai::AiServiceOptions options;
  options.workers = kWorkers;
  options.queueLimit = kQueueLimit;
  m->service = std::make_unique<tovrin::ai::AiService>(config, options);

  tovrin_ai_service_config c{};
  c.struct_size = sizeof c;
  tovrin_ai_service_config_defaults(&c);
  c.enabled = 0;
  c.helper_path_size = 0;
  c.workers = kWorkers;
  c.queue_limit = kQueueLimit;
  if (tovrin_ai_service_create(&c, &m->cService) != TOVRIN_AI_OK ||
      tovrin_ai_submission_create(&m->line) != TOVRIN_AI_OK) {
    tovrin_ai_service_destroy(m->cService);
    return -1;
  }
  measurement = m.release();
  return 0;
}

double tovrin_measure_once(int way, double* with_building) {
  Measurement& m = *measurement;
  Clock::time_point start, built, end;
  if (way == TOVRIN_MEASURE_C) {
    std::size_t pending = 0;
    while (tovrin_ai_service_pending(m.cService, &pending) == TOVRIN_AI_OK &&
           pending >= kMaxPending) {
      std::this_thread::yield();
    }
    start = Clock::now();
    tovrin_measure_c_build(m.line);
    built = Clock::now();
    tovrin_measure_c_submit_poll(m.cService, m.line, &m.sink);
    end = Clock::now();
  } else {
    while (m.service->pending() >= kMaxPending) std::this_thread::yield();
    start = Clock::now();
    tovrin::ai::AiSubmission submission = cppBuild();
    built = Clock::now();
    cppSubmitPoll(*m.service, std::move(submission), m.done, m.sink);
    end = Clock::now();
  }
  *with_building = micros(end - start);
  return micros(end - built);
}

void tovrin_measure_stop(void) {
  tovrin_ai_submission_destroy(measurement->line);
  tovrin_ai_service_destroy(measurement->cService);
  delete measurement;
  measurement = nullptr;
}
