/* tovrin_ai_c, the model-server layer: the game starts, watches and stops
 * its own model server (<tovrin/ai/model_server.hpp> from C). The rules of
 * <tovrin/ai_c.h> hold here too: statuses, last errors, UTF-8 text with
 * sizes, struct_size first, one thread at a time per handle. Use:
 *
 *   static const char args[] = "-m\0ai/model.gguf\0--port\0{port}\0";
 *   tovrin_ai_model_server_options options = {.struct_size = sizeof options};
 *   tovrin_ai_model_server_options_defaults(&options);
 *   options.program = "ai/llama-server";
 *   options.program_size = 15;
 *   options.arguments = args;
 *   options.arguments_size = sizeof args - 1;  // every argument ends in NUL
 *   tovrin_ai_model_server* server;
 *   tovrin_ai_model_server_start(&options, &server);   // returns at once
 *   tovrin_ai_service* service;
 *   tovrin_ai_service_create_for_server(NULL, server, &service);
 *   ...any frame:
 *   tovrin_ai_model_server_status status = {.struct_size = sizeof status};
 *   tovrin_ai_model_server_read_status(server, &status);
 *   if (status.state == TOVRIN_AI_SERVER_FAILED) show(status.reason, ...);
 *   ...
 *   tovrin_ai_service_destroy(service);
 *   tovrin_ai_model_server_destroy(server);           // stops the server
 */
#ifndef TOVRIN_AI_C_SERVER_H_
#define TOVRIN_AI_C_SERVER_H_

#include "tovrin/ai_c.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The layer's state; the values of AiServerState. */
enum {
  TOVRIN_AI_SERVER_STARTING = 0,   /* the program runs; nothing answers yet */
  TOVRIN_AI_SERVER_LOADING = 1,    /* the readiness path answers, not yet 200 */
  TOVRIN_AI_SERVER_READY = 2,      /* requests can be made */
  TOVRIN_AI_SERVER_RESTARTING = 3, /* it failed; the next start waits */
  TOVRIN_AI_SERVER_STOPPED = 4,    /* stopped by the game */
  TOVRIN_AI_SERVER_FAILED = 5      /* nothing more starts until a restart */
};

typedef struct tovrin_ai_model_server tovrin_ai_model_server;

/* How the server is started and watched; the fields of
 * AiModelServerOptions, durations in milliseconds. */
typedef struct tovrin_ai_model_server_options {
  uint32_t struct_size;
  uint32_t port;                   /* 0: any free loopback port, kept */
  int32_t use_running_server;      /* a server answering on port is used */
  int32_t reserved;
  const char* program;             /* a path, or a bare name found on PATH */
  size_t program_size;
  const char* arguments;           /* each argument followed by a NUL byte; */
  size_t arguments_size;           /*   "{port}" becomes the chosen port */
  const char* working_folder;      /* empty: the game's current folder */
  size_t working_folder_size;
  const char* health_path;         /* 200: ready; any other answer: loading */
  size_t health_path_size;
  const char* log_file;            /* set: the server's output also goes here */
  size_t log_file_size;
  int64_t start_deadline_ms;       /* start to ready, else killed and failed */
  int64_t stop_grace_ms;           /* polite stop to kill */
  int64_t restart_pause_ms;        /* after the first failure, doubling */
  int64_t max_restart_pause_ms;
  int64_t failure_window_ms;
  int64_t probe_interval_ms;       /* between probes until ready */
  int64_t ready_probe_interval_ms; /* between probes once ready */
  int64_t probe_timeout_ms;
  size_t failure_limit;            /* failures within the window: failed */
  size_t unanswered_probe_limit;   /* once ready, in a row: restart */
  size_t log_tail_bytes;           /* the server's last output kept */
} tovrin_ai_model_server_options;

/* Fills options with the layer's defaults (no program, no arguments). Its
 * texts point to static text of the library. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_model_server_options_defaults(
    tovrin_ai_model_server_options* options);

/* Checks options, chooses the port and starts the layer's thread, which
 * starts the server; returns at once. Reads options during the call only.
 * On success *server is the caller's until tovrin_ai_model_server_destroy;
 * on failure it is NULL (TOVRIN_AI_ERR_INVALID_ARGUMENT for options the
 * layer refuses, TOVRIN_AI_ERR_FAILED when no loopback port can be had). */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_model_server_start(
    const tovrin_ai_model_server_options* options,
    tovrin_ai_model_server** server);

/* Stops the server (polite stop, a kill after stop_grace_ms) and frees the
 * handle within stop_grace_ms + 100 ms. A service created for it keeps
 * working and finds no server. NULL is allowed and does nothing. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_model_server_destroy(
    tovrin_ai_model_server* server);

/* The server's last failing call, as tovrin_ai_service_last_error. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_model_server_last_error(
    const tovrin_ai_model_server* server, const char** text, size_t* size);

/* A snapshot of the layer. */
typedef struct tovrin_ai_model_server_status {
  uint32_t struct_size;
  uint32_t state;                  /* TOVRIN_AI_SERVER_* */
  uint32_t port;
  int32_t external;                /* a server the game did not start */
  int32_t has_exit_code;           /* exit_code holds the last exit status */
  int32_t exit_code;
  int32_t has_exit_signal;         /* exit_signal ended it (POSIX) */
  int32_t exit_signal;
  int64_t process_id;              /* the running server's; 0 when none */
  int64_t state_age_ms;            /* since the state was entered */
  int64_t next_start_in_ms;        /* when restarting; else 0 */
  size_t starts;                   /* processes started so far */
  size_t recent_failures;          /* within the failure window */
  const char* reason;              /* why restarting, stopped or failed */
  size_t reason_size;
  const char* endpoint;            /* "http://127.0.0.1:<port>" */
  size_t endpoint_size;
  size_t log_line_count;           /* the server's last lines of output */
} tovrin_ai_model_server_status;

/* The state now, never waiting for the server. The texts are valid until
 * the next read of this server's status or its destruction. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_model_server_read_status(
    tovrin_ai_model_server* server, tovrin_ai_model_server_status* status);

/* Line line (0 to log_line_count - 1, oldest first) of the server's output
 * as of the last read status. Valid as that status's texts are. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_model_server_log_line(
    tovrin_ai_model_server* server, size_t line, const char** text,
    size_t* size);

/* "http://127.0.0.1:<port>/v1/chat/completions", for a service's config.
 * Valid until the server's destruction. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_model_server_endpoint(
    const tovrin_ai_model_server* server, const char** text, size_t* size);

/* Stops the server and keeps it stopped; returns at once. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_model_server_stop(
    tovrin_ai_model_server* server);

/* Stops the server if one runs, forgets past failures and starts it again,
 * from any state; returns at once. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_model_server_restart(
    tovrin_ai_model_server* server);

/* As tovrin_ai_service_create, for requests to server: an empty endpoint
 * in config (or config NULL) becomes the server's, and before every model
 * call a worker waits while the server starts, loads or restarts, ended by
 * the request's deadline or cancel. The service holds no reference the
 * caller must keep: destroy server and service in any order. */
TOVRIN_AI_C_API tovrin_ai_status tovrin_ai_service_create_for_server(
    const tovrin_ai_service_config* config,
    const tovrin_ai_model_server* server, tovrin_ai_service** service);

#ifdef __cplusplus
}  /* extern "C" */
#endif

#endif /* TOVRIN_AI_C_SERVER_H_ */
