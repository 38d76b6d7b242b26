#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "testing/scripted_transport.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

namespace fs = std::filesystem;
using test::reply;
using test::ScriptedTransport;

class HelperFile : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("tovrin_ai_helper_" +
            std::string(::testing::UnitTest::GetInstance()
                            ->current_test_info()
                            ->name()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  fs::path write(const std::string& name, const std::string& bytes) {
    const fs::path path = dir_ / name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  static AiRuntime build(fs::path helperPath) {
    AiRuntimeConfig config;
    config.helperPath = std::move(helperPath);
    return AiRuntime(std::move(config), ScriptedTransport().transport());
  }

  fs::path dir_;
};

TEST_F(HelperFile, BytesAreKeptExactly) {
  const std::string bytes =
      "\xEF\xBB\xBFPiš spisovně.\r\nBez zkratek.\r\n" + std::string(1, '\0') +
      "konec";
  EXPECT_EQ(build(write("helper.txt", bytes)).helperText, bytes);
}

TEST_F(HelperFile, MissingEmptyOrUnreadableMeansNoHelperText) {
  EXPECT_EQ(build(dir_ / "missing.txt").helperText, "");
  EXPECT_EQ(build(write("empty.txt", "")).helperText, "");
  EXPECT_EQ(build(dir_).helperText, "");  // a directory
  EXPECT_EQ(build(fs::path()).helperText, "");
}

TEST_F(HelperFile, ReadOnceAtConstruction) {
  const fs::path path = write("helper.txt", "Piš spisovně.");
  ScriptedTransport script({reply("Dobrý den.")});
  AiRuntimeConfig config;
  config.helperPath = path;
  const AiRuntime runtime(std::move(config), script.transport());
  fs::remove(path);

  AiRequest request;
  request.kind = AiRequestKind::CommandHelp;
  request.message = "Ahoj";
  ASSERT_TRUE(runtime.ask(request).ok);
  ASSERT_EQ(script.calls().size(), 1u);
  const std::string& system = script.calls()[0].systemPrompt;
  EXPECT_EQ(system.substr(system.size() - 46),
            "\nČESKÝ POMOCNÍK A PRAVIDLA:\nPiš spisovně.");
}

TEST(Runtime, EmptyTransportBecomesTheHttpTransport) {
  AiRuntimeConfig config;
  config.helperPath.clear();
  const AiRuntime runtime(std::move(config), AiTransport{});
  using Signature = std::string (*)(const AiRuntimeConfig&, const std::string&,
                                    const std::string&, const std::string&,
                                    const std::string&, std::size_t);
  const Signature* target = runtime.transport.target<Signature>();
  ASSERT_NE(target, nullptr);
  EXPECT_EQ(*target, &httpChatCompletion);
}

TEST(Runtime, CallerTransportIsUsedAsGiven) {
  ScriptedTransport script({reply("Dobrý den.")});
  AiRuntimeConfig config;
  config.helperPath.clear();
  config.endpoint = "http://127.0.0.1:1/never";
  const AiRuntime runtime(std::move(config), script.transport());
  AiRequest request;
  request.message = "Ahoj";
  const AiResponse response = runtime.ask(request);
  EXPECT_TRUE(response.ok);
  EXPECT_EQ(response.answer, "Dobrý den.");
  ASSERT_EQ(script.calls().size(), 1u);
  EXPECT_EQ(script.calls()[0].endpoint, "http://127.0.0.1:1/never");
}

}  // namespace
}  // namespace tovrin::ai
