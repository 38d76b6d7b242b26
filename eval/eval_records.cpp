#include "eval_records.hpp"

#include <charconv>
#include <cstdint>

#include "tovrin/ai/watchdog.hpp"

namespace tovrin::ai::eval {

namespace {

// Indexed by the kind's value.
constexpr std::string_view kKindNames[] = {
    "NpcDialogue",
    "CommandHelp",
    "GeneralChat",
    "ShortAnswer",
    "ChatModeration",
    "AntiCheatTriage",
};

}  // namespace

std::string kindName(AiRequestKind kind) {
  const auto value = static_cast<std::uint32_t>(kind);
  if (value < std::size(kKindNames)) return std::string(kKindNames[value]);
  return std::to_string(value);
}

std::optional<AiRequestKind> kindFromName(std::string_view name) {
  for (std::size_t i = 0; i < std::size(kKindNames); ++i) {
    if (name == kKindNames[i]) return static_cast<AiRequestKind>(i);
  }
  std::uint32_t value = 0;
  const auto [end, error] =
      std::from_chars(name.data(), name.data() + name.size(), value);
  if (error != std::errc() || end != name.data() + name.size() ||
      name.empty() || value >= std::size(kKindNames)) {
    return std::nullopt;
  }
  return static_cast<AiRequestKind>(value);
}

std::span<const std::string_view> labelsOf(AiRequestKind kind) {
  if (kind == AiRequestKind::ChatModeration) return kModerationLabels;
  if (kind == AiRequestKind::AntiCheatTriage) return kTriageLabels;
  return {};
}

std::string_view outcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::kModel:
      return "model";
    case Outcome::kTemplate:
      return "template";
    case Outcome::kRejected:
      return "rejected";
    case Outcome::kTransportFailure:
      return "transport_failure";
  }
  return "model";
}

}  // namespace tovrin::ai::eval
