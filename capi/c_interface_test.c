/* The C interface from C, against the shared library, one group per run:
 *   c_interface_test GROUP [ENDPOINT]
 * RequestFields, Answers and Endings need a chat server at ENDPOINT
 * (chat_stand_in runs this program beside one). Every wait is bounded. */
#include "capi/c_interface_test.h"

int failures = 0;
tovrin_ai_service* service;
tovrin_ai_submission* line;

void start(const char* endpoint, size_t workers, size_t queue_limit) {
  tovrin_ai_service_config config = {.struct_size = sizeof config};
  CHECK(tovrin_ai_service_config_defaults(&config) == TOVRIN_AI_OK);
  config.enabled = endpoint != NULL;
  if (endpoint) config.endpoint = endpoint, config.endpoint_size = strlen(endpoint);
  config.helper_path_size = 0;
  config.workers = workers;
  config.queue_limit = queue_limit;
  CHECK(tovrin_ai_service_create(&config, &service) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_submission_create(&line) == TOVRIN_AI_OK);
}

void stop(void) {
  CHECK(tovrin_ai_submission_destroy(line) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_service_destroy(service) == TOVRIN_AI_OK);
}

uint64_t submit(void) {
  uint64_t id = 0;
  CHECK(tovrin_ai_service_submit(service, line, &id) == TOVRIN_AI_OK);
  return id;
}

tovrin_ai_completion next(void) {
  tovrin_ai_completion done = {.struct_size = sizeof done};
  size_t count = 0;
  CHECK(tovrin_ai_service_poll_wait(service, 10000, &count) == TOVRIN_AI_OK);
  CHECK(count == 1);
  if (count > 0) CHECK(tovrin_ai_service_completion(service, 0, &done) == TOVRIN_AI_OK);
  return done;
}

static void lifecycle(void) {
  tovrin_ai_service_config config = {.struct_size = sizeof config};
  tovrin_ai_completion done;
  CHECK(tovrin_ai_c_version() == TOVRIN_AI_C_VERSION);
  CHECK(strcmp(tovrin_ai_status_name(TOVRIN_AI_ERR_FAILED), "TOVRIN_AI_ERR_FAILED") == 0);
  CHECK(strcmp(tovrin_ai_status_name(8), "unknown status") == 0);
  CHECK(tovrin_ai_service_config_defaults(&config) == TOVRIN_AI_OK);
  SAME(config.endpoint, config.endpoint_size, "http://127.0.0.1:17944/v1/chat/completions");
  SAME(config.model, config.model_size, "Qwen2.5-1.5B-Instruct-Q8");
  SAME(config.helper_path, config.helper_path_size, "assets/ai/czech_helper_cs.txt");
  CHECK(config.enabled == 1 && config.workers == 2 && config.queue_limit == 64);
  CHECK(config.deadline_ms == 30000 && config.timeout_ms == 25000 && config.fallback_model_size == 0);

  start(NULL, 1, 4); /* disabled: every request is refused at once */
  SET(tovrin_ai_submission_set_message, "Ahoj");
  CHECK(submit() == 1);
  done = next();
  CHECK(done.id == 1 && done.ending == TOVRIN_AI_ENDING_ANSWERED && !done.ok && done.call_count == 0);
  SAME(done.error, done.error_size, "AI runtime disabled");
  CHECK(submit() == 2); /* the submission was reset: no message now */
  done = next();
  CHECK(done.id == 2 && done.ending == TOVRIN_AI_ENDING_ANSWERED);
  SAME(done.error, done.error_size, "AI runtime disabled");
  {
    size_t pending = 9;
    CHECK(tovrin_ai_service_pending(service, &pending) == TOVRIN_AI_OK && pending == 0);
  }
  CHECK(tovrin_ai_service_shutdown(service) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_service_shutdown(service) == TOVRIN_AI_OK);
  CHECK(submit() == 3);
  done = next();
  CHECK(done.ending == TOVRIN_AI_ENDING_SHUTDOWN && !done.ok);
  SAME(done.error, done.error_size, "AI service shut down");
  stop();
  CHECK(tovrin_ai_service_destroy(NULL) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_submission_destroy(NULL) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_service_create(NULL, &service) == TOVRIN_AI_OK); /* defaults */
  CHECK(tovrin_ai_service_destroy(service) == TOVRIN_AI_OK);
  /* The defaults' texts are the library's static ones. */
  SAME(config.model, config.model_size, "Qwen2.5-1.5B-Instruct-Q8");
}

static void bad_text(const char* text, size_t size, const char* expected) {
  const char* error;
  size_t error_size;
  CHECK(tovrin_ai_submission_set_message(line, text, size) == TOVRIN_AI_ERR_INVALID_UTF8);
  CHECK(tovrin_ai_submission_last_error(line, &error, &error_size) == TOVRIN_AI_OK);
  CHECK(error_size == strlen(expected) && memcmp(error, expected, error_size) == 0);
  if (error_size != strlen(expected)) fprintf(stderr, "  got: %.*s\n", (int)error_size, error);
}

static void bad_arguments(void) {
  tovrin_ai_service_config config = {.struct_size = sizeof config};
  tovrin_ai_completion done = {.struct_size = sizeof done + 8};
  tovrin_ai_submission* gone;
  tovrin_ai_service* other = (tovrin_ai_service*)&done; /* overwritten by create */
  const char* text;
  size_t size = 0;
  uint64_t id;
  start(NULL, 1, 4);

  FAILS(tovrin_ai_service_create(NULL, NULL), TOVRIN_AI_ERR_NULL, "service is NULL");
  FAILS(tovrin_ai_service_submit(NULL, line, &id), TOVRIN_AI_ERR_NULL, "service is NULL");
  FAILS(tovrin_ai_service_submit(service, NULL, &id), TOVRIN_AI_ERR_NULL, "submission is NULL");
  CHECK(tovrin_ai_service_last_error(service, &text, &size) == TOVRIN_AI_OK);
  SAME(text, size, "submission is NULL"); /* kept on the handle acted on */
  FAILS(tovrin_ai_service_poll(service, NULL), TOVRIN_AI_ERR_NULL, "count is NULL");
  FAILS(tovrin_ai_service_cancel(service, 1, NULL), TOVRIN_AI_ERR_NULL, "cancelled is NULL");
  FAILS(tovrin_ai_submission_set_persona(line, NULL, 3), TOVRIN_AI_ERR_NULL, "persona is NULL");
  CHECK(tovrin_ai_submission_set_persona(line, NULL, 0) == TOVRIN_AI_OK);
  FAILS(tovrin_ai_last_error(NULL, &size), TOVRIN_AI_ERR_NULL, "text is NULL");

  FAILS(tovrin_ai_service_completion(service, 0, &done), TOVRIN_AI_ERR_INVALID_ARGUMENT,
        "completion 0 is beyond the 0 there are");
  CHECK(tovrin_ai_service_pending(service, &size) == TOVRIN_AI_OK); /* success keeps the text */
  CHECK(tovrin_ai_service_last_error(service, &text, &size) == TOVRIN_AI_OK);
  SAME(text, size, "completion 0 is beyond the 0 there are");
  FAILS(tovrin_ai_submission_set_deadline_ms(line, -1), TOVRIN_AI_ERR_INVALID_ARGUMENT,
        "deadline_ms is negative");
  config.struct_size = 0;
  FAILS(tovrin_ai_service_create(&config, &other), TOVRIN_AI_ERR_BAD_SIZE,
        "config->struct_size 0 is not a size this library knows");
  CHECK(other == NULL); /* a failed create stores NULL */
  config.struct_size = sizeof config;
  tovrin_ai_service_config_defaults(&config);
  config.workers = 0;
  FAILS(tovrin_ai_service_create(&config, &other), TOVRIN_AI_ERR_INVALID_ARGUMENT,
        "AiService needs at least one worker");
  config.workers = 1;
  config.deadline_ms = 0;
  FAILS(tovrin_ai_service_create(&config, &other), TOVRIN_AI_ERR_INVALID_ARGUMENT,
        "AiService deadline must be positive");
  config.model = "\xE9t\xE9";
  config.model_size = 3;
  FAILS(tovrin_ai_service_create(&config, &other), TOVRIN_AI_ERR_INVALID_UTF8,
        "config->model is not UTF-8 (byte 0 of 3)");

  /* Each row: bytes that are not UTF-8, and where they stop being it. */
  bad_text("Kolik stoj\xED pivo?", 17, "message is not UTF-8 (byte 10 of 17)"); /* Windows-1250 */
  bad_text("\xC3", 1, "message is not UTF-8 (byte 0 of 1)");                  /* cut short */
  bad_text("a\xC0\xAF", 3, "message is not UTF-8 (byte 1 of 3)");              /* overlong */
  bad_text("\xED\xA0\x80", 3, "message is not UTF-8 (byte 0 of 3)");           /* surrogate */
  bad_text("\xF4\x90\x80\x80", 4, "message is not UTF-8 (byte 0 of 4)");       /* past U+10FFFF */
  bad_text("ok\x80", 3, "message is not UTF-8 (byte 2 of 3)");                 /* stray */
  SET(tovrin_ai_submission_set_message, "\xC5\x98""ekni\0pivo \xF0\x9F\x8D\xBA"); /* NUL, emoji */

  CHECK(tovrin_ai_submission_create(&gone) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_submission_destroy(gone) == TOVRIN_AI_OK);
  FAILS(tovrin_ai_submission_set_message(gone, "a", 1), TOVRIN_AI_ERR_BAD_HANDLE,
        "submission is not a live handle of its kind (destroyed, or another kind)");
  FAILS(tovrin_ai_submission_destroy(gone), TOVRIN_AI_ERR_BAD_HANDLE,
        "submission is not a live handle of its kind (destroyed, or another kind)");
  FAILS(tovrin_ai_service_pending((tovrin_ai_service*)line, &size), TOVRIN_AI_ERR_BAD_HANDLE,
        "service is not a live handle of its kind (destroyed, or another kind)");
  stop();
  FAILS(tovrin_ai_service_poll(service, &size), TOVRIN_AI_ERR_BAD_HANDLE,
        "service is not a live handle of its kind (destroyed, or another kind)");
}


int main(int argc, char** argv) {
  const char* group = argc > 1 ? argv[1] : "";
  if (strcmp(group, "Lifecycle") == 0) {
    lifecycle();
  } else if (strcmp(group, "BadArguments") == 0) {
    bad_arguments();
  } else if (strcmp(group, "Template") == 0) {
    template_answer();
  } else if (strcmp(group, "RequestFields") == 0 && argc > 2) {
    request_fields(argv[2]);
  } else if (strcmp(group, "Endings") == 0 && argc > 2) {
    endings(argv[2]);
  } else if (strcmp(group, "Answers") == 0 && argc > 2) {
    answers(argv[2]);
  } else {
    fprintf(stderr, "unknown group '%s'\n", group);
    return 2;
  }
  printf("%s: %d failed checks\n", group, failures);
  return failures == 0 ? 0 : 1;
}
