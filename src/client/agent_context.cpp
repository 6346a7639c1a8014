#include "client/agent_context.h"

#include <unistd.h>

#include <cstdlib>

#include "agents/native_agent_context.h"
#include "base/private_files.h"
#include "client/private_record.h"

namespace velotide::client {

namespace {

constexpr std::string_view descriptorSuffix = ".json";

std::string directoryOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

std::string descriptorsOf(const std::string& mailbox) { return mailbox + "/native-agent-contexts/"; }

}  // namespace

bool AgentContext::isLive(const std::string& other) const {
  return ::access((descriptorsOf(mailbox) + other + std::string(descriptorSuffix)).c_str(), F_OK) == 0;
}

std::optional<AgentContext> AgentContext::find() {
  const char* variable = std::getenv("VELOTIDE_AGENT_CONTEXT");
  if (!variable || *variable == '\0') return std::nullopt;
  const std::string path = variable;
  const auto descriptor = readPrivateRecord<TerminalNativeAgentContext::Descriptor>(path);
  if (!descriptor) return std::nullopt;

  const std::string& mailbox = descriptor->root;
  const std::string name = path.substr(path.rfind('/') + 1);
  // A descriptor lies where the service puts it, or somebody else wrote it.
  if (descriptor->protocolVersion != 1 || path != descriptorsOf(mailbox) + name ||
      !name.ends_with(descriptorSuffix) || !isPrivateDirectory(directoryOf(path)))
    throw Trouble("VELOTIDE_AGENT_CONTEXT names a file that no service of this version wrote: " + path + ".");
  AgentContext context;
  context.tabID = descriptor->tabID;
  context.mailbox = mailbox;
  context.serviceRoot = directoryOf(mailbox);
  context.records = mailbox + "/agent-records";
  context.token = descriptor->token;
  context.name = name.substr(0, name.size() - descriptorSuffix.size());
  return context;
}

}  // namespace velotide::client
