/* The model-server part of the C interface from C, against the stand-in
 * model server of the layer's tests:
 *   c_server_test STAND_IN_PROGRAM
 * Every wait is bounded (tovrin_ai_service_poll_wait serves as the sleep). */
#include "capi/c_interface_test.h"

#include <tovrin/ai_c_server.h>

int failures = 0;

/* Waits up to 10 s for state, reading the status as a frame would. */
static void await_state(tovrin_ai_model_server* server, tovrin_ai_service* clock,
                        tovrin_ai_model_server_status* status, uint32_t state) {
  size_t count, tries;
  for (tries = 0; tries < 500; ++tries) {
    CHECK(tovrin_ai_model_server_read_status(server, status) == TOVRIN_AI_OK);
    if (status->state == state) return;
    tovrin_ai_service_poll_wait(clock, 20, &count);
  }
  fprintf(stderr, "  state %u, not %u: %.*s\n", (unsigned)status->state, (unsigned)state,
          (int)status->reason_size, status->reason);
  CHECK(status->state == state);
}

int main(int argc, char** argv) {
  static const char arguments[] = "--port\0{port}\0--ready-after-ms\0" "300\0";
  tovrin_ai_model_server_options options = {.struct_size = sizeof options};
  tovrin_ai_model_server_status status = {.struct_size = sizeof status};
  tovrin_ai_completion done = {.struct_size = sizeof done};
  tovrin_ai_model_call call = {.struct_size = sizeof call};
  tovrin_ai_model_server* server = NULL;
  tovrin_ai_service* service = NULL;
  tovrin_ai_submission* line = NULL;
  const char *endpoint, *text;
  size_t endpoint_size, size, count = 0;
  uint64_t id;
  if (argc < 2) return 2;

  CHECK(tovrin_ai_model_server_options_defaults(&options) == TOVRIN_AI_OK);
  SAME(options.health_path, options.health_path_size, "/health");
  CHECK(options.port == 0 && options.stop_grace_ms == 2000 && options.failure_limit == 5);
  FAILS(tovrin_ai_model_server_start(&options, &server), TOVRIN_AI_ERR_INVALID_ARGUMENT,
        "AiModelServerOptions: program is empty");
  CHECK(server == NULL);
  options.program = argv[1];
  options.program_size = strlen(argv[1]);
  options.arguments = arguments;
  options.arguments_size = sizeof arguments - 2; /* the last NUL missing */
  FAILS(tovrin_ai_model_server_start(&options, &server), TOVRIN_AI_ERR_INVALID_ARGUMENT,
        "options->arguments must end with a NUL byte");
  options.arguments_size = sizeof arguments - 1;
  options.stop_grace_ms = 500;
  CHECK(tovrin_ai_model_server_start(&options, &server) == TOVRIN_AI_OK);

  /* Submitted while the model loads: the worker waits for it. */
  CHECK(tovrin_ai_service_create_for_server(NULL, server, &service) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_submission_create(&line) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_submission_set_message(line, "Ahoj", 4) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_service_submit(service, line, &id) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_service_poll_wait(service, 10000, &count) == TOVRIN_AI_OK && count == 1);
  CHECK(tovrin_ai_service_completion(service, 0, &done) == TOVRIN_AI_OK && done.ok);
  SAME(done.answer, done.answer_size, "Dobrý den, poutníku.");
  CHECK(tovrin_ai_model_server_endpoint(server, &endpoint, &endpoint_size) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_service_completion_call(service, 0, 0, &call) == TOVRIN_AI_OK);
  CHECK(call.endpoint_size == endpoint_size && memcmp(call.endpoint, endpoint, endpoint_size) == 0);

  await_state(server, service, &status, TOVRIN_AI_SERVER_READY);
  CHECK(status.port > 0 && status.starts == 1 && status.process_id > 0 && !status.external);
  CHECK(status.reason_size == 0 && status.state_age_ms >= 0 && status.next_start_in_ms == 0);
  CHECK(status.endpoint_size + 20 == endpoint_size && memcmp(status.endpoint, endpoint, status.endpoint_size) == 0);
  CHECK(status.log_line_count > 0); /* the stand-in prints its arguments */
  CHECK(tovrin_ai_model_server_log_line(server, 0, &text, &size) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_model_server_log_line(server, status.log_line_count, &text, &size) ==
        TOVRIN_AI_ERR_INVALID_ARGUMENT);

  CHECK(tovrin_ai_model_server_stop(server) == TOVRIN_AI_OK);
  await_state(server, service, &status, TOVRIN_AI_SERVER_STOPPED);
  CHECK(status.process_id == 0);
  CHECK(tovrin_ai_model_server_restart(server) == TOVRIN_AI_OK);
  await_state(server, service, &status, TOVRIN_AI_SERVER_READY);
  CHECK(status.starts == 2);

  /* The service outlives the server and finds none. */
  CHECK(tovrin_ai_model_server_destroy(server) == TOVRIN_AI_OK);
  FAILS(tovrin_ai_model_server_stop(server), TOVRIN_AI_ERR_BAD_HANDLE,
        "server is not a live handle of its kind (destroyed, or another kind)");
  CHECK(tovrin_ai_submission_set_message(line, "Ahoj", 4) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_service_submit(service, line, &id) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_service_poll_wait(service, 10000, &count) == TOVRIN_AI_OK && count == 1);
  CHECK(tovrin_ai_service_completion(service, 0, &done) == TOVRIN_AI_OK && !done.ok);
  SAME(done.error, done.error_size, "Cannot connect to AI endpoint");
  CHECK(tovrin_ai_submission_destroy(line) == TOVRIN_AI_OK);
  CHECK(tovrin_ai_service_destroy(service) == TOVRIN_AI_OK);
  printf("ModelServer: %d failed checks\n", failures);
  return failures == 0 ? 0 : 1;
}
