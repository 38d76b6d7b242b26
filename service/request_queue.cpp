// Admission, supersede, the order in which requests start, and the two ways
// a request leaves: stopped or finished.
#include <algorithm>
#include <utility>

#include "service/lock_free_stack.hpp"
#include "service/service_state.hpp"

namespace tovrin::ai {

using detail::RecordState;

void AiService::State::drainInboxLocked() {
  Record* record = detail::takeAll(inbox, &Record::next);
  while (record != nullptr) {
    Record* next = record->next;
    admitLocked(RecordPtr(record, [this](Record* r) { spares.give(r); }));
    record = next;
  }
}

// Every queued request of a superseding request's conversation ends; the
// new one takes the place of the oldest.
void AiService::State::admitLocked(RecordPtr record) {
  if (shuttingDown) {
    queued.fetch_sub(1);
    finishLocked(*record, AiEnding::kShutdown,
                 detail::failedResponse(AiEnding::kShutdown));
    return;
  }
  live.emplace(record->id, record);
  const std::string& key = record->submission.conversation;
  constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  std::size_t place = kNone;
  if (record->submission.supersede && !key.empty()) {
    for (std::size_t i = 0; i < queue.size();) {
      if (queue[i]->submission.conversation != key) {
        ++i;
      } else if (place == kNone) {
        place = i++;
      } else {
        const RecordPtr old = std::move(queue[i]);
        queue.erase(queue.begin() + static_cast<std::ptrdiff_t>(i));
        queued.fetch_sub(1);
        finishLocked(*old, AiEnding::kSuperseded,
                     detail::failedResponse(AiEnding::kSuperseded));
      }
    }
  }
  if (place == kNone) {
    queue.push_back(std::move(record));
    return;
  }
  const RecordPtr old = std::exchange(queue[place], record);
  queued.fetch_sub(1);
  finishLocked(*old, AiEnding::kSuperseded,
               detail::failedResponse(AiEnding::kSuperseded));
}

bool AiService::State::anyReadyLocked() const {
  return std::any_of(queue.begin(), queue.end(), [this](const RecordPtr& r) {
    return r->submission.conversation.empty() ||
           busyConversations.count(r->submission.conversation) == 0;
  });
}

// The oldest queued request whose conversation has none running.
AiService::State::RecordPtr AiService::State::takeReadyLocked() {
  for (auto it = queue.begin(); it != queue.end(); ++it) {
    const std::string& key = (*it)->submission.conversation;
    if (!key.empty() && !busyConversations.insert(key).second) continue;
    RecordPtr record = std::move(*it);
    queue.erase(it);
    queued.fetch_sub(1);
    record->state = RecordState::kRunning;
    record->stop = std::stop_source();
    record->trace.queueWait = detail::since(record->trace.submitted);
    return record;
  }
  return nullptr;
}

// A queued request ends at once. A running one is told to stop: its worker
// completes it, or the timer has it completed without the worker once the
// grace has passed.
void AiService::State::stopLocked(Record& record, AiEnding reason) {
  if (record.state == RecordState::kQueued) {
    queue.erase(std::find_if(queue.begin(), queue.end(),
                             [&](const RecordPtr& r) { return r.get() == &record; }));
    queued.fetch_sub(1);
    finishLocked(record, reason, detail::failedResponse(reason));
    return;
  }
  if (record.state != RecordState::kRunning || record.stop.stop_requested()) {
    return;
  }
  record.stopReason.store(reason);
  record.stoppedAt = Clock::now();
  // Runs the worker's stop callback here, which raises its wake signal.
  record.stop.request_stop();
  timerWake.notify_one();
}

void AiService::State::finishLocked(Record& record, AiEnding ending,
                                    AiResponse response) {
  if (record.state == RecordState::kRunning &&
      !record.submission.conversation.empty()) {
    busyConversations.erase(record.submission.conversation);
  }
  record.state = RecordState::kFinished;
  AiCompletion completion;
  completion.id = record.id;
  completion.ending = ending;
  completion.response = std::move(response);
  completion.trace = std::move(record.trace);
  completion.trace.total = detail::since(completion.trace.submitted);
  completions.publish(std::move(completion));
  unfinished.fetch_sub(1);
  changed.notify_all();
  live.erase(record.id);  // may release record: nothing touches it after
}

}  // namespace tovrin::ai
