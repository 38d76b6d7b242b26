// Finished records kept for reuse by submit, so that the game's thread
// allocates nothing per request in the steady state, and the texts it moved
// in are freed where they were allocated, when the next request is moved
// over them.
#ifndef TOVRIN_AI_SERVICE_RECORD_POOL_HPP_
#define TOVRIN_AI_SERVICE_RECORD_POOL_HPP_

#include <atomic>

#include "service/request_record.hpp"

namespace tovrin::ai::detail {

class RecordPool {
 public:
  RecordPool() = default;
  ~RecordPool();  // frees every record it holds
  RecordPool(const RecordPool&) = delete;
  RecordPool& operator=(const RecordPool&) = delete;

  // A spare record, or nullptr when there is none or another thread is
  // taking one (the caller then allocates). One taker at a time: the game's.
  Record* take();

  // Takes record back, from any thread: drops what the workers made for it
  // and keeps the request texts for submit to replace.
  void give(Record* record);

 private:
  std::atomic<Record*> spares_{nullptr};
  std::atomic<bool> taking_{false};
  Record* cache_ = nullptr;  // only with taking_ held
};

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_SERVICE_RECORD_POOL_HPP_
