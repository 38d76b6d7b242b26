// The service's life and its game-loop calls: configuration, create,
// destroy, submit, cancel, pending and shutdown.
#include "capi/c_service.hpp"

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

namespace tovrin::ai::detail {

namespace {

// Struct sizes of every published version of the header, oldest first.
constexpr std::initializer_list<std::size_t> kConfigSizes = {
    sizeof(tovrin_ai_service_config)};

void setText(const char* text, const char*& data, std::size_t& size) {
  data = text;
  size = std::strlen(text);
}

// UTF-8 bytes to a path, which Windows keeps in UTF-16.
std::filesystem::path pathIn(const char* data, std::size_t size,
                             const char* what) {
  const std::string text = textIn(data, size, what);
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

}  // namespace

std::pair<AiRuntimeConfig, AiServiceOptions> serviceSettings(
    const tovrin_ai_service_config* given) {
  tovrin_ai_service_config c{};
  c.struct_size = sizeof c;
  tovrin_ai_service_config_defaults(&c);
  if (given != nullptr) {
    checkStructSize(given->struct_size, kConfigSizes, "config");
    std::memcpy(static_cast<void*>(&c), given, given->struct_size);
  }
  AiRuntimeConfig config;
  config.enabled = c.enabled != 0;
  config.endpoint = textIn(c.endpoint, c.endpoint_size, "config->endpoint");
  config.model = textIn(c.model, c.model_size, "config->model");
  config.helperPath =
      pathIn(c.helper_path, c.helper_path_size, "config->helper_path");
  config.fallbackEndpoint = textIn(c.fallback_endpoint,
                                   c.fallback_endpoint_size,
                                   "config->fallback_endpoint");
  config.fallbackModel = textIn(c.fallback_model, c.fallback_model_size,
                                "config->fallback_model");
  config.timeoutMs = c.timeout_ms;
  config.temperature = c.temperature;
  config.topP = c.top_p;
  config.watchdogEnabled = c.watchdog_enabled != 0;
  config.repairEnabled = c.repair_enabled != 0;
  AiServiceOptions options;
  options.workers = c.workers;
  options.queueLimit = c.queue_limit;
  options.deadline = std::chrono::milliseconds(c.deadline_ms);
  return {std::move(config), std::move(options)};
}

tovrin_ai_service* createService(AiRuntimeConfig config,
                                 AiServiceOptions options) {
  return newHandle<tovrin_ai_service>(
      std::make_unique<ServiceObject>(std::move(config), std::move(options)),
      HandleKind::kService);
}

}  // namespace tovrin::ai::detail

namespace ai = tovrin::ai;
using ai::detail::guarded;
using ai::detail::requirePointer;
using ai::detail::serviceOf;
using ai::detail::Shell;

tovrin_ai_status tovrin_ai_service_config_defaults(
    tovrin_ai_service_config* config) {
  return guarded([&](Shell*&) {
    requirePointer(config, "config");
    ai::detail::checkStructSize(config->struct_size,
                                ai::detail::kConfigSizes, "config");
    // The library's own defaults, so that the two never drift apart.
    const ai::AiRuntimeConfig runtime;
    const ai::AiServiceOptions options;
    tovrin_ai_service_config full{};
    full.enabled = runtime.enabled;
    ai::detail::setText(ai::kDefaultEndpoint, full.endpoint,
                        full.endpoint_size);
    ai::detail::setText(ai::kDefaultModel, full.model, full.model_size);
    ai::detail::setText(ai::kDefaultHelperPath, full.helper_path,
                        full.helper_path_size);
    ai::detail::setText("", full.fallback_endpoint,
                        full.fallback_endpoint_size);
    ai::detail::setText("", full.fallback_model, full.fallback_model_size);
    full.timeout_ms = runtime.timeoutMs;
    full.temperature = runtime.temperature;
    full.top_p = runtime.topP;
    full.watchdog_enabled = runtime.watchdogEnabled;
    full.repair_enabled = runtime.repairEnabled;
    full.workers = options.workers;
    full.queue_limit = options.queueLimit;
    full.deadline_ms = options.deadline.count();
    ai::detail::fillSized(config, full);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_create(
    const tovrin_ai_service_config* config, tovrin_ai_service** service) {
  if (service != nullptr) *service = nullptr;
  return guarded([&](Shell*&) {
    requirePointer(service, "service");
    auto [runtime, options] = ai::detail::serviceSettings(config);
    *service =
        ai::detail::createService(std::move(runtime), std::move(options));
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_destroy(tovrin_ai_service* service) {
  return ai::detail::destroyHandle<ai::detail::ServiceObject>(
      service, ai::detail::HandleKind::kService, "service");
}

tovrin_ai_status tovrin_ai_service_last_error(const tovrin_ai_service* service,
                                              const char** text, size_t* size) {
  return guarded([&](Shell*& where) {
    serviceOf(service, where);
    requirePointer(text, "text");
    requirePointer(size, "size");
    ai::detail::textOut(where->error, text, size);
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_submit(tovrin_ai_service* service,
                                          tovrin_ai_submission* submission,
                                          uint64_t* id) {
  return guarded([&](Shell*& where) {
    ai::detail::ServiceObject& s = serviceOf(service, where);
    Shell* own = nullptr;  // the submission's failures belong to the service
    auto& request = ai::detail::objectOf<ai::AiSubmission>(
        submission, ai::detail::HandleKind::kSubmission, "submission", own);
    requirePointer(id, "id");
    // Moved straight into submit's parameter, and reset whatever happens.
    try {
      *id = s.service.submit(std::move(request));
    } catch (...) {
      request = ai::AiSubmission{};
      throw;
    }
    request = ai::AiSubmission{};
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_cancel(tovrin_ai_service* service,
                                          uint64_t id, int32_t* cancelled) {
  return guarded([&](Shell*& where) {
    ai::detail::ServiceObject& s = serviceOf(service, where);
    requirePointer(cancelled, "cancelled");
    *cancelled = s.service.cancel(id) ? 1 : 0;
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_pending(const tovrin_ai_service* service,
                                           size_t* count) {
  return guarded([&](Shell*& where) {
    const ai::detail::ServiceObject& s = serviceOf(service, where);
    requirePointer(count, "count");
    *count = s.service.pending();
    return TOVRIN_AI_OK;
  });
}

tovrin_ai_status tovrin_ai_service_shutdown(tovrin_ai_service* service) {
  return guarded([&](Shell*& where) {
    serviceOf(service, where).service.shutdown();
    return TOVRIN_AI_OK;
  });
}
