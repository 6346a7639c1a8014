#include <sys/socket.h>
#include <sys/stat.h>

#include "base/failure.h"
#include "base/platform.h"
#include "bridge_fixture.h"
#include "protocol/runtime_failure.h"

namespace velotide {
namespace {

namespace fs = std::filesystem;

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
  const auto refusal = [this]() -> std::string {
    try {
      open();
      return "";
    } catch (const Failure<RuntimeFailure>& failure) {
      return std::string(rawWord(failure.word));
    }
  };
  fill(1024);
  put("responses/x.json", "");
  put("responses/x.pending", "");
  EXPECT_EQ(refusal(), "");
  EXPECT_TRUE(names("requests").empty());
  EXPECT_EQ(names("responses"), std::vector<std::string>{"x.pending"});
  fill(1025);
  EXPECT_EQ(refusal(), "resource_limit");
  for (const char* directory : {"", "/requests", "/responses"}) {
    fs::permissions(root + directory, fs::perms(0750));
    EXPECT_EQ(refusal(), "invalid_capability");
    fs::permissions(root + directory, fs::perms(0700));
  }
  events.publish(tab, TerminalSessionEventKind::registered, now);
  EXPECT_EQ(refusal(), "");
  const std::string epoch = R"("appEpoch":")" + events.appEpoch().text() + "\"";
  EXPECT_EQ(text("runtime.json"), R"({"schemaVersion":1,)" + epoch + R"(,"pid":)" +
                                      std::to_string(::getpid()) + R"(,"version":"1.257.0-rc3","cursor":{)" +
                                      epoch + R"(,"sequence":1}})");
  EXPECT_EQ(fs::status(root + "/runtime.json").permissions(), fs::perms(0600));
  fs::rename(root, root + "-moved");
  fs::create_directory_symlink(root + "-moved", root);
  EXPECT_EQ(refusal(), "invalid_capability");
}

}  // namespace
}  // namespace velotide
