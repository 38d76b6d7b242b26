// Poll and the reading of its completions by index: the response, the
// watchdog's reasons and every model call of the trace.
#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "capi/c_service.hpp"

namespace tovrin::ai::detail {

namespace {

static_assert(TOVRIN_AI_ENDING_ANSWERED == int(AiEnding::kAnswered));
static_assert(TOVRIN_AI_ENDING_QUEUE_FULL == int(AiEnding::kQueueFull));
static_assert(TOVRIN_AI_ENDING_SUPERSEDED == int(AiEnding::kSuperseded));
static_assert(TOVRIN_AI_ENDING_CANCELLED == int(AiEnding::kCancelled));
static_assert(TOVRIN_AI_ENDING_DEADLINE == int(AiEnding::kDeadline));
static_assert(TOVRIN_AI_ENDING_SHUTDOWN == int(AiEnding::kShutdown));
static_assert(TOVRIN_AI_ENDING_FAILED == int(AiEnding::kFailed));

constexpr std::initializer_list<std::size_t> kCompletionSizes = {
    sizeof(tovrin_ai_completion)};
constexpr std::initializer_list<std::size_t> kModelCallSizes = {
    sizeof(tovrin_ai_model_call)};

template <typename T>
const T& at(const std::vector<T>& items, std::size_t index,
            const char* what) {
  if (index >= items.size()) {
    throw CFailure(TOVRIN_AI_ERR_INVALID_ARGUMENT,
                   std::string(what) + " " + std::to_string(index) +
                       " is beyond the " + std::to_string(items.size()) +
                       " there are");
  }
  return items[index];
}

constexpr int64_t kDayMs = 86400000;  // longer waits would overflow the clock

std::int64_t micros(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration_cast<std::chrono::microseconds>(duration)
      .count();
}

// The completion index of the service behind handle, recorded as where.
const AiCompletion& completionOf(const tovrin_ai_service* handle,
                                 std::size_t index, Shell*& where) {
  return at(serviceOf(handle, where).completions, index, "completion");
}

}  // namespace

}  // namespace tovrin::ai::detail

namespace ai = tovrin::ai;
using ai::detail::at;
using ai::detail::guarded;
using ai::detail::requirePointer;
using ai::detail::Shell;

tovrin_ai_status tovrin_ai_service_poll(tovrin_ai_service* service,
                                        size_t* count) {
  return guarded([&](Shell*& where) {
    ai::detail::ServiceObject& s = ai::detail::serviceOf(service, where);
    requirePointer(count, "count");
    *count = s.service.poll(s.completions);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_poll_wait(tovrin_ai_service* service,
                                             int64_t timeout_ms,
                                             size_t* count) {
  return guarded([&](Shell*& where) {
    ai::detail::ServiceObject& s = ai::detail::serviceOf(service, where);
    requirePointer(count, "count");
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(std::clamp<int64_t>(timeout_ms, 0, ai::detail::kDayMs));
    while ((*count = s.service.poll(s.completions)) == 0 &&
           std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_completion(
    tovrin_ai_service* service, size_t index,
    tovrin_ai_completion* completion) {
  return guarded([&](Shell*& where) {
    const ai::AiCompletion& c = ai::detail::completionOf(service, index, where);
    requirePointer(completion, "completion");
    ai::detail::checkStructSize(completion->struct_size,
                                ai::detail::kCompletionSizes, "completion");
    const ai::AiResponse& r = c.response;
    tovrin_ai_completion full{};
    full.ending = static_cast<uint32_t>(c.ending);
    full.id = c.id;
    full.ok = r.ok;
    full.watchdog_passed = r.watchdogPassed;
    full.fallback = r.fallback;
    full.attempts = r.attempts;
    ai::detail::textOut(r.answer, &full.answer, &full.answer_size);
    ai::detail::textOut(r.model, &full.model, &full.model_size);
    ai::detail::textOut(r.error, &full.error, &full.error_size);
    full.reason_count = r.watchdogReasons.size();
    full.call_count = c.trace.calls.size();
    full.queue_wait_us = c.trace.queueWait.count();
    full.total_us = c.trace.total.count();
    ai::detail::fillSized(completion, full);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_completion_reason(
    tovrin_ai_service* service, size_t index, size_t reason,
    const char** text, size_t* size) {
  return guarded([&](Shell*& where) {
    const ai::AiCompletion& c = ai::detail::completionOf(service, index, where);
    requirePointer(text, "text");
    requirePointer(size, "size");
    ai::detail::textOut(at(c.response.watchdogReasons, reason, "reason"), text,
                        size);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_completion_call(
    tovrin_ai_service* service, size_t index, size_t call,
    tovrin_ai_model_call* model_call) {
  return guarded([&](Shell*& where) {
    const ai::AiCompletion& c = ai::detail::completionOf(service, index, where);
    const ai::AiModelCallTrace& t = at(c.trace.calls, call, "call");
    requirePointer(model_call, "model_call");
    ai::detail::checkStructSize(model_call->struct_size,
                                ai::detail::kModelCallSizes, "model_call");
    tovrin_ai_model_call full{};
    full.pass = static_cast<uint32_t>(t.pass);
    full.attempt = static_cast<uint32_t>(t.attempt);
    full.answered = t.answered;
    full.verdict_passed = t.verdict.passed;
    full.verdict_reason_count = t.verdict.reasons.size();
    ai::detail::textOut(t.endpoint, &full.endpoint, &full.endpoint_size);
    ai::detail::textOut(t.model, &full.model, &full.model_size);
    ai::detail::textOut(t.answer, &full.answer, &full.answer_size);
    ai::detail::textOut(t.error, &full.error, &full.error_size);
    full.start_us = ai::detail::micros(t.start - c.trace.submitted);
    full.duration_us = t.duration.count();
    ai::detail::fillSized(model_call, full);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_completion_call_reason(
    tovrin_ai_service* service, size_t index, size_t call, size_t reason,
    const char** text, size_t* size) {
  return guarded([&](Shell*& where) {
    const ai::AiCompletion& c = ai::detail::completionOf(service, index, where);
    const ai::AiModelCallTrace& t = at(c.trace.calls, call, "call");
    requirePointer(text, "text");
    requirePointer(size, "size");
    ai::detail::textOut(at(t.verdict.reasons, reason, "reason"), text, size);
    return TOVRIN_AI_OK;
  });
}
