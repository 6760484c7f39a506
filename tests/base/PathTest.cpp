#include <gtest/gtest.h>
#include <vector>

#include "base/Path.h"

namespace quon {
namespace {

TEST(Path, JoinsAndTakesApart) {
  EXPECT_EQ(joinPath(pathPrefix("/"), "usr"), "/usr");
  EXPECT_EQ(lastComponent("//usr"), "usr");
  EXPECT_EQ(lastComponent("/"), "/");
  EXPECT_EQ(parentPath("/home"), "/");
  EXPECT_EQ(parentPath("/"), "/");
  EXPECT_EQ(parentPath("name"), "");
  std::string_view rest = "/home//a b/";
  EXPECT_EQ(takeComponent(rest), "home");
  EXPECT_EQ(takeComponent(rest), "a b");
  EXPECT_EQ(withoutTrailingSlashes("///"), "/");
}

TEST(Path, ExpandsOnlyTheTildeOfTheHomeFolder) {
  EXPECT_EQ(expandTilde("~", "/home/ann"), "/home/ann");
  EXPECT_EQ(expandTilde("~/x", "/home/ann"), "/home/ann/x");
  for (const char* same : {"~bob/x", "/~/x", "x~", ""}) EXPECT_EQ(expandTilde(same, "/home/ann"), same);
}

TEST(Path, TellsWhatLiesBelowARoot) {
  struct Case {
    std::string_view path, root;
    std::optional<std::string_view> below;
  };
  const std::vector<Case> cases{
      {"/a/b", "/a/b", ""},
      {"/a/b/c/d", "/a/b", "c/d"},
      {"/a/bc", "/a/b", std::nullopt},
      {"/a", "/a/b", std::nullopt},
      {"/", "/", ""},
      {"/usr/bin", "/", "usr/bin"},
      {"//usr/bin", "/", "usr/bin"},
      {"//usr", "//usr", ""},
      {"usr", "/", std::nullopt},
  };
  for (const auto& [path, root, below] : cases) {
    EXPECT_EQ(relativeTo(path, root), below) << path << " below " << root;
    EXPECT_EQ(isInside(path, root), below.has_value()) << path << " below " << root;
  }
}

}  // namespace
}  // namespace quon
