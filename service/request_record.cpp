#include "service/request_record.hpp"

namespace tovrin::ai::detail {

ServiceClock::time_point deadlineAfter(ServiceClock::time_point now,
                                       std::chrono::milliseconds limit) {
  // Compared in milliseconds: converting limit to the clock's nanoseconds
  // first would overflow for the longest limits.
  const auto room = std::chrono::duration_cast<std::chrono::milliseconds>(
      ServiceClock::time_point::max() - now);
  if (limit >= room) return ServiceClock::time_point::max();
  return now + std::chrono::duration_cast<ServiceClock::duration>(limit);
}

const char* endingText(AiEnding ending) {
  switch (ending) {
    case AiEnding::kQueueFull:
      return kQueueFullError;
    case AiEnding::kSuperseded:
      return kSupersededError;
    case AiEnding::kCancelled:
      return kCancelledError;
    case AiEnding::kDeadline:
      return kDeadlineError;
    case AiEnding::kShutdown:
      return kShutdownError;
    case AiEnding::kAnswered:
    case AiEnding::kFailed:
      break;
  }
  return "";
}

AiResponse failedResponse(AiEnding ending) {
  AiResponse response;
  response.error = endingText(ending);
  return response;
}

std::chrono::microseconds since(ServiceClock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(
      ServiceClock::now() - start);
}

}  // namespace tovrin::ai::detail
