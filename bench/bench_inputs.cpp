#include "bench/bench_inputs.hpp"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace tovrin::ai::bench {

namespace {

constexpr std::size_t kHelperBytes = 4096;

constexpr std::string_view kPersona =
    "Hostinský Karel, bručoun se zlatým srdcem.";

constexpr std::string_view kLongMessageUnit =
    "Mám 10 mincí a chleba stojí 3 mince. Na stole je 5 jablek, vezmu si 2 "
    "a 1 vrátím. Kolik je 12*(3+4)? Hostinský říká, že pivo stojí 4 mince. ";

std::string readHelperFile() {
  std::ifstream file(TOVRIN_AI_BENCH_HELPER, std::ios::in | std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(file)),
                   std::istreambuf_iterator<char>());
  if (text.empty()) {
    std::fprintf(stderr, "cannot read the helper text %s\n",
                 TOVRIN_AI_BENCH_HELPER);
    std::exit(1);
  }
  return text;
}

std::string repeatTo(std::string_view unit, std::size_t bytes) {
  std::string text;
  text.reserve(bytes + unit.size());
  while (text.size() < bytes) text += unit;
  text.resize(bytes);
  return text;
}

AiRequest breadRequest(AiRequestKind kind) {
  AiRequest request;
  request.kind = kind;
  request.persona = std::string(kPersona);
  request.message = "Mám 10 mincí a chleba stojí 3 mince. Jak ho koupím?";
  request.worldFacts = {
      "Chleba stojí 3 mince.",
      "Hráč si může koupit přesně 3 kus chleba a zůstanou mu přesně 1 mince."};
  request.allowedCommands = {"/buy", "/trade"};
  request.toolResults = {"3", "1"};
  return request;
}

// Facts and tool results for an answer dense with numbers and commands.
AiRequest denseRequest() {
  AiRequest request = breadRequest(AiRequestKind::CommandHelp);
  request.worldFacts.push_back("Pivo stojí 7 mincí.");
  request.worldFacts.push_back("Korbel má 2,5 litru.");
  request.worldFacts.push_back("Hráč nesmí dostat pivo zdarma.");
  request.toolResults = {"3", "1", "7", "2,5", "12", "40"};
  return request;
}

AiRequest arithmeticRequest(AiRequestKind kind) {
  AiRequest request;
  request.kind = kind;
  request.message = "Kolik je 12*(3+4)? Vysvětli mi to.";
  request.worldFacts = {"Přesný výsledek výpočtu  12*(3+4) je 84."};
  request.toolResults = {"84"};
  return request;
}

}  // namespace

const std::string& helperText4KiB() {
  static const std::string text = repeatTo(readHelperFile(), kHelperBytes);
  return text;
}

AiRequest typicalRequest() {
  AiRequest request;
  request.kind = AiRequestKind::NpcDialogue;
  request.persona = std::string(kPersona);
  request.worldFacts = {"Pivo stojí 4 mince.",
                        "Hráč nesmí dostat pivo zdarma."};
  request.allowedCommands = {"/trade"};
  request.message = "Kolik je 12*(3+4)? A dej mi pivo zdarma.";
  return request;
}

std::vector<AnswerCase> answerCases() {
  return {
      {"50B", breadRequest(AiRequestKind::CommandHelp),
       "Použij /buy chleba, koupíš 3 kusy a zbude ti 1.",
       {}},
      {"300B", breadRequest(AiRequestKind::CommandHelp),
       "Chleba koupíš příkazem /buy chleba. Za své mince dostaneš 3 kusy a "
       "zbude ti 1 mince. Když budeš chtít prodat, co neuneseš, použij /trade "
       "u hostinského nebo u kupce na náměstí. Čerstvý chléb voní až na "
       "cestu, tak neváhej a kup ho dřív, než ho rozeberou hráči z celé "
       "vesnice.",
       {}},
      // Six numbers (a decimal comma among them) and two commands, every
      // one of them allowed.
      {"dense300B", denseRequest(),
       "Chleba koupíš příkazem /buy za 3 mince a zbude ti 1. Pivo stojí 7 "
       "mincí, korbel má 2,5 litru a do města dojdeš za 12 minut. U brány "
       "stojí 40 strážných, tak se neperi. Když chceš prodat, použij "
       "/trade u kupce na náměstí. Víc ti neřeknu, hostinský má práci a "
       "venku prší.",
       {}},
      // A short answer may name no command, so this one is rejected.
      {"420B", arithmeticRequest(AiRequestKind::ShortAnswer),
       "Výsledek je 84. Násobení má přednost, ale závorka se počítá první, "
       "takže nejdřív sečteš a potom násobíš. Kdybys to chtěl ověřit ve hře, "
       "napiš /calc a výraz opiš tak, jak stojí v otázce. Kalkulačka ti "
       "ukáže totéž a nic jiného přidávat nemusíš. Pamatuj si, že závorky "
       "mění pořadí výpočtu a že bez nich by vyšlo něco jiného. Stejně tak "
       "počítá i každý kupec u stánků.",
       {"slash_command_forbidden"}},
  };
}

std::vector<MessageCase> typicalMessages() {
  return {
      {"arithmetic", "Kolik je 12*(3+4)?"},
      {"bread", "Mám 10 mincí a chleba stojí 3 mince. Kolik si koupím?"},
      {"apples", "Na stole je 5 jablek. Vezmu si 2 a 1 vrátím. Kolik jich "
                 "zůstane?"},
      {"none", "Dej mi pivo zdarma, prosím."},
  };
}

std::string longMessage(std::size_t bytes) {
  return repeatTo(kLongMessageUnit, bytes);
}

std::string completionBody(std::string_view rawContent) {
  std::string body =
      "{\"id\":\"chatcmpl-bench1\",\"object\":\"chat.completion\","
      "\"created\":1700000000,\"model\":\"bench-model\",\"choices\":[{"
      "\"index\":0,\"message\":{\"role\":\"assistant\",\"content\":\"";
  body += rawContent;
  body +=
      "\"},\"logprobs\":null,\"finish_reason\":\"stop\"}],\"usage\":{"
      "\"prompt_tokens\":1042,\"completion_tokens\":17,\"total_tokens\":"
      "1059}}";
  return body;
}

std::string httpResponse(std::string_view body) {
  std::string response =
      "HTTP/1.1 200 OK\r\nContent-Type: application/json; "
      "charset=utf-8\r\nContent-Length: ";
  response += std::to_string(body.size());
  response += "\r\nConnection: close\r\n\r\n";
  response += body;
  return response;
}

}  // namespace tovrin::ai::bench
