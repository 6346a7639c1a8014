#include "agents/native_agent_context.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "base/byte_queue.h"
#include "base/failure.h"
#include "base/record.h"
#include "support/temporary_directory.h"

namespace velotide {
namespace {

namespace fs = std::filesystem;

class NativeAgentContext : public testing::Test {
 protected:
  std::errc refusal() {
    try {
      context.prepare(tab, root);
      return {};
    } catch (const SystemFailure& failure) {
      EXPECT_FALSE(context.token() || context.file());
      return failure.word;
    }
  }

  const Uuid tab = Uuid::random();
  const TemporaryDirectory top;
  const std::string root = top.path() + "/native-tools";
  const fs::path directory = fs::path(root) / "native-agent-contexts";
  TerminalNativeAgentContext context;
};

TEST_F(NativeAgentContext, LivesInOnePrivateFileUntilItEnds) {
  const std::string path = context.prepare(tab, root);
  EXPECT_EQ(fs::path(path).parent_path(), directory);
  EXPECT_NE(Uuid::parse(fs::path(path).stem().string()).value(), tab);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
  EXPECT_EQ(fs::status(directory).permissions(), fs::perms(0700));
  std::ifstream file(path);
  ByteQueue buffer;
  buffer.append(std::string(std::istreambuf_iterator<char>(file), {}));
  JsonDocument document;
  using Descriptor = TerminalNativeAgentContext::Descriptor;
  EXPECT_EQ(decodeText<Descriptor>(document, buffer.mutableText()),
            (Descriptor{1, tab, root, context.token().value()}));

  EXPECT_EQ(context.prepare(Uuid::random(), "/elsewhere"), path);
  {
    TerminalNativeAgentContext other;
    EXPECT_NE(other.prepare(tab, root), path);
    EXPECT_NE(other.token(), context.token());
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(directory), {}), 1);
  context.invalidate();
  context.invalidate();
  EXPECT_TRUE(fs::is_empty(directory));
  EXPECT_NE(context.prepare(tab, root), path);
}

TEST_F(NativeAgentContext, AuthorizesTheExactTokenAlone) {
  EXPECT_FALSE(context.authorizes(std::nullopt));
  context.prepare(tab, root);
  const std::string token = context.token().value();
  EXPECT_TRUE(context.authorizes(token));
  for (const std::string& other : {token.substr(0, 71), token.substr(0, 71) + '!', '!' + token.substr(1)})
    EXPECT_FALSE(context.authorizes(other)) << other;
  context.invalidate();
  EXPECT_FALSE(context.authorizes(token));
}

TEST_F(NativeAgentContext, RefusesADirectoryThatOthersCouldReach) {
  fs::create_directories(directory);
  for (const unsigned mode : {0750U, 0701U, 0700U}) {
    fs::permissions(directory, fs::perms(mode));
    EXPECT_EQ(refusal(), mode == 0700 ? std::errc{} : std::errc::permission_denied) << mode;
  }
  context.invalidate();
  fs::rename(directory, top.path() + "/planted");
  fs::create_directory_symlink(top.path() + "/planted", directory);
  EXPECT_EQ(refusal(), std::errc::permission_denied);
  EXPECT_TRUE(fs::is_empty(top.path() + "/planted"));
}

}  // namespace
}  // namespace velotide
