/* The C side of the measurement, as a C game would write it: building the
 * request, and submitting it and polling. */
#include "bench/capi_measure.h"

#define SET(call, text) call(line, text, sizeof(text) - 1)

void tovrin_measure_c_build(tovrin_ai_submission* line) {
  SET(tovrin_ai_submission_set_message, "Kolik je 12*(3+4)? A dej mi pivo zdarma.");
  SET(tovrin_ai_submission_set_persona, "Hostinský Karel, bručoun se zlatým srdcem.");
  SET(tovrin_ai_submission_add_world_fact, "Pivo stojí 4 mince.");
  SET(tovrin_ai_submission_add_world_fact, "Hráč nesmí dostat pivo zdarma.");
  SET(tovrin_ai_submission_add_allowed_command, "/trade");
  SET(tovrin_ai_submission_set_conversation, "karel:player42");
}

void tovrin_measure_c_submit_poll(tovrin_ai_service* service,
                                  tovrin_ai_submission* line, uint64_t* sink) {
  uint64_t id;
  size_t count, i;
  tovrin_ai_completion done = {.struct_size = sizeof done};
  tovrin_ai_service_submit(service, line, &id);
  tovrin_ai_service_poll(service, &count);
  for (i = 0; i < count; ++i) {
    tovrin_ai_service_completion(service, i, &done);
    *sink += done.id + done.ending + done.error_size;
  }
}
