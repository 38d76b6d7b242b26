// The hand-over of finished requests to the game's thread: the service's
// threads publish completions, poll takes them all without a lock, and the
// nodes go back to the timer thread to be freed, so that the frame never
// frees memory a worker allocated.
#ifndef TOVRIN_AI_SERVICE_COMPLETION_OUTBOX_HPP_
#define TOVRIN_AI_SERVICE_COMPLETION_OUTBOX_HPP_

#include <atomic>
#include <cstddef>
#include <vector>

#include "tovrin/ai/service.hpp"

namespace tovrin::ai::detail {

class CompletionOutbox {
 public:
  CompletionOutbox() = default;
  ~CompletionOutbox();  // frees what was never taken or given back
  CompletionOutbox(const CompletionOutbox&) = delete;
  CompletionOutbox& operator=(const CompletionOutbox&) = delete;

  // Any thread.
  void publish(AiCompletion completion);

  // One taker at a time (the game's thread): replaces out's contents with
  // every completion published so far, in the order published, reusing
  // out's capacity and elements. Returns how many.
  std::size_t takeInto(std::vector<AiCompletion>& out);

  // Frees the nodes takeInto gave back, with the completions they carry
  // away from out (the timer thread).
  void freeReturned();

 private:
  struct Node {
    AiCompletion completion;
    Node* next = nullptr;
  };
  static void freeAll(std::atomic<Node*>& stack);

  std::atomic<Node*> published_{nullptr};
  std::atomic<Node*> returned_{nullptr};
};

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVICE_COMPLETION_OUTBOX_HPP_
