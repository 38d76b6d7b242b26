// A stand-in for a model server, for the model-server layer's tests and
// measurements. It listens on 127.0.0.1 at once, answers GET /health with
// llama-server's recorded 503 "Loading model" until it is ready and 200
// after, and POST /v1/chat/completions with a fixed answer shaped like
// llama-server's. Flags make it misbehave the ways real servers do:
//
//   --port N                 where to listen (required)
//   --ready-after-ms N       loading time before /health says 200 (0)
//   --model PATH             exit 1 with llama-server's log lines when missing
//   --exit-after-requests N  exit (status 3) after answering N completions
//   --exit-after-ms N        exit (status 3) N ms after it started
//   --hang-after-ms N        stop answering N ms after it started
//   --crash-with-signal      those exits are abort() instead
//   --ignore-stop            ignore the polite stop
//   --spawn-child            start a child that sleeps (and ignores the stop
//                            too when asked); prints its process id
//   --flood-output N         write N bytes to stdout and stderr before listening
//   --note TEXT              no effect; every argument is printed at start
//   --sleep-ms N             only sleep (the spawned child)
//
// Times it prints ("ready at", "exiting at") are steady-clock nanoseconds,
// which on Linux and Windows every process on the machine shares.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "server/process_platform.hpp"
#include "server/testing/stand_in_platform.hpp"
#include "transport/socket_platform.hpp"

namespace {

using namespace tovrin::ai;
using Clock = std::chrono::steady_clock;

// The recorded answers' bytes, as llama-server sent them.
constexpr const char* kHead =
    "Connection: close\r\nContent-Type: application/json; charset=utf-8\r\nServer: llama.cpp\r\n";
constexpr const char* kLoadingBody = R"({"error":{"code":503,"message":"Loading model","type":"unavailable_error"}})";
constexpr const char* kReadyBody = R"({"status":"ok"})";
constexpr const char* kNotFoundBody = R"({"error":{"code":404,"message":"File Not Found","type":"not_found_error"}})";
constexpr const char* kCompletionBody =
    R"({"choices":[{"finish_reason":"stop","index":0,"message":{"role":"assistant","content":"Dobrý den, poutníku."}}],)"
    R"("created":1795384331,"model":"Qwen2.5-1.5B-Instruct-Q8","system_fingerprint":"b4748-c392e5094",)"
    R"("object":"chat.completion","usage":{"completion_tokens":7,"prompt_tokens":177,"total_tokens":184},)"
    R"("id":"chatcmpl-standin"})";

std::string answer(const char* status, const std::string& body) {
  return std::string("HTTP/1.1 ") + status + "\r\n" + kHead + "Content-Length: " + std::to_string(body.size()) +
         "\r\nAccess-Control-Allow-Origin: \r\n\r\n" + body;
}

long long nowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

void say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

[[noreturn]] void leave(bool crash) {
  say("stand-in: exiting at " + std::to_string(nowNs()));
  if (crash) std::abort();
  std::exit(3);
}

// Reads a request up to its head's end and the body's announced length,
// for at most two seconds.
std::string readRequest(const detail::Socket& connection) {
  std::string request;
  char buffer[4096];
  const Clock::time_point limit = Clock::now() + std::chrono::seconds(2);
  while (Clock::now() < limit) {
    const std::size_t headEnd = request.find("\r\n\r\n");
    if (headEnd != std::string::npos) {
      const std::size_t at = request.find("Content-Length: ");
      const std::size_t length = at < headEnd ? std::stoul(request.substr(at + 16)) : 0;
      if (request.size() >= headEnd + 4 + length) break;
    }
    if (!detail::waitReadable(connection, 50)) continue;
    const std::ptrdiff_t n = detail::receiveSome(connection, buffer, sizeof buffer);
    if (n <= 0) break;
    request.append(buffer, static_cast<std::size_t>(n));
  }
  return request;
}

void sendAll(const detail::Socket& connection, const std::string& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const std::ptrdiff_t n = detail::sendSome(connection, bytes.data() + sent, bytes.size() - sent);
    if (n < 1) return;
    sent += static_cast<std::size_t>(n);
  }
}

// Lines of 63 'x', in blocks of 64 KiB, alternately to stdout and stderr.
void flood(long long bytes) {
  std::string block;
  for (int i = 0; i < 1024; ++i) block += std::string(63, 'x') + "\n";
  for (long long written = 0; written < bytes; written += static_cast<long long>(block.size())) {
    const std::size_t size = static_cast<std::size_t>(std::min<long long>(bytes - written, static_cast<long long>(block.size())));
    std::FILE* stream = written / static_cast<long long>(block.size()) % 2 == 0 ? stdout : stderr;
    std::fwrite(block.data(), 1, size, stream);
    std::fflush(stream);
  }
  say("stand-in: flood done");
}

void spawnSleeper(const std::filesystem::path& self, bool ignoreStop) {
  // Never destroyed: the child must outlive this program unless someone
  // kills it. Held by a static, so leak checkers see it reachable.
  static auto* child = new detail::ChildProcess;
  std::vector<std::string> flags = {"--sleep-ms", "60000"};
  if (ignoreStop) flags.push_back("--ignore-stop");
  const std::string error = detail::spawnProcess({self, flags, {}, false}, *child);
  say(error.empty() ? "stand-in: child process " + std::to_string(child->id()) : "stand-in: no child: " + error);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments = test::utf8Arguments(argc, argv);
  std::map<std::string, std::string> flags;
  say("stand-in: arguments:");
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    say("  [" + arguments[i] + "]");
    const bool takesValue = arguments[i] != "--crash-with-signal" && arguments[i] != "--ignore-stop" &&
                            arguments[i] != "--spawn-child";
    if (takesValue && i + 1 >= arguments.size()) {
      say("stand-in: " + arguments[i] + " needs a value");
      return 2;
    }
    flags[arguments[i]] = takesValue ? arguments[i + 1] : "";
    if (takesValue) say("  [" + arguments[++i] + "]");
  }
  const auto number = [&](const std::string& flag) { return flags.count(flag) ? std::stoll(flags[flag]) : 0; };
  const bool ignoreStop = flags.count("--ignore-stop") > 0;
  if (ignoreStop) test::ignorePoliteStop();
  if (flags.count("--sleep-ms")) {
    std::this_thread::sleep_for(std::chrono::milliseconds(number("--sleep-ms")));
    return 0;
  }
  const Clock::time_point start = Clock::now();
  const bool crash = flags.count("--crash-with-signal") > 0;
  if (flags.count("--spawn-child")) spawnSleeper(test::ownProgram(), ignoreStop);
  if (flags.count("--flood-output")) flood(number("--flood-output"));

  const detail::SocketLibrary library;
  detail::Socket listener;
  std::uint16_t port = 0;
  if (!detail::listenLoopback(static_cast<std::uint16_t>(number("--port")), listener, port)) {
    say("start: couldn't bind HTTP server to 127.0.0.1:" + std::to_string(number("--port")));
    return 1;
  }
  say("main: HTTP server is listening, hostname: 127.0.0.1, port: " + std::to_string(port));
  if (flags.count("--model")) {
    const std::string model = flags["--model"];
    say("main: loading model\nsrv    load_model: loading model '" + model + "'");
    if (!std::filesystem::exists(std::filesystem::path(std::u8string(model.begin(), model.end())))) {
      say("gguf_init_from_file: failed to open GGUF file '" + model + "'");
      say("srv    load_model: failed to load model, '" + model + "'");
      return 1;
    }
  }
  const Clock::time_point readyAt = start + std::chrono::milliseconds(number("--ready-after-ms"));
  say("stand-in: ready at " + std::to_string(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                  readyAt.time_since_epoch()).count()));
  const long long exitAfterMs = number("--exit-after-ms");
  const long long hangAfterMs = number("--hang-after-ms");
  long long completionsLeft = flags.count("--exit-after-requests") ? number("--exit-after-requests") : -1;
  for (;;) {
    if (exitAfterMs > 0 && Clock::now() >= start + std::chrono::milliseconds(exitAfterMs)) leave(crash);
    if (hangAfterMs > 0 && Clock::now() >= start + std::chrono::milliseconds(hangAfterMs)) {
      say("stand-in: no more answers");
      std::this_thread::sleep_for(std::chrono::hours(1));
    }
    if (!detail::waitReadable(listener, 5)) continue;
    const detail::Socket connection = detail::acceptConnection(listener);
    if (!connection.isOpen()) continue;
    detail::setTimeouts(connection, 2000);
    const std::string request = readRequest(connection);
    const bool ready = Clock::now() >= readyAt;
    if (request.starts_with("GET /health ")) {
      sendAll(connection, ready ? answer("200 OK", kReadyBody) : answer("503 Service Unavailable", kLoadingBody));
    } else if (request.starts_with("POST /v1/chat/completions ")) {
      if (!ready) {
        sendAll(connection, answer("503 Service Unavailable", kLoadingBody));
        continue;
      }
      sendAll(connection, answer("200 OK", kCompletionBody));
      say("srv  log_server_r: request: POST /v1/chat/completions 127.0.0.1 200");
      if (completionsLeft > 0 && --completionsLeft == 0) leave(crash);
    } else {
      sendAll(connection, answer("404 Not Found", kNotFoundBody));
    }
  }
}
