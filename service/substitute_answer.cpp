// Completing a stopped request without its worker: when the worker is held
// by a game transport that ignores its token, by the judging of a huge
// answer, or when the stop came after its last model call. The substitute
// is the same request asked again with every model call failing at once,
// so the template answer appears where it fits, as for any interrupted
// call. What the worker returns later is dropped.
#include <exception>
#include <utility>

#include "service/service_state.hpp"

namespace tovrin::ai {

namespace detail {
extern thread_local CallContext* currentCall;
}  // namespace detail

using detail::RecordState;

void AiService::State::substituteLoop() {
  std::unique_lock<std::mutex> lock(mutex);
  for (;;) {
    substituteReady.wait(lock,
                         [this] { return !substitutes.empty() || threadsLeaving; });
    if (substitutes.empty()) return;
    const RecordPtr record = std::move(substitutes.front());
    substitutes.pop_front();
    completeWithSubstitute(lock, record);
  }
}

// record->substituting is set; lock is held on entry and on return.
void AiService::State::completeWithSubstitute(
    std::unique_lock<std::mutex>& lock, const RecordPtr& record) {
  const AiEnding reason = record->stopReason.load();
  // Moved, not copied: a call's answer may be many megabytes. What the
  // worker records from now on is dropped with the record.
  AiRequestTrace trace = std::move(record->trace);
  if (record->openCall) {
    AiModelCallTrace call = *record->openCall;
    call.duration = detail::since(call.start);
    call.error = detail::endingText(reason);
    trace.calls.push_back(std::move(call));
  }
  lock.unlock();
  detail::CallContext context;
  context.record = record.get();
  detail::CallContext* const outer = std::exchange(detail::currentCall, &context);
  AiResponse response;
  try {
    response = runtime.ask(record->submission.request);
  } catch (const std::exception&) {
    response = AiResponse{};  // its error becomes the ending's text below
  }
  detail::currentCall = outer;
  if (!response.ok) response.error = detail::endingText(reason);
  lock.lock();
  if (record->state == RecordState::kRunning) {
    record->trace = std::move(trace);
    finishLocked(*record, reason, std::move(response));
    // Its conversation may go on while the worker is still held.
    if (anyReadyLocked()) workReady.notify_one();
  }
}

}  // namespace tovrin::ai
