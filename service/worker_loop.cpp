// The workers: each takes the next request that may start and runs ask for
// it with no lock held.
#include <exception>

#include "service/service_state.hpp"
#include "tovrin/ai/tools.hpp"

namespace tovrin::ai {

namespace detail {
extern thread_local CallContext* currentCall;
}  // namespace detail

using detail::RecordState;

void AiService::State::workerLoop(detail::Worker& worker) {
  std::unique_lock<std::mutex> lock(mutex);
  for (;;) {
    drainInboxLocked();
    if (shuttingDown) break;
    const RecordPtr record = takeReadyLocked();
    if (!record) {
      workReady.wait(lock);
      continue;
    }
    lock.unlock();
    run(worker, record);
    lock.lock();
  }
  leaveLocked(worker);
}

void AiService::State::leaveLocked(detail::Worker& worker) {
  worker.exited = true;
  changed.notify_all();
}

void AiService::State::run(detail::Worker& worker, const RecordPtr& record) {
  detail::CallContext context;
  context.record = record.get();
  context.wake = gameTransport ? nullptr : &worker.wake;
  AiResponse response;
  AiEnding ending = AiEnding::kAnswered;
  {
    // Registered only while this worker serves the request, so a stop
    // never wakes a later request; the destructor waits for a callback
    // running on another thread.
    const std::stop_callback wakeOnStop(record->stop.get_token(),
                                        [&worker] { worker.wake.raise(); });
    detail::currentCall = &context;
    try {
      response = runtime.ask(record->submission.request);
    } catch (const std::exception& error) {
      response = AiResponse{};
      response.error = error.what();
      ending = AiEnding::kFailed;
    }
    detail::currentCall = nullptr;
  }
  worker.wake.clear();

  std::unique_lock<std::mutex> lock(mutex);
  if (record->state != RecordState::kRunning || record->substituting) return;
  if (record->stop.stop_requested()) {
    if (!context.interrupted) {
      // Stopped after its last model call: the answer it got is not the
      // one a stopped request ends with.
      record->substituting = true;
      completeWithSubstitute(lock, record);
      return;
    }
    ending = record->stopReason.load();
    if (!response.ok) response.error = detail::endingText(ending);
  }
  finishLocked(*record, ending, std::move(response));
}

}  // namespace tovrin::ai
