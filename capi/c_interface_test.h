/* What the C interface's test files share: checks that count failures,
 * and one service with one submission, used by one group at a time. */
#ifndef TOVRIN_AI_CAPI_C_INTERFACE_TEST_H_
#define TOVRIN_AI_CAPI_C_INTERFACE_TEST_H_

#include <stdio.h>
#include <string.h>

#include <tovrin/ai_c.h>

extern int failures;

#define CHECK(condition)                                             \
  do {                                                               \
    if (!(condition)) {                                              \
      fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
      ++failures;                                                    \
    }                                                                \
  } while (0)

/* text (size bytes) is exactly the literal, NULs included. */
#define SAME(text, size, literal) \
  CHECK((size) == sizeof(literal) - 1 && memcmp(text, literal, size) == 0)

/* A call fails with status, and the thread's error text is the literal. */
#define FAILS(call, status, literal)              \
  do {                                            \
    const char* text_;                            \
    size_t size_;                                 \
    CHECK((call) == (status));                    \
    tovrin_ai_last_error(&text_, &size_);         \
    SAME(text_, size_, literal);                  \
  } while (0)

#define SET(call, text) CHECK(call(line, text, sizeof(text) - 1) == TOVRIN_AI_OK)

extern tovrin_ai_service* service;
extern tovrin_ai_submission* line;

/* service with the defaults but these, and line; endpoint NULL: disabled. */
void start(const char* endpoint, size_t workers, size_t queue_limit);
void stop(void);
/* Submits line and returns the id. */
uint64_t submit(void);
/* Waits up to 10 s for the next completion, the only one, and reads it. */
tovrin_ai_completion next(void);

/* The groups about requests; all but the first need a chat server. */
void template_answer(void);
void request_fields(const char* endpoint);
void answers(const char* endpoint);
void endings(const char* endpoint);

#endif /* TOVRIN_AI_CAPI_C_INTERFACE_TEST_H_ */
