// Folders that lie deeper than a path of the system reaches.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "EventHome.h"
#include "linux_fs/Descriptor.h"

namespace quon::test {
namespace {

class LongPaths : public WithBackEnd {};

TEST_P(LongPaths, ChangeAtAPathBeyondTheSystemsLimitIsReportedOrCovered) {
  EventHome home;
  const std::string name(200, 'n');
  std::string path = home.root;
  Descriptor folder(::open(path.c_str(), O_PATH | O_DIRECTORY));
  for (int depth = 0; depth < 30; ++depth) {
    ASSERT_EQ(::mkdirat(folder.get(), name.c_str(), 0755), 0);
    folder = Descriptor(::openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY));
    path += "/" + name;
  }
  Follower follower(home, options());
  { const Descriptor file(::openat(folder.get(), "file", O_CREAT | O_WRONLY, 0644)); }
  const Reported found = follower.changes();
  bool covered = found.contains(path);
  for (const auto& [each, flags] : found) {
    covered = covered || ((flags & EventFlag::mustScanSubdirs) != 0 && path.starts_with(each + "/"));
  }
  EXPECT_TRUE(covered);
}

INSTANTIATE_TEST_SUITE_P(BackEnds, LongPaths, eachBackEnd(), backEndName);

}  // namespace
}  // namespace quon::test
