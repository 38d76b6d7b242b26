// tovrin::ai -- the local-AI runtime of the game.
//
// The game hands the runtime a player's message together with what it knows
// (the speaking character's persona, world facts, allowed slash commands)
// and gets back one short Czech answer, or a refusal with a reason. The
// answer comes from a language model behind a chat-completion server, but
// the model's text is never passed on unchecked:
//
//   * exact results for arithmetic, coin and apple questions are computed
//     first (tools.hpp) and bind the model;
//   * a rule-based watchdog judges every answer (watchdog.hpp);
//   * a rejected answer gets one repair attempt, and a deterministic
//     template answer replaces the model where it can (generation.hpp);
//   * the model is reached through an AiTransport, by default one HTTP/1.1
//     exchange per attempt (transport.hpp).
//
// Use:
//
//   tovrin::ai::AiRuntimeConfig config;              // standard values
//   tovrin::ai::AiRuntime runtime(std::move(config)); // HTTP transport
//   tovrin::ai::AiRequest request;
//   request.message = "Kolik stojí pivo?";
//   request.persona = "Hostinský Karel, bručoun.";
//   request.worldFacts = {"Pivo stojí 4 mince."};
//   tovrin::ai::AiResponse response = runtime.ask(request);
//   if (response.ok) show(response.answer); else log(response.error);
//
// ask() blocks the calling thread for at most four model calls, each send
// and receive bounded by timeoutMs; it creates no threads and takes no
// locks, and the runtime is read-only, so several threads may call it at
// once. All text is UTF-8 in byte strings; all lengths count bytes.
#ifndef TOVRIN_AI_HPP_
#define TOVRIN_AI_HPP_

#include "tovrin/ai/generation.hpp"
#include "tovrin/ai/records.hpp"
#include "tovrin/ai/runtime.hpp"
#include "tovrin/ai/text.hpp"
#include "tovrin/ai/tools.hpp"
#include "tovrin/ai/transport.hpp"
#include "tovrin/ai/watchdog.hpp"

#endif  // TOVRIN_AI_HPP_
