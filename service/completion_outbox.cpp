#include "service/completion_outbox.hpp"

#include <utility>

#include "service/lock_free_stack.hpp"

namespace tovrin::ai::detail {

CompletionOutbox::~CompletionOutbox() {
  freeAll(published_);
  freeAll(returned_);
}

void CompletionOutbox::freeAll(std::atomic<Node*>& stack) {
  for (Node* n = takeAll(stack, &Node::next); n != nullptr;) {
    delete std::exchange(n, n->next);
  }
}

void CompletionOutbox::publish(AiCompletion completion) {
  pushNode(published_, new Node{std::move(completion), nullptr}, &Node::next);
}

std::size_t CompletionOutbox::takeInto(std::vector<AiCompletion>& out) {
  std::size_t count = 0;
  for (Node* node = takeAll(published_, &Node::next); node != nullptr;
       ++count) {
    Node* next = node->next;
    if (count < out.size()) {
      std::swap(out[count], node->completion);
    } else {
      out.push_back(std::move(node->completion));
    }
    pushNode(returned_, node, &Node::next);
    node = next;
  }
  out.resize(count);
  return count;
}

void CompletionOutbox::freeReturned() { freeAll(returned_); }

}  // namespace tovrin::ai::detail
