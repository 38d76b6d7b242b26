#include "needle_set.hpp"

#include <array>
#include <cstdint>
#include <deque>
#include <unordered_map>

namespace tovrin::ai::detail {

namespace {

constexpr int kNone = -1;

// An Aho-Corasick automaton over the needles. The root's moves sit in a
// table, since ordinary text keeps falling back to it; deeper moves are in
// one hash map, so memory stays proportional to the needles' bytes.
class NeedleAutomaton {
 public:
  explicit NeedleAutomaton(const std::vector<std::string>& needles) {
    rootMoves_.fill(kNone);
    addNode();
    endNode_.reserve(needles.size());
    for (const std::string& needle : needles)
      endNode_.push_back(insert(needle));
    linkFailures();
  }

  // Marks every node whose needle ends somewhere in text.
  void scan(std::string_view text) {
    int state = 0;
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      int next = move(state, byte);
      while (next == kNone && state != 0) {
        state = failure_[state];
        next = move(state, byte);
      }
      state = next == kNone ? 0 : next;
      // A node already marked had its whole chain of shorter needles marked
      // with it, so every node is marked at most once.
      for (int hit = output_[state]; hit != kNone && !seen_[hit];
           hit = output_[failure_[hit]]) {
        seen_[hit] = true;
      }
    }
  }

  std::vector<bool> found() const {
    std::vector<bool> result(endNode_.size());
    for (std::size_t i = 0; i < endNode_.size(); ++i) {
      result[i] = endNode_[i] == 0 || seen_[endNode_[i]];
    }
    return result;
  }

 private:
  static std::uint64_t key(int node, unsigned char byte) {
    return (static_cast<std::uint64_t>(node) << 8) | byte;
  }

  int move(int node, unsigned char byte) const {
    if (node == 0) return rootMoves_[byte];
    const auto it = moves_.find(key(node, byte));
    return it == moves_.end() ? kNone : it->second;
  }

  int addNode() {
    failure_.push_back(0);
    output_.push_back(kNone);
    firstChild_.push_back(kNone);
    nextSibling_.push_back(kNone);
    label_.push_back(0);
    seen_.push_back(false);
    return static_cast<int>(failure_.size()) - 1;
  }

  int insert(const std::string& needle) {
    int node = 0;
    for (const char c : needle) {
      const auto byte = static_cast<unsigned char>(c);
      int next = move(node, byte);
      if (next == kNone) {
        next = addNode();
        label_[next] = byte;
        nextSibling_[next] = firstChild_[node];
        firstChild_[node] = next;
        if (node == 0) {
          rootMoves_[byte] = next;
        } else {
          moves_.emplace(key(node, byte), next);
        }
      }
      node = next;
    }
    output_[node] = node;  // a needle ends here; the empty one at the root
    return node;
  }

  // Breadth first, so that a node's failure target, which is shallower, is
  // complete before the node itself.
  void linkFailures() {
    std::deque<int> queue;
    for (int child = firstChild_[0]; child != kNone;
         child = nextSibling_[child]) {
      queue.push_back(child);
    }
    while (!queue.empty()) {
      const int node = queue.front();
      queue.pop_front();
      if (output_[node] == kNone) output_[node] = output_[failure_[node]];
      for (int child = firstChild_[node]; child != kNone;
           child = nextSibling_[child]) {
        int fallback = failure_[node];
        int target = move(fallback, label_[child]);
        while (target == kNone && fallback != 0) {
          fallback = failure_[fallback];
          target = move(fallback, label_[child]);
        }
        failure_[child] = target == kNone ? 0 : target;
        queue.push_back(child);
      }
    }
  }

  std::array<int, 256> rootMoves_;
  std::unordered_map<std::uint64_t, int> moves_;
  std::vector<int> failure_;
  std::vector<int>
      output_;  // deepest node on the failure chain that ends a needle
  std::vector<int> firstChild_;
  std::vector<int> nextSibling_;
  std::vector<unsigned char> label_;
  std::vector<bool> seen_;
  std::vector<int> endNode_;
};

}  // namespace

std::vector<bool> findNeedles(std::string_view text,
                              const std::vector<std::string>& needles) {
  NeedleAutomaton automaton(needles);
  automaton.scan(text);
  return automaton.found();
}

}  // namespace tovrin::ai::detail
