#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "testing/files.hpp"
#include "testing/scripted_transport.hpp"
#include "tovrin/ai.hpp"

namespace tovrin::ai {
namespace {

namespace fs = std::filesystem;

std::string helperTextOf(const fs::path& helperPath) {
  return AiRuntime(AiRuntimeConfig{.helperPath = helperPath}, test::ScriptedTransport().transport())
      .helperText;
}

TEST(Runtime, HelperFileIsReadOnceAsItsBytes) {
  std::optional<test::TempDir> folder(std::in_place, "helper");
  const fs::path dir = folder->path();
  const std::string bytes = "\xEF\xBB\xBFPiš spisovně.\r\nBez zkratek.\r\n" + std::string(1, '\0') + "konec";
  folder->write("helper.txt", bytes);
  folder->write("empty.txt", "");
  EXPECT_EQ(helperTextOf(dir / "helper.txt"), bytes);
  for (const fs::path& none : {dir / "missing.txt", dir / "empty.txt", dir, fs::path()}) {
    EXPECT_EQ(helperTextOf(none), "") << none;
  }
  // Read at construction: a file removed later still reaches the prompt.
  test::ScriptedTransport script({test::reply("Dobrý den.")});
  const AiRuntime runtime(AiRuntimeConfig{.helperPath = dir / "helper.txt"}, script.transport());
  folder.reset();
  ASSERT_TRUE(runtime.ask({.message = "Ahoj", .kind = AiRequestKind::CommandHelp}).ok);
  ASSERT_EQ(script.calls().size(), 1u);
  EXPECT_TRUE(script.calls()[0].systemPrompt.ends_with("\nČESKÝ POMOCNÍK A PRAVIDLA:\n" + bytes));
}

}  // namespace
}  // namespace tovrin::ai
