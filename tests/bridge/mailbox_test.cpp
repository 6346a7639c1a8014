#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "agents/native_agent_context.h"
#include "base/platform.h"
#include "base/private_files.h"
#include "bridge/native_bridge.h"
#include "protocol/runtime_failure.h"
#include "support/refusal.h"
#include "support/temporary_directory.h"

namespace velotide {
namespace {

namespace fs = std::filesystem;

std::string newText() { return Uuid::random().text(); }

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
    for (const auto& entry : fs::directory_iterator(root + "/" + directory))
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

const std::string request = R"("action":"list_attention")";

TEST_F(Bridge, HostileFilesAreRemovedWithoutAnAnswer) {
  const auto path = [this] { return root + "/requests/" + newText() + ".json"; };
  const std::string linked = drop(request);
  fs::rename(root + "/requests/" + linked + ".json", root + "/elsewhere.json");
  fs::create_symlink(root + "/elsewhere.json", root + "/requests/" + linked + ".json");
  fs::create_symlink("/dev/zero", path());
  fs::create_symlink("loop.json", root + "/requests/loop.json");
  ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
  FileDescriptor listener(::socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(platform::bindLocal(listener.get(), root + "/requests/s.json"), 0);
  for (const char* content : {"", "{", "[]", "null", "{\"id\":\"x\",\"action\":\"fly\"}"})
    put("requests/" + newText() + ".json", content);
  drop(request.substr(0, 15));
  drop("\"tab\":\"x\"");
  fs::permissions(root + "/requests/" + drop(request) + ".json", fs::perms(0640));
  if (::getuid() == 0) {
    ASSERT_EQ(::chown((root + "/requests/" + drop(request) + ".json").c_str(), 1, 0), 0);
  }
  const std::string lower = "aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee";
  put("requests/AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE.json", "{\"id\":\"" + lower + "\"," + request + "}");
  drop(request, "two\nlines");
  drop(request, "\xFF\xFE");
  drop(request, "");
  const std::size_t room = 131072 - std::string(R"({"id":"",})").size() - lower.size() - request.size();
  const std::string largest = drop(request + std::string(room, ' '));
  drop(request + std::string(room + 1, ' '));
  drop(request, lower);
  for (int each = 0; each < 3; ++each) pass();
  EXPECT_TRUE(collect(largest));
  EXPECT_TRUE(collect(lower));
  EXPECT_TRUE(names("requests").empty());
  EXPECT_TRUE(names("responses").empty());
  EXPECT_TRUE(fs::exists(root + "/elsewhere.json"));
}

TEST_F(Bridge, RequestsAreTakenUpInBoundedPassesAndNotHiddenByNamesThatStay) {
  std::vector<std::string> ids;
  for (int each = 0; each < 40; ++each) ids.push_back(drop(request));
  for (std::size_t most : {16U, 32U, 48U}) {
    pass();
    EXPECT_LE(names("responses").size(), most);
  }
  for (const std::string& id : ids) EXPECT_TRUE(collect(id));
  for (int each = 0; each < 100; ++each) {
    fs::create_directory(root + "/requests/" + newText() + ".json");
    put("requests/" + newText() + ".pending", "");
  }
  const std::string id = drop(request);
  for (int each = 0; each < 14; ++each) pass();
  EXPECT_TRUE(collect(id));
  EXPECT_EQ(names("requests").size(), 200U);
}

TEST_F(Bridge, DirectoriesMayVanishAndComeBack) {
  for (const std::string& directory : {std::string("/requests"), std::string("/responses")}) {
    pass();
    fs::rename(root + directory, root + "/moved");
    now = now + 2;
    directory == "/requests" ? pass() : static_cast<void>(ask(request));
    fs::create_directory(root + directory);
    EXPECT_TRUE(names("responses").empty());
    EXPECT_FALSE(ask(request).id.empty());
    fs::remove_all(root + directory);
    fs::rename(root + "/moved", root + directory);
    EXPECT_FALSE(ask(request).id.empty());

    const std::size_t held = names(directory).size() + (directory == "/requests" ? 1 : 0);
    fs::rename(root + directory, root + "/moved");
    fs::create_directory_symlink(root + "/moved", root + directory);
    EXPECT_TRUE(ask(request).id.empty());
    EXPECT_EQ(names("moved").size(), held) << "neither read nor written through a link";
    fs::remove(root + directory);
    fs::rename(root + "/moved", root + directory);
  }
}

TEST_F(Bridge, ResponsesNobodyCollectsGo) {
  std::vector<std::string> ids;
  for (; ids.size() < 257; pass()) ids.push_back(drop(request));
  pass();
  EXPECT_EQ(names("responses").size(), 256U);
  EXPECT_FALSE(collect(ids.front()));
  const timespec old[2] = {{0, 0}, {::time(nullptr) - 302, 0}};
  put("responses/note.txt", "");
  for (const std::string& name : names("responses")) {
    if (name != ids.back() + ".json") ::utimensat(AT_FDCWD, (root + "/responses/" + name).c_str(), old, 0);
  }
  now = now + 1.1;
  for (int each = 0; each < 30; ++each) pass();
  EXPECT_EQ(names("responses").size(), 2U);
  EXPECT_TRUE(collect(ids.back()));
}

TEST_F(Bridge, StartClearsLeftoversUpToABound) {
  const auto fill = [this](int count) {
    for (int each = 0; each < count; ++each) std::ofstream(root + "/requests/" + newText() + ".json");
  };
  const auto refused = [this] { return refusal<RuntimeFailure>([this] { open(); }); };
  fill(1024);
  put("responses/x.json", "");
  put("responses/x.pending", "");
  EXPECT_EQ(refused(), "");
  EXPECT_TRUE(names("requests").empty());
  EXPECT_EQ(names("responses"), std::vector<std::string>{"x.pending"});
  fill(1025);
  EXPECT_EQ(refused(), "resource_limit");
  for (const char* directory : {"", "/requests", "/responses"}) {
    fs::permissions(root + directory, fs::perms(0750));
    EXPECT_EQ(refused(), "invalid_capability");
    fs::permissions(root + directory, fs::perms(0700));
  }
  events.publish(tab, TerminalSessionEventKind::registered, now);
  EXPECT_EQ(refused(), "");
  const std::string epoch = R"("appEpoch":")" + events.appEpoch().text() + "\"";
  EXPECT_EQ(text("runtime.json"), R"({"schemaVersion":1,)" + epoch + R"(,"pid":)" +
                                      std::to_string(::getpid()) + R"(,"version":"1.257.0-rc3","cursor":{)" +
                                      epoch + R"(,"sequence":1}})");
  EXPECT_EQ(fs::status(root + "/runtime.json").permissions(), fs::perms(0600));
  fs::rename(root, root + "-moved");
  fs::create_directory_symlink(root + "-moved", root);
  EXPECT_EQ(refused(), "invalid_capability");
}

TEST_F(Bridge, EveryRefusalHasItsWord) {
  context.prepare(tab, root);
  const std::string token = R"(,"nativeAgentToken":")" + *context.token() + "\"";
  const std::string id = R"("11111111-2222-4333-8444-555555555555")";
  const std::string from = R"({"appEpoch":")" + events.appEpoch().text() + R"(","sequence":)";
  for (int each = 0; each < 6; ++each) events.publish(tab, TerminalSessionEventKind::outputChanged, now);
  using Row = std::pair<std::string, const char*>;
  for (const auto& [asked, word] :
       {Row{R"(list_attention","tab":"x")", "unavailable"},
        Row{R"(get_agent_state","controlID":"x")", "unavailable"},
        Row{R"(get_agent_state","tab":)" + id, "unavailable"}, Row{R"(fly","tab":)" + id, "unavailable"},
        Row{R"(fly",)" + tabKey, "invalidCapability"},
        Row{R"(List_attention",)" + tabKey, "invalidCapability"},
        Row{R"(bind_native_agent","agentKind":"tesseral",)" + tabKey, "invalidCapability"},
        Row{R"(bind_native_agent",)" + tabKey + token, "invalidCapability"},
        Row{R"(bind_native_agent","agentKind":"claude",)" + tabKey + token, "invalidCapability"},
        Row{R"(report_agent_state",)" + tabKey, "invalidState"},
        Row{R"(report_agent_state","agentReport":{"instanceID":)" + id + R"(,"runID":)" + id +
                R"(,"token":"","sequence":1,"activity":"idle"},)" + tabKey,
            "invalidCapability"},
        Row{R"(read_session_events","eventCursor":)" + from + "99}", "future_cursor"},
        Row{R"(read_session_events","eventCursor":)" + from + "1}", "cursor_expired"},
        Row{R"(read_session_events","eventCursor":{"appEpoch":)" + id + R"(,"sequence":1})", "app_restarted"},
        Row{R"(wait_session","controlID":)" + id, "invalidSpec"},
        Row{R"(cancel_wait","controlID":)" + id, "invalidSpec"},
        Row{R"(cancel_wait","controlID":"me","waitID":"w")", "invalidSpec"},
        Row{R"(cancel_all_waits","waitID":"w")", "invalidSpec"}}) {
    const RuntimeNativeResponse answer = ask(R"("action":")" + asked);
    EXPECT_EQ(answer.error, word) << asked;
    EXPECT_FALSE(answer.ok || answer.agentGrant || answer.agent || answer.attention || answer.eventBatch);
  }
  running = false;
  for (const char* action : {"bind_native_agent", "report_agent_state", "fly"})
    EXPECT_EQ(ask(R"("action":")" + std::string(action) + "\"," + tabKey).error, "unavailable");
  EXPECT_TRUE(ask(R"("action":"get_agent_state",)" + tabKey).ok);
  drop(R"("action":"fly","noResponse":true)");
  pass();
  EXPECT_TRUE(names("responses").empty());
}

TEST_F(Bridge, RequestIsAnsweredAtOnceAndWaitByItsResult) {
  const std::string owner = newText();
  const std::string wait = R"("action":"wait_session","controlID":")" + owner +
                           R"(","waitSpec":{"condition":"events","after":{"appEpoch":")" +
                           events.appEpoch().text() + R"(","sequence":0}})";
  const std::string listing = drop(R"("action":"list_attention")");
  pass();
  EXPECT_EQ(text("responses/" + listing + ".json"),
            "{\"id\":\"" + listing +
                R"(","action":"list_attention","version":"1.257.0-rc3","schemaVersion":1,)" +
                R"("appName":"Velotide","snapshotSequence":0,"ok":true,"attention":[]})");
  collect(listing);
  const std::string silent = drop(wait + R"(,"noResponse":true)");
  const std::string cancelled = drop(wait);
  pass();
  EXPECT_TRUE(names("responses").empty());
  EXPECT_TRUE(
      ask(R"("action":"cancel_wait","controlID":")" + owner + R"(","waitID":")" + cancelled + "\"").ok);
  EXPECT_EQ(collect(cancelled)->waitResult->outcome, TerminalWaitOutcome::cancelled);
  now = now + 30;
  pass();
  EXPECT_EQ(collect(silent)->waitResult->outcome, TerminalWaitOutcome::timeout);
  events.publish(tab, TerminalSessionEventKind::outputChanged, now);
  EXPECT_EQ(ask(wait).waitResult->event, events.eventAt(1));
  EXPECT_TRUE(ask(R"("action":"cancel_all_waits","controlID":")" + owner + "\"").ok);
  EXPECT_EQ(ask(wait).waitResult->outcome, TerminalWaitOutcome::cancelled);
}

}  // namespace
}  // namespace velotide
