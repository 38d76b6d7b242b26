// The lock-free stacks between the game's thread and the service's threads:
// any number of threads push, and a taker takes the whole stack at once.
#ifndef TOVRIN_AI_SERVICE_LOCK_FREE_STACK_HPP_
#define TOVRIN_AI_SERVICE_LOCK_FREE_STACK_HPP_

#include <atomic>

namespace tovrin::ai::detail {

// Pushes node onto the stack whose top is top; next is the node's link.
template <typename Node>
void pushNode(std::atomic<Node*>& top, Node* node, Node* Node::*next) {
  node->*next = top.load(std::memory_order_relaxed);
  while (!top.compare_exchange_weak(node->*next, node,
                                    std::memory_order_release,
                                    std::memory_order_relaxed)) {
  }
}

// Takes the whole stack and returns it as a list, oldest push first.
template <typename Node>
Node* takeAll(std::atomic<Node*>& top, Node* Node::*next) {
  Node* node = top.exchange(nullptr, std::memory_order_acquire);
  Node* ordered = nullptr;
  while (node != nullptr) {
    Node* following = node->*next;
    node->*next = ordered;
    ordered = node;
    node = following;
  }
  return ordered;
}

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVICE_LOCK_FREE_STACK_HPP_
