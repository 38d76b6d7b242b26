// A submission handle: one AiSubmission that the game fills field by
// field and the service takes on submit.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "capi/c_handle.hpp"
#include "tovrin/ai/service.hpp"

namespace ai = tovrin::ai;
using ai::detail::guarded;
using ai::detail::Shell;

namespace {

// Runs change on the submission behind handle; failures stay on it.
template <typename Change>
tovrin_ai_status changeSubmission(tovrin_ai_submission* handle,
                                  Change&& change) {
  return guarded([&](Shell*& where) {
    change(ai::detail::objectOf<ai::AiSubmission>(
        handle, ai::detail::HandleKind::kSubmission, "submission", where));
    return TOVRIN_AI_OK;
  });
}

}  // namespace

tovrin_ai_status tovrin_ai_submission_create(
    tovrin_ai_submission** submission) {
  if (submission != nullptr) *submission = nullptr;
  return guarded([&](Shell*&) {
    ai::detail::requirePointer(submission, "submission");
    *submission = ai::detail::newHandle<tovrin_ai_submission>(
        std::make_unique<ai::AiSubmission>(),
        ai::detail::HandleKind::kSubmission);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_submission_destroy(
    tovrin_ai_submission* submission) {
  return ai::detail::destroyHandle<ai::AiSubmission>(
      submission, ai::detail::HandleKind::kSubmission, "submission");
}

tovrin_ai_status tovrin_ai_submission_reset(tovrin_ai_submission* submission) {
  return changeSubmission(submission,
                          [](ai::AiSubmission& s) { s = ai::AiSubmission{}; });
}

tovrin_ai_status tovrin_ai_submission_last_error(
    const tovrin_ai_submission* submission, const char** text, size_t* size) {
  return guarded([&](Shell*& where) {
    ai::detail::objectOf<ai::AiSubmission>(
        submission, ai::detail::HandleKind::kSubmission, "submission", where);
    ai::detail::requirePointer(text, "text");
    ai::detail::requirePointer(size, "size");
    ai::detail::textOut(where->error, text, size);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_submission_set_message(
    tovrin_ai_submission* submission, const char* text, size_t size) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    s.request.message.assign(ai::detail::checkedText(text, size, "message"));
  });
}

tovrin_ai_status tovrin_ai_submission_set_persona(
    tovrin_ai_submission* submission, const char* text, size_t size) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    s.request.persona.assign(ai::detail::checkedText(text, size, "persona"));
  });
}

tovrin_ai_status tovrin_ai_submission_set_conversation(
    tovrin_ai_submission* submission, const char* text, size_t size) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    s.conversation.assign(ai::detail::checkedText(text, size, "conversation"));
  });
}

tovrin_ai_status tovrin_ai_submission_add_world_fact(
    tovrin_ai_submission* submission, const char* text, size_t size) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    s.request.worldFacts.emplace_back(
        ai::detail::checkedText(text, size, "world fact"));
  });
}

tovrin_ai_status tovrin_ai_submission_add_allowed_command(
    tovrin_ai_submission* submission, const char* text, size_t size) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    s.request.allowedCommands.emplace_back(
        ai::detail::checkedText(text, size, "allowed command"));
  });
}

tovrin_ai_status tovrin_ai_submission_add_tool_result(
    tovrin_ai_submission* submission, const char* text, size_t size) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    s.request.toolResults.emplace_back(
        ai::detail::checkedText(text, size, "tool result"));
  });
}

tovrin_ai_status tovrin_ai_submission_set_kind(tovrin_ai_submission* submission,
                                               uint32_t kind) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    s.request.kind = static_cast<ai::AiRequestKind>(kind);
  });
}

tovrin_ai_status tovrin_ai_submission_set_max_tokens(
    tovrin_ai_submission* submission, uint64_t max_tokens) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    // A 32-bit build holds less; no model produces that many anyway.
    s.request.maxTokens = static_cast<std::size_t>(
        std::min<uint64_t>(max_tokens, SIZE_MAX));
  });
}

tovrin_ai_status tovrin_ai_submission_set_supersede(
    tovrin_ai_submission* submission, int32_t supersede) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    s.supersede = supersede != 0;
  });
}

tovrin_ai_status tovrin_ai_submission_set_deadline_ms(
    tovrin_ai_submission* submission, int64_t deadline_ms) {
  return changeSubmission(submission, [&](ai::AiSubmission& s) {
    if (deadline_ms < 0) {
      throw std::invalid_argument("deadline_ms is negative");
    }
    s.deadline.reset();
    if (deadline_ms > 0) s.deadline = std::chrono::milliseconds(deadline_ms);
  });
}
