// The timer thread: ends requests whose deadline passed, hands stopped
// requests whose worker is late to the substitute, wakes sleeping workers
// for new requests, and frees what poll gave back.
#include <algorithm>
#include <vector>

#include "service/service_state.hpp"

namespace tovrin::ai {

using detail::RecordState;

void AiService::State::timerLoop() {
  std::unique_lock<std::mutex> lock(mutex);
  while (!shuttingDown) {
    completions.freeReturned();
    drainInboxLocked();
    // The game's thread never wakes a worker itself: that system call could
    // hand its core to the worker. Sleeping workers are woken here, a tick
    // late at most; busy ones look for work whenever they finish.
    if (anyReadyLocked()) workReady.notify_all();
    const Clock::time_point now = Clock::now();
    Clock::time_point next = now + detail::kTimerTick;
    std::vector<RecordPtr> expired;
    for (const auto& entry : live) {
      Record& record = *entry.second;
      if (!record.stop.stop_requested()) {
        if (record.deadline <= now) {
          expired.push_back(entry.second);
        } else {
          next = std::min(next, record.deadline);
        }
      } else if (record.state == RecordState::kRunning &&
                 !record.substituting) {
        const Clock::time_point late = record.stoppedAt + detail::kStopGrace;
        if (late <= now) {
          record.substituting = true;
          substitutes.push_back(entry.second);
          substituteReady.notify_one();
        } else {
          next = std::min(next, late);
        }
      }
    }
    for (const RecordPtr& record : expired) {
      stopLocked(*record, AiEnding::kDeadline);
    }
    if (!expired.empty()) continue;  // their grace starts now
    // Submissions do not wake the timer (the game's thread takes no lock),
    // so it looks at new deadlines every tick.
    timerWake.wait_until(lock, next);
  }
}

}  // namespace tovrin::ai
