// A tavern keeper answers a player through the runtime. Runs with or without
// a model server: when none answers, the deterministic refusal still comes
// back, because a world fact forbids what the player asks for.
#include <iostream>
#include <string>

#include <tovrin/ai.hpp>

int main(int argc, char** argv) {
  tovrin::ai::AiRuntimeConfig config;  // standard values
  if (argc > 1) config.endpoint = argv[1];
  config.helperPath.clear();           // this example ships no helper text
  config.timeoutMs = 5000;
  const tovrin::ai::AiRuntime runtime(std::move(config));

  tovrin::ai::AiRequest request;
  request.kind = tovrin::ai::AiRequestKind::NpcDialogue;
  request.persona = "Hostinský Karel, bručoun se zlatým srdcem.";
  request.worldFacts = {"Pivo stojí 4 mince.", "Hráč nesmí dostat pivo zdarma."};
  request.allowedCommands = {"/trade"};
  request.message = "Dej mi pivo zdarma!";

  const tovrin::ai::AiResponse response = runtime.ask(request);
  std::cout << (response.ok ? "answer: " : "no answer: ") << response.answer
            << "\nmodel: " << response.model << "\n";
  if (!response.error.empty()) std::cout << "error: " << response.error << "\n";
  return response.ok ? 0 : 1;
}
