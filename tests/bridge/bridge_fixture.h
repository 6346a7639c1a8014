#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "agents/native_agent_context.h"
#include "base/private_files.h"
#include "bridge/native_bridge.h"
#include "support/temporary_directory.h"

namespace velotide {

inline std::string newText() { return Uuid::random().text(); }

// A mailbox in a directory of its own, over one running session.
class Bridge : public testing::Test, protected BridgeSessions {
 protected:
  Bridge() { open(); }

  void open() {
    bridge.emplace(root, events);
    bridge->setWaits(waits);
    bridge->setAttentionStore(attention);
  }

  // Puts a request file there, whole, and answers its identifier. The text gets "id" as its first key.
  std::string drop(const std::string& request, const std::string& id = newText()) const {
    put("requests/" + id + ".json", "{\"id\":\"" + id + "\"," + request + "}");
    return id;
  }
  void put(const std::string& path, const std::string& content) const {
    replacePrivateFile(root + "/" + path, root + "/" + newText() + ".new", bytesOf(content));
  }
  std::string text(const std::string& path) const {
    std::ifstream file(root + "/" + path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::vector<std::string> names(const std::string& directory) const {
    std::vector<std::string> all;
    for (const auto& entry : std::filesystem::directory_iterator(root + "/" + directory))
      all.push_back(entry.path().filename());
    return all;
  }
  void pass() { bridge->process(*this, now); }

  // The response to `id`, or nothing; it is then collected.
  std::optional<RuntimeNativeResponse> collect(const std::string& id) const {
    const std::string content = text("responses/" + id + ".json");
    if (content.empty()) return std::nullopt;
    ByteQueue bytes;
    bytes.append(content);
    ::unlink((root + "/responses/" + id + ".json").c_str());
    JsonDocument document;
    return decodeText<RuntimeNativeResponse>(document, bytes.mutableText());
  }
  RuntimeNativeResponse ask(const std::string& request) {
    const std::string id = drop(request);
    pass();
    return collect(id).value_or(RuntimeNativeResponse{});
  }

  bool contains(const Uuid& tabID) const override { return tabID == tab; }
  bool isRunning(const Uuid&) const override { return running; }
  const std::optional<TerminalAgentSnapshot>& agent(const Uuid&) const override { return monitor.snapshot(); }
  bool authorizes(const Uuid&, const std::optional<std::string>& token) const override {
    return context.authorizes(token);
  }
  void updateAgent(const Uuid&, const std::function<void(TerminalAgentMonitor&)>& change) override {
    change(monitor);
    events.publish(tab, TerminalSessionEventKind::agentChanged, now, {.agent = monitor.snapshot()});
  }

  const SystemClock clock;
  Date now = clock.date();
  const Uuid tab = Uuid::random();
  const std::string tabKey = "\"tab\":\"" + tab.text() + "\"";
  bool running = true;
  TerminalAgentMonitor monitor;
  TerminalNativeAgentContext context;
  TerminalSessionEventStore events{Uuid::random(), 4};
  TerminalAttentionStore attention{events, clock};
  TerminalWaitCoordinator waits{{events, [](const Uuid&) { return TerminalWaitTargetSnapshot{}; },
                                 [this] { return attention.activeView(); }, [] { return true; }}};
  const TemporaryDirectory home;
  const std::string root = home.path() + "/native-tools";
  std::optional<RuntimeNativeBridge> bridge;
};

}  // namespace velotide
