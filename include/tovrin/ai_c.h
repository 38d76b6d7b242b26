/* tovrin_ai_c -- the game-loop layer for every language that can call C:
 * C, C# (P/Invoke, Mono, IL2CPP), Python (ctypes), GDExtension.
 *
 * One shared library (libtovrin_ai_c.so, tovrin_ai_c.dll) exports exactly
 * the functions declared here and no C++ symbol. Use:
 *
 *   tovrin_ai_service_config config = {.struct_size = sizeof config};
 *   tovrin_ai_service_config_defaults(&config);      // 127.0.0.1:17944
 *   tovrin_ai_service* service;
 *   if (tovrin_ai_service_create(&config, &service) != TOVRIN_AI_OK) {
 *     const char* text; size_t size;
 *     tovrin_ai_last_error(&text, &size);            // why, on this thread
 *   }
 *   tovrin_ai_submission* line;
 *   tovrin_ai_submission_create(&line);
 *   tovrin_ai_submission_set_message(line, "Kolik stojí pivo?", 18);
 *   uint64_t id;
 *   tovrin_ai_service_submit(service, line, &id);    // line is reset
 *   ...every frame:
 *   size_t count;
 *   tovrin_ai_service_poll(service, &count);
 *   for (size_t i = 0; i < count; ++i) {
 *     tovrin_ai_completion done = {.struct_size = sizeof done};
 *     tovrin_ai_service_completion(service, i, &done);
 *     if (done.ok) show(done.id, done.answer, done.answer_size);
 *   }
 *   ...
 *   tovrin_ai_submission_destroy(line);
 *   tovrin_ai_service_destroy(service);
 *
 * Rules for every function:
 *   * Returns a tovrin_ai_status, TOVRIN_AI_OK on success. No C++ exception
 *     leaves the library. A failure leaves every out-argument as it was,
 *     except that a create stores NULL, and records the failure's text on
 *     the handle acted on (tovrin_ai_*_last_error) and on the calling thread
 *     (tovrin_ai_last_error). Successful calls leave both texts alone.
 *   * Pointer arguments are required (NULL: TOVRIN_AI_ERR_NULL), except a
 *     text's data when its size is 0 and the handle of a destroy.
 *   * Text is a pointer and a size in bytes. Text handed in must be UTF-8
 *     and may hold any character, NUL included; anything else is refused
 *     with TOVRIN_AI_ERR_INVALID_UTF8, so that text in Windows-1250 or ISO
 *     8859-2 never reaches the model garbled. The library copies what it
 *     keeps: the caller's buffer is free again when the call returns.
 *     Text handed out is exactly what the model or the runtime produced (a
 *     model's answer may be invalid UTF-8), followed by a NUL byte that the
 *     size does not count. It belongs to the library; how long it stays
 *     valid is written at each function.
 *   * A struct's first field is struct_size, which the caller sets to
 *     sizeof the struct before a call reads or fills it. The library takes
 *     the size of every earlier version of this header as well as its own,
 *     so a binding written for an older library keeps working with a newer
 *     one; any other size is TOVRIN_AI_ERR_BAD_SIZE. Zero a struct before
 *     use ("= {.struct_size = sizeof s}" does) so that its reserved fields
 *     are 0.
 *   * A handle is used by one thread at a time; different handles may be
 *     used on different threads at once. The game-loop calls never wait for
 *     the network or for a worker (see <tovrin/ai/service.hpp>).
 *   * A destroyed handle's memory stays with the library for a later create
 *     to reuse. Until then, using the handle again is refused with
 *     TOVRIN_AI_ERR_BAD_HANDLE; once reused it names the new object, so
 *     this check finds mistakes, it does not make them safe.
 */
#ifndef TOVRIN_AI_C_H_
#define TOVRIN_AI_C_H_

#include <stddef.h>
#include <stdint.h>

/* Set by the library's build to export its functions; empty for users. */
#ifndef TOVRIN_AI_C_API
#define TOVRIN_AI_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* This header's version: major << 16 | minor << 8 | patch. A binding works
 * with a library of the same major version and a minor one at least its
 * own. */
#define TOVRIN_AI_C_VERSION 0x010000u

typedef enum tovrin_ai_status {
  TOVRIN_AI_OK = 0,
  TOVRIN_AI_ERR_NULL = 1,             /* a required pointer was NULL */
  TOVRIN_AI_ERR_BAD_HANDLE = 2,       /* destroyed, or a handle of another kind */
  TOVRIN_AI_ERR_BAD_SIZE = 3,         /* a struct_size this library does not know */
  TOVRIN_AI_ERR_INVALID_UTF8 = 4,     /* text handed in is not UTF-8 */
  TOVRIN_AI_ERR_INVALID_ARGUMENT = 5, /* a value or an index out of range */
  TOVRIN_AI_ERR_NO_MEMORY = 6,        /* an allocation failed */
  TOVRIN_AI_ERR_FAILED = 7            /* anything else, e.g. no thread could start */
} tovrin_ai_status;

/* What a request is for; the values of AiRequestKind. */
enum {
  TOVRIN_AI_KIND_NPC_DIALOGUE = 0,
  TOVRIN_AI_KIND_COMMAND_HELP = 1,
  TOVRIN_AI_KIND_GENERAL_CHAT = 2,
  TOVRIN_AI_KIND_SHORT_ANSWER = 3,
  TOVRIN_AI_KIND_CHAT_MODERATION = 4,
  TOVRIN_AI_KIND_ANTI_CHEAT_TRIAGE = 5
};

/* How a request ended; the values of AiEnding. */
enum {
  TOVRIN_AI_ENDING_ANSWERED = 0,    /* the runtime's response, ok or not */
  TOVRIN_AI_ENDING_QUEUE_FULL = 1,  /* refused by a full queue */
  TOVRIN_AI_ENDING_SUPERSEDED = 2,  /* replaced by a newer request */
  TOVRIN_AI_ENDING_CANCELLED = 3,   /* tovrin_ai_service_cancel */
  TOVRIN_AI_ENDING_DEADLINE = 4,    /* its deadline passed */
  TOVRIN_AI_ENDING_SHUTDOWN = 5,    /* the service ended first */
  TOVRIN_AI_ENDING_FAILED = 6       /* the runtime failed; see error */
};

typedef struct tovrin_ai_service tovrin_ai_service;
typedef struct tovrin_ai_submission tovrin_ai_submission;

/* TOVRIN_AI_C_VERSION of the library as built. */
TOVRIN_AI_C_API uint32_t tovrin_ai_c_version(void);

/* "TOVRIN_AI_OK", "TOVRIN_AI_ERR_NULL", ...; "unknown status" for other
 * values. Static text: valid for the life of the process. */
TOVRIN_AI_C_API const char* tovrin_ai_status_name(int32_t status);

/* The text of this thread's last failing call, of any function, and the
 * only place the failures of calls without a usable handle are recorded
 * (a NULL or destroyed handle, a failed create). Empty before any failure.
 * Valid until this thread's next failing call or its end. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_last_error(const char** text,
                                                      size_t* size);

/* ---- The service: runtime configuration and worker options. ---- */

typedef struct tovrin_ai_service_config {
  uint32_t struct_size;
  int32_t enabled;                 /* 0 refuses every request */
  const char* endpoint;            /* first pass: "http://host[:port][/path]" */
  size_t endpoint_size;
  const char* model;               /* sent with the first pass */
  size_t model_size;
  const char* helper_path;         /* helper text file; empty: none */
  size_t helper_path_size;
  const char* fallback_endpoint;   /* second pass, with fallback_model */
  size_t fallback_endpoint_size;
  const char* fallback_model;
  size_t fallback_model_size;
  int64_t timeout_ms;              /* per send and receive; below 1 acts as 1 */
  float temperature;
  float top_p;
  int32_t watchdog_enabled;        /* judge the model's answers */
  int32_t repair_enabled;          /* allow a repair attempt */
  size_t workers;                  /* threads running requests; at least 1 */
  size_t queue_limit;              /* requests waiting to start; at least 1 */
  int64_t deadline_ms;             /* default per request; above 0 */
} tovrin_ai_service_config;

/* Fills config with the runtime's and the service's defaults. Its texts
 * point to static text of the library, valid for the life of the process. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_config_defaults(
    tovrin_ai_service_config* config);

/* Builds the runtime and starts the workers. config NULL: the defaults.
 * Reads config and its texts during the call only. On success *service is
 * the caller's until tovrin_ai_service_destroy; on failure it is NULL and
 * the reason is in tovrin_ai_last_error (TOVRIN_AI_ERR_INVALID_ARGUMENT for
 * zero workers, a zero queue limit or a deadline not above 0). */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_create(
    const tovrin_ai_service_config* config, tovrin_ai_service** service);

/* Ends every request and frees the service within 50 ms, with every text it
 * handed out. NULL is allowed and does nothing. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_destroy(
    tovrin_ai_service* service);

/* The text of the service's last failing call; empty before any. Valid
 * until its next failing call or its destruction. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_last_error(
    const tovrin_ai_service* service, const char** text, size_t* size);

/* Hands the submission's request to the service and stores its id (1, 2,
 * 3... in submission order). Takes the submission's contents and leaves it
 * reset, ready for the next request; the caller still owns it. A full
 * queue or a shut-down service is no error: the request then completes at
 * once with that ending. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_submit(
    tovrin_ai_service* service, tovrin_ai_submission* submission,
    uint64_t* id);

/* Collects every completion finished since the last poll, in the order they
 * finished, and stores how many. They are read by index below, from 0 to
 * count - 1, until the next poll of this service or its destruction, which
 * free them and every text read from them. Never waits for a request. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_poll(
    tovrin_ai_service* service, size_t* count);

/* As tovrin_ai_service_poll, but when nothing has finished it waits up to
 * timeout_ms (0 to a day) for a completion, looking every millisecond.
 * For tools and scripts that may block; a game's frame calls tovrin_ai_service_poll. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_poll_wait(
    tovrin_ai_service* service, int64_t timeout_ms, size_t* count);

/* One completion of the last poll. */
typedef struct tovrin_ai_completion {
  uint32_t struct_size;
  uint32_t ending;                 /* TOVRIN_AI_ENDING_* */
  uint64_t id;
  int32_t ok;                      /* an answer was produced and accepted */
  int32_t watchdog_passed;         /* verdict of the last check made */
  int32_t fallback;                /* second pass or template answer */
  int32_t reserved;
  uint64_t attempts;               /* model attempts begun in the pass */
  const char* answer;              /* accepted answer, or last rejected one */
  size_t answer_size;
  const char* model;               /* pass model, or "watchdog-template" */
  size_t model_size;
  const char* error;               /* failure text; may be set while ok */
  size_t error_size;
  size_t reason_count;             /* watchdog reason codes of that check */
  size_t call_count;               /* model calls made, in call order */
  int64_t queue_wait_us;           /* submission to start on a worker */
  int64_t total_us;                /* submission to completion */
} tovrin_ai_completion;

/* Fills completion with completion index of the last poll. Its texts are
 * valid until the next poll or the service's destruction. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_completion(
    tovrin_ai_service* service, size_t index,
    tovrin_ai_completion* completion);

/* The watchdog reason code reason (0 to reason_count - 1) of a completion,
 * e.g. "question_echo" or "missing_tool_value:4". Valid as the
 * completion's texts are. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_completion_reason(
    tovrin_ai_service* service, size_t index, size_t reason,
    const char** text, size_t* size);

/* One model call of a completion, as the transport saw it. */
typedef struct tovrin_ai_model_call {
  uint32_t struct_size;
  uint32_t pass;                   /* 1: first pass, 2: fallback pass */
  uint32_t attempt;                /* 1, or 2 for the repair attempt */
  int32_t answered;                /* the transport returned an answer */
  int32_t verdict_passed;          /* the watchdog's verdict on answer */
  int32_t reserved;
  size_t verdict_reason_count;
  const char* endpoint;
  size_t endpoint_size;
  const char* model;
  size_t model_size;
  const char* answer;              /* as received, untrimmed */
  size_t answer_size;
  const char* error;               /* what failed, when not answered */
  size_t error_size;
  int64_t start_us;                /* from the request's submission */
  int64_t duration_us;
} tovrin_ai_model_call;

/* Fills model_call with call (0 to call_count - 1) of a completion. Its
 * texts are valid as the completion's are. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_completion_call(
    tovrin_ai_service* service, size_t index, size_t call,
    tovrin_ai_model_call* model_call);

/* Reason code reason (0 to verdict_reason_count - 1) of a model call's
 * verdict. Valid as the completion's texts are. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_completion_call_reason(
    tovrin_ai_service* service, size_t index, size_t call, size_t reason,
    const char** text, size_t* size);

/* Ends request id with TOVRIN_AI_ENDING_CANCELLED: at once when queued,
 * within 50 ms when running. *cancelled is 1 when it ends so, 0 when id is
 * unknown, finished, or already ending for another reason. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_cancel(
    tovrin_ai_service* service, uint64_t id, int32_t* cancelled);

/* Requests submitted and not yet finished (queued or running). */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_pending(
    const tovrin_ai_service* service, size_t* count);

/* Ends every request with TOVRIN_AI_ENDING_SHUTDOWN and stops the workers
 * within 50 ms; polls still hand out the last completions, and requests
 * submitted later complete at once as shut down. Safe to call twice. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_shutdown(
    tovrin_ai_service* service);

/* ---- A submission: one request as the game builds it. ---- */

/* A new, empty submission: no message (which the runtime refuses), kind
 * NPC dialogue, 80 tokens, no conversation, the service's deadline. The
 * caller owns it until tovrin_ai_submission_destroy; one submission can
 * carry any number of requests, one after another. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_create(
    tovrin_ai_submission** submission);

/* Frees the submission. NULL is allowed and does nothing. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_destroy(
    tovrin_ai_submission* submission);

/* Back to the state of a new submission. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_reset(
    tovrin_ai_submission* submission);

/* The submission's last failing call, as tovrin_ai_service_last_error. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_last_error(
    const tovrin_ai_submission* submission, const char** text, size_t* size);

/* The player's text (must not be empty when submitted), the speaking
 * character's persona, and the conversation key: requests with the same
 * key are answered one after another in the order submitted. Each replaces
 * what was set before. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_set_message(
    tovrin_ai_submission* submission, const char* text, size_t size);
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_set_persona(
    tovrin_ai_submission* submission, const char* text, size_t size);
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_set_conversation(
    tovrin_ai_submission* submission, const char* text, size_t size);

/* Appends one entry to a list: facts the answer must respect, slash commands
 * it may use, exact values it must state. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_add_world_fact(
    tovrin_ai_submission* submission, const char* text, size_t size);
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_add_allowed_command(
    tovrin_ai_submission* submission, const char* text, size_t size);
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_add_tool_result(
    tovrin_ai_submission* submission, const char* text, size_t size);

/* TOVRIN_AI_KIND_*; other values get the behaviour common to all kinds. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_set_kind(
    tovrin_ai_submission* submission, uint32_t kind);

/* "max_tokens" of the request body. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_set_max_tokens(
    tovrin_ai_submission* submission, uint64_t max_tokens);

/* Non-zero: the request replaces its conversation's queued request. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_set_supersede(
    tovrin_ai_submission* submission, int32_t supersede);

/* The whole request's deadline from submission; 0 is the service's
 * default, a negative value TOVRIN_AI_ERR_INVALID_ARGUMENT. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_submission_set_deadline_ms(
    tovrin_ai_submission* submission, int64_t deadline_ms);

#ifdef __cplusplus
}  /* extern "C" */
#endif

#endif /* TOVRIN_AI_C_H_ */
