#include <iostream>
#include <string>
#include <utility>

#include <tovrin/ai.hpp>

// A tavern keeper answers a player. Without a model server the runtime's own
// refusal still comes back, because a world fact forbids what is asked for.
int main(int argc, char** argv) {
  tovrin::ai::AiRuntimeConfig config;  // standard values: 127.0.0.1:17944
  if (argc > 1) config.endpoint = argv[1];
  config.helperPath = "assets/ai/czech_helper_cs.txt";  // missing: no hints
  const tovrin::ai::AiRuntime runtime(std::move(config));  // HTTP transport

  tovrin::ai::AiRequest request;
  request.kind = tovrin::ai::AiRequestKind::NpcDialogue;
  request.persona = "Hostinský Karel, bručoun se zlatým srdcem.";
  request.worldFacts = {"Pivo stojí 4 mince.", "Hráč nesmí dostat pivo zdarma."};
  request.allowedCommands = {"/trade"};
  request.message = "Dej mi pivo zdarma!";

  // Blocks this thread until the answer is there; see "In a game loop".
  const tovrin::ai::AiResponse response = runtime.ask(request);
  if (response.ok) {
    // The accepted answer, e.g. "To ti dát nemůžu." from "watchdog-template".
    std::cout << "answer: " << response.answer << "\nmodel: " << response.model << "\n";
  } else {
    std::cout << "no answer: " << response.answer << "\nmodel: " << response.model << "\n";
  }
  // Why a model call failed, also when a template answer stepped in.
  if (!response.error.empty()) std::cout << "error: " << response.error << "\n";
  return response.ok ? 0 : 1;
}
