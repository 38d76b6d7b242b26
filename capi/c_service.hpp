// The object behind a tovrin_ai_service handle, shared by the files that
// create it, submit to it and read its completions.
#ifndef TOVRIN_AI_CAPI_C_SERVICE_HPP_
#define TOVRIN_AI_CAPI_C_SERVICE_HPP_

#include <utility>
#include <vector>

#include "capi/c_handle.hpp"
#include "tovrin/ai/service.hpp"

namespace tovrin::ai::detail {

struct ServiceObject {
  ServiceObject(AiRuntimeConfig config, AiServiceOptions options)
      : service(std::move(config), std::move(options)) {}

  AiService service;
  std::vector<AiCompletion> completions;  // the last poll's, read by index
};

inline ServiceObject& serviceOf(const tovrin_ai_service* handle,
                                Shell*& where) {
  return objectOf<ServiceObject>(handle, HandleKind::kService, "service",
                                 where);
}

// The runtime configuration and the service options that config (NULL:
// the defaults) describes. CFailure for a struct size or a text refused.
std::pair<AiRuntimeConfig, AiServiceOptions> serviceSettings(
    const tovrin_ai_service_config* config);

// A handle for a new service; failures as tovrin_ai_service_create's.
tovrin_ai_service* createService(AiRuntimeConfig config,
                                 AiServiceOptions options);

}  // namespace tovrin::ai::detail

#endif  // TOVRIN_AI_CAPI_C_SERVICE_HPP_
