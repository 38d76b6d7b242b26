#include "service/record_pool.hpp"

#include <utility>

#include "service/lock_free_stack.hpp"

namespace tovrin::ai::detail {

RecordPool::~RecordPool() {
  for (Record* r = takeAll(spares_, &Record::next); r != nullptr;) {
    delete std::exchange(r, r->next);
  }
  for (Record* r = cache_; r != nullptr;) delete std::exchange(r, r->next);
}

Record* RecordPool::take() {
  if (taking_.exchange(true, std::memory_order_acquire)) return nullptr;
  if (cache_ == nullptr) cache_ = spares_.exchange(nullptr, std::memory_order_acquire);
  Record* record = cache_;
  if (record != nullptr) cache_ = record->next;
  taking_.store(false, std::memory_order_release);
  return record;
}

void RecordPool::give(Record* record) {
  record->stop = std::stop_source(std::nostopstate);
  record->trace = AiRequestTrace{};
  record->openCall.reset();
  pushNode(spares_, record, &Record::next);
}

}  // namespace tovrin::ai::detail
