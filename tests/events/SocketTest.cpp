// The recorder's socket, spoken to in bytes: by programs that break its rules, do not read, or may not
// connect.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "EventHome.h"
#include "linux_fs/Descriptor.h"
#include "support/ChildProcess.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

constexpr char kFollow = 1;
constexpr char kCover = 2;
constexpr char kId = 3;

std::string bytesOf(auto number) {
  return {reinterpret_cast<const char*>(&number), sizeof number};
}
std::string textOf(const std::string& text) {
  return bytesOf(static_cast<std::uint32_t>(text.size())) + text;
}
std::string frame(char type, const std::string& content) {
  return bytesOf(static_cast<std::uint32_t>(content.size() + 1)) + type + content;
}
std::string follow(const std::string& root, std::uint64_t since) {
  return frame(kFollow, bytesOf(since) + textOf(root));
}

class RawClient {
 public:
  explicit RawClient(const EventHome& home) : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    const std::string path = home.folders.state + "/recorder.socket";
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    connected = ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  void send(const std::string& bytes) const {
    (void)!::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  /// All that arrives until the recorder ends the connection.
  [[nodiscard]] std::string readToEnd() const {
    std::string all;
    std::vector<char> buffer(1U << 20U);
    for (ssize_t bytes = 0; (bytes = ::recv(socket.get(), buffer.data(), buffer.size(), 0)) > 0;)
      all.append(buffer.data(), static_cast<std::size_t>(bytes));
    return all;
  }
  bool connected = false;

 private:
  Descriptor socket;
};

TEST(Socket, EndsConnectionsThatBreakItsRulesAndServesTheOthers) {
  EventHome home;
  home.temp.folder("root/a");
  Follower follower(home);
  const std::string good = follow(home.root, follower.since);
  std::vector<std::string> bad{bytesOf(~std::uint32_t{0}),
                               frame(0, ""),
                               frame(99, textOf("/")),
                               frame(kId, "x"),
                               frame(kCover, std::string(1, '\2') + textOf(home.root)),
                               frame(kCover, std::string(1, '\1') + textOf("relative")),
                               frame(kCover, std::string(1, '\1') + textOf(std::string("/a\0b", 4))),
                               frame(kFollow, bytesOf(std::uint64_t{1}) + bytesOf(~std::uint32_t{0}) + "/"),
                               good + good};
  std::mt19937_64 random(randomSeed());
  for (int count = 0; count < 50; ++count) {
    // As long as it says, and random but for that.
    std::string damaged = good;
    for (std::size_t at = 4; at < damaged.size(); ++at) damaged[at] = static_cast<char>(random());
    damaged[4] = static_cast<char>(kId + 1 + random() % 200);
    bad.push_back(damaged);
  }
  const RawClient unfinished(home);
  unfinished.send(good.substr(0, good.size() / 2));
  for (const std::string& bytes : bad) {
    const RawClient client(home);
    ASSERT_TRUE(client.connected);
    client.send(bytes);
    EXPECT_EQ(client.readToEnd(), "") << testing::PrintToString(bytes);
  }
  home.temp.file("root/a/file");
  EXPECT_TRUE(follower.changes().contains(home.at("a")));
  EXPECT_EQ(home.log.all(), "");
}

TEST(Socket, SendsAClientThatDoesNotReadThatItsEventsAreLost) {
  constexpr int kFolders = 100;
  constexpr int kRounds = 40;
  EventHome home;
  std::string deep = "root";
  for (int depth = 0; depth < 14; ++depth) deep += "/" + std::string(250, 'n');
  for (int folder = 0; folder < kFolders; ++folder) home.temp.folder(deep + "/" + std::to_string(folder));
  Follower follower(home);
  const RawClient slow(home);
  slow.send(follow(home.root, follower.since));
  for (int round = 0; round < kRounds; ++round) {
    for (int folder = 0; folder < kFolders; ++folder)
      std::ofstream(home.temp.at(deep + "/" + std::to_string(folder) + "/file"), std::ios::app) << 'x';
    EXPECT_GE(follower.changes().size(), static_cast<std::size_t>(kFolders)) << "others are served";
  }
  const std::string all = slow.readToEnd();
  EXPECT_LT(all.size(), std::size_t{12} << 20U);
  EXPECT_TRUE(all.ends_with(textOf("more has changed than the program has read so far")));
}

TEST(Socket, ServesTheUserOnlyHoweverLongItsPath) {
  EventHome home;
  home.folders.state = home.temp.at("state/" + std::string(200, 'n'));
  home.temp.folder("root/a");
  {
    Follower follower(home);
    home.temp.file("root/a/file");
    EXPECT_TRUE(follower.changes().contains(home.at("a")));
  }
  if (::getuid() != 0) GTEST_SKIP() << "takes root, to connect as another user";
  EventHome open;
  const Follower follower(open);
  for (const std::string& path : {open.temp.path, open.temp.at("state"), open.folders.state})
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  ASSERT_EQ(::chmod((open.folders.state + "/recorder.socket").c_str(), 0666), 0);
  // Of this thread alone, not of the recorder's.
  ASSERT_EQ(::syscall(SYS_setresuid, -1, 65534, -1), 0);
  const RawClient stranger(open);
  ASSERT_EQ(::syscall(SYS_setresuid, -1, 0, -1), 0);
  EXPECT_TRUE(stranger.connected);
  stranger.send(frame(kId, ""));
  EXPECT_EQ(stranger.readToEnd(), "");
}

}  // namespace
}  // namespace quon::test
