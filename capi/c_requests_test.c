/* Requests through the C interface: the template answer without a server,
 * every field handed in, every field handed out, and every ending. */
#include "capi/c_interface_test.h"

/* Nobody listens on port 1: the exact result still comes as a template. */
void template_answer(void) {
  const char* endpoint = "http://127.0.0.1:1/v1/chat/completions";
  tovrin_ai_model_call call = {.struct_size = sizeof call};
  tovrin_ai_completion done;
  start(endpoint, 1, 4);
  SET(tovrin_ai_submission_set_message, "Kolik je 2+3?");
  CHECK(tovrin_ai_submission_set_kind(line, TOVRIN_AI_KIND_SHORT_ANSWER) == TOVRIN_AI_OK);
  submit();
  done = next();
  CHECK(done.ending == TOVRIN_AI_ENDING_ANSWERED && done.ok && done.fallback && done.watchdog_passed);
  SAME(done.answer, done.answer_size, "5");
  SAME(done.model, done.model_size, "watchdog-template");
  SAME(done.error, done.error_size, "Cannot connect to AI endpoint");
  CHECK(done.call_count == 1 && done.attempts == 1 && done.reason_count == 0);
  CHECK(tovrin_ai_service_completion_call(service, 0, 0, &call) == TOVRIN_AI_OK);
  CHECK(call.pass == 1 && call.attempt == 1 && !call.answered && call.verdict_reason_count == 0);
  CHECK(call.endpoint_size == strlen(endpoint) && memcmp(call.endpoint, endpoint, call.endpoint_size) == 0);
  SAME(call.model, call.model_size, "Qwen2.5-1.5B-Instruct-Q8");
  SAME(call.error, call.error_size, "Cannot connect to AI endpoint");
  CHECK(call.answer_size == 0 && call.start_us >= 0 && call.duration_us >= 0);
  CHECK(tovrin_ai_service_completion_call(service, 0, 1, &call) == TOVRIN_AI_ERR_INVALID_ARGUMENT);
  stop();
}

/* Every field of a completion and its model calls, from a chat server that
 * answers "Dobrý den, poutníku. Pivo stojí 4 mince." to everything. */
void answers(const char* endpoint) {
  tovrin_ai_completion done = {.struct_size = sizeof done};
  tovrin_ai_model_call call = {.struct_size = sizeof call};
  const char* reason;
  size_t size, count;
  start(endpoint, 2, 4);
  SET(tovrin_ai_submission_set_message, "Kolik stojí pivo?");
  SET(tovrin_ai_submission_set_persona, "Hostinský Karel, bručoun.");
  SET(tovrin_ai_submission_add_world_fact, "Pivo stojí 4 mince.");
  SET(tovrin_ai_submission_add_allowed_command, "/trade");
  SET(tovrin_ai_submission_set_conversation, "karel:1");
  CHECK(tovrin_ai_submission_set_max_tokens(line, 60) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_submission_set_deadline_ms(line, 5000) == TOVRIN_AI_OK);
  submit();
  done = next();
  CHECK(done.ending == TOVRIN_AI_ENDING_ANSWERED && done.ok && !done.fallback && done.watchdog_passed);
  SAME(done.answer, done.answer_size, "Dobrý den, poutníku. Pivo stojí 4 mince.");
  SAME(done.model, done.model_size, "Qwen2.5-1.5B-Instruct-Q8");
  CHECK(done.error_size == 0 && done.attempts == 1 && done.reason_count == 0 && done.call_count == 1);
  CHECK(done.queue_wait_us >= 0 && done.total_us >= done.queue_wait_us);
  CHECK(tovrin_ai_service_completion_call(service, 0, 0, &call) == TOVRIN_AI_OK);
  CHECK(call.answered && call.verdict_passed && call.verdict_reason_count == 0 && call.error_size == 0);
  SAME(call.answer, call.answer_size, "Dobrý den, poutníku. Pivo stojí 4 mince.");
  CHECK(call.start_us >= done.queue_wait_us && call.start_us + call.duration_us <= done.total_us);

  /* A value the answer must state and does not: both attempts rejected,
   * and no template answer fits. */
  SET(tovrin_ai_submission_set_message, "Ahoj");
  SET(tovrin_ai_submission_add_tool_result, "7");
  CHECK(tovrin_ai_submission_set_kind(line, TOVRIN_AI_KIND_COMMAND_HELP) == TOVRIN_AI_OK);
  submit();
  /* The first completion's texts stay valid until the next poll. */
  CHECK(tovrin_ai_service_pending(service, &count) == TOVRIN_AI_OK);
  SAME(done.answer, done.answer_size, "Dobrý den, poutníku. Pivo stojí 4 mince.");
  CHECK(call.endpoint_size == strlen(endpoint) && memcmp(call.endpoint, endpoint, call.endpoint_size) == 0);
  done = next();
  CHECK(done.ending == TOVRIN_AI_ENDING_ANSWERED && !done.ok && !done.watchdog_passed);
  SAME(done.error, done.error_size, "AI answer rejected by watchdog");
  CHECK(done.attempts == 2 && done.call_count == 2 && done.reason_count == 2);
  CHECK(tovrin_ai_service_completion_reason(service, 0, 0, &reason, &size) == TOVRIN_AI_OK);
  SAME(reason, size, "missing_tool_value:7");
  CHECK(tovrin_ai_service_completion_reason(service, 0, 1, &reason, &size) == TOVRIN_AI_OK);
  SAME(reason, size, "unexpected_number:4");
  CHECK(tovrin_ai_service_completion_reason(service, 0, 2, &reason, &size) == TOVRIN_AI_ERR_INVALID_ARGUMENT);
  CHECK(tovrin_ai_service_completion_call(service, 0, 1, &call) == TOVRIN_AI_OK);
  CHECK(call.pass == 1 && call.attempt == 2 && call.answered && !call.verdict_passed);
  CHECK(call.verdict_reason_count == 2);
  CHECK(tovrin_ai_service_completion_call_reason(service, 0, 1, 1, &reason, &size) == TOVRIN_AI_OK);
  SAME(reason, size, "unexpected_number:4");
  CHECK(tovrin_ai_service_completion_call_reason(service, 0, 1, 2, &reason, &size) ==
        TOVRIN_AI_ERR_INVALID_ARGUMENT);
  stop();
}

/* True when size bytes at text hold the literal somewhere. */
static int holds(const char* text, size_t size, const char* literal) {
  const size_t length = strlen(literal);
  size_t at;
  for (at = 0; at + length <= size; ++at) {
    if (memcmp(text + at, literal, length) == 0) return 1;
  }
  fprintf(stderr, "  missing: %s\n", literal);
  return 0;
}

/* Every field handed in reaches the model: the chat server answers with
 * the request it got, which the watchdog (off here) lets through. */
void request_fields(const char* endpoint) {
  tovrin_ai_service_config config = {.struct_size = sizeof config};
  tovrin_ai_completion done;
  tovrin_ai_model_call call = {.struct_size = sizeof call};
  CHECK(tovrin_ai_service_config_defaults(&config) == TOVRIN_AI_OK);
  config.endpoint = endpoint;
  config.endpoint_size = strlen(endpoint);
  config.model = "pivní-model\0x";
  config.model_size = 14;
  config.helper_path_size = 0;
  config.temperature = 0.5f;
  config.top_p = 0.25f;
  config.watchdog_enabled = 0;
  CHECK(tovrin_ai_service_create(&config, &service) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_submission_create(&line) == TOVRIN_AI_OK);
  SET(tovrin_ai_submission_set_message, "Kolik stojí pivo?");
  SET(tovrin_ai_submission_set_persona, "Hostinský Karel.");
  SET(tovrin_ai_submission_add_world_fact, "Pivo stojí 4 mince.");
  SET(tovrin_ai_submission_add_world_fact, "Hospoda zavírá o půlnoci.");
  SET(tovrin_ai_submission_add_allowed_command, "/trade");
  SET(tovrin_ai_submission_add_tool_result, "4");
  CHECK(tovrin_ai_submission_set_kind(line, TOVRIN_AI_KIND_COMMAND_HELP) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_submission_set_max_tokens(line, 60) == TOVRIN_AI_OK);
  submit();
  done = next();
  CHECK(done.ok && done.call_count == 1);
  CHECK(tovrin_ai_service_completion_call(service, 0, 0, &call) == TOVRIN_AI_OK);
  /* The request body as the server got it, JSON escapes and all. */
  CHECK(holds(call.answer, call.answer_size, "{\"model\":\"pivní-model\\u0000x\","));
  CHECK(holds(call.answer, call.answer_size, "Hostinský Karel."));
  CHECK(holds(call.answer, call.answer_size, "- Pivo stojí 4 mince.\\n- Hospoda zavírá o půlnoci.\\n"));
  CHECK(holds(call.answer, call.answer_size, ":\\n- 4\\n"));
  CHECK(holds(call.answer, call.answer_size, ":\\n- /trade\\n"));
  CHECK(holds(call.answer, call.answer_size, ":\\nKolik stojí pivo?\\n"));
  CHECK(holds(call.answer, call.answer_size, "\"temperature\":0.5,\"top_p\":0.25,\"max_tokens\":60,"));
  stop();
}

/* The next completion is id's, ended so. */
static tovrin_ai_completion expect(uint64_t id, uint32_t ending) {
  const tovrin_ai_completion done = next();
  CHECK(done.id == id && done.ending == ending);
  if (done.id != id || done.ending != ending) {
    fprintf(stderr, "  wanted %u ending %u, got %u ending %u\n", (unsigned)id, (unsigned)ending,
            (unsigned)done.id, (unsigned)done.ending);
  }
  return done;
}

/* Every way a request ends besides an answer, with one worker, at most two
 * requests queued and a chat server that holds every answer 2 s. */
void endings(const char* endpoint) {
  uint64_t first, running, queued, newer, other;
  int32_t cancelled = 9;
  size_t count = 9, seen = 0, i;
  tovrin_ai_completion done = {.struct_size = sizeof done};
  start(endpoint, 1, 2);
  SET(tovrin_ai_submission_set_message, "Ahoj");
  first = submit();
  CHECK(tovrin_ai_service_cancel(service, first, &cancelled) == TOVRIN_AI_OK && cancelled == 1);
  CHECK(tovrin_ai_service_cancel(service, 99, &cancelled) == TOVRIN_AI_OK && cancelled == 0);
  expect(first, TOVRIN_AI_ENDING_CANCELLED);

  SET(tovrin_ai_submission_set_message, "Ahoj");
  CHECK(tovrin_ai_submission_set_deadline_ms(line, 100) == TOVRIN_AI_OK);
  done = expect(submit(), TOVRIN_AI_ENDING_DEADLINE);
  CHECK(done.total_us >= 100000 && done.total_us < 2000000);

  /* A newer request of a conversation replaces its queued one. */
  SET(tovrin_ai_submission_set_message, "Ahoj");
  SET(tovrin_ai_submission_set_conversation, "k");
  running = submit();
  CHECK(tovrin_ai_service_poll_wait(service, 200, &count) == TOVRIN_AI_OK && count == 0);
  SET(tovrin_ai_submission_set_message, "Ahoj");
  SET(tovrin_ai_submission_set_conversation, "k");
  queued = submit();
  SET(tovrin_ai_submission_set_message, "Ahoj");
  SET(tovrin_ai_submission_set_conversation, "k");
  CHECK(tovrin_ai_submission_set_supersede(line, 1) == TOVRIN_AI_OK);
  newer = submit();
  done = expect(queued, TOVRIN_AI_ENDING_SUPERSEDED);
  SAME(done.error, done.error_size, "AI request superseded by a newer request");

  /* newer and other fill the queue: the next is refused at once. */
  SET(tovrin_ai_submission_set_message, "Ahoj");
  other = submit();
  SET(tovrin_ai_submission_set_message, "Ahoj");
  done = expect(submit(), TOVRIN_AI_ENDING_QUEUE_FULL);
  SAME(done.error, done.error_size, "AI request queue is full");
  CHECK(tovrin_ai_service_pending(service, &count) == TOVRIN_AI_OK && count == 3);

  CHECK(tovrin_ai_service_shutdown(service) == TOVRIN_AI_OK);
  while (seen < 3 && tovrin_ai_service_poll_wait(service, 10000, &count) == TOVRIN_AI_OK && count > 0) {
    for (i = 0; i < count; ++i, ++seen) {
      CHECK(tovrin_ai_service_completion(service, i, &done) == TOVRIN_AI_OK);
      CHECK(done.ending == TOVRIN_AI_ENDING_SHUTDOWN);
      CHECK(done.id == running || done.id == newer || done.id == other);
    }
  }
  CHECK(seen == 3);
  stop();
}
