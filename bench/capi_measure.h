/* Submit plus poll through the C interface and through the C++ one, timed
 * call by call in the same way, for the measuring programs in C++ and C#.
 * Each iteration builds the same dialogue request (persona, two facts, one
 * command, a conversation key), submits it, polls, and reads every
 * completion's id, ending and error. The runtime is disabled, so workers
 * refuse each request at once.
 * For the measuring programs only: one measurement per process at a time. */
#ifndef TOVRIN_AI_BENCH_CAPI_MEASURE_H_
#define TOVRIN_AI_BENCH_CAPI_MEASURE_H_

#include <stddef.h>

#include <tovrin/ai_c.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { TOVRIN_MEASURE_CPP = 0, TOVRIN_MEASURE_C = 1 };

/* Starts one service for each way, both alive until tovrin_measure_stop,
 * so that iterations of the two (and a caller's own) can alternate one by
 * one and meet the same state of the machine. Returns 0, or -1 when a
 * service cannot start. */
int tovrin_measure_start(void);

/* Waits until the way's service has fewer than 16 requests pending (as
 * bench/service_bench.cpp does), then builds one request, submits it and
 * polls. Returns the time of the submit
 * and the poll, and stores in *with_building the time with the building,
 * both in microseconds. */
double tovrin_measure_once(int way, double* with_building);

void tovrin_measure_stop(void);

/* The C way's two steps (capi_measure_c.c); the second adds what it read
 * to *sink, so that nothing is optimised away. */
void tovrin_measure_c_build(tovrin_ai_submission* line);
void tovrin_measure_c_submit_poll(tovrin_ai_service* service,
                                  tovrin_ai_submission* line, uint64_t* sink);

#ifdef __cplusplus
}
#endif

#endif /* TOVRIN_AI_BENCH_CAPI_MEASURE_H_ */
