// One submitted request as the service keeps it, from submit to its
// completion, and the texts of the endings the service gives itself.
#ifndef TOVRIN_AI_SERVICE_REQUEST_RECORD_HPP_
#define TOVRIN_AI_SERVICE_REQUEST_RECORD_HPP_

#include <atomic>
#include <chrono>
#include <optional>
#include <stop_token>

#include "tovrin/ai/service.hpp"

namespace tovrin::ai::detail {

using ServiceClock = std::chrono::steady_clock;

enum class RecordState { kQueued, kRunning, kFinished };

// A small record per request with its own state. The fields from `state` on
// are guarded by the service's mutex.
struct Record {
  AiRequestId id = 0;
  AiSubmission submission;
  ServiceClock::time_point deadline;
  std::stop_source stop{std::nostopstate};  // made when the request starts
  std::atomic<AiEnding> stopReason{AiEnding::kAnswered};  // set before stop
  Record* next = nullptr;  // in the inbox or the spares; one list at a time

  RecordState state = RecordState::kQueued;
  ServiceClock::time_point stoppedAt;  // when a running request was stopped
  bool substituting = false;  // its completion is being made without its worker
  AiRequestTrace trace;
  std::optional<AiModelCallTrace> openCall;  // the model call under way
};

// now + limit, or time_point::max() where the clock cannot hold that: a
// deadline beyond the clock's range is no deadline. Never overflows.
ServiceClock::time_point deadlineAfter(ServiceClock::time_point now,
                                       std::chrono::milliseconds limit);

// The fixed error text of an ending the service gives; "" for kAnswered and
// kFailed, whose texts come from the runtime.
const char* endingText(AiEnding ending);

// A response that failed with the ending's text.
AiResponse failedResponse(AiEnding ending);

// Time from start to now, in microseconds.
std::chrono::microseconds since(ServiceClock::time_point start);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVICE_REQUEST_RECORD_HPP_
