// Pictures of folders: what is written, that it is a picture, and that nothing else is touched.
#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <expat.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <png.h>
#include <set>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "QuonProcess.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::uint64_t kMiB = 1048576;

/// A decoded PNG.
struct Pixels {
  explicit Pixels(const std::string& file) {
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, file.c_str()) == 0) throw std::runtime_error(image.message);
    image.format = PNG_FORMAT_RGB;
    bytes.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr) == 0)
      throw std::runtime_error(image.message);
  }

  [[nodiscard]] std::uint32_t at(std::uint32_t x, std::uint32_t y) const {
    const std::uint8_t* pixel = &bytes[3 * (std::size_t{y} * image.width + x)];
    return std::uint32_t{pixel[0]} << 16U | std::uint32_t{pixel[1]} << 8U | pixel[2];
  }
  [[nodiscard]] std::set<std::uint32_t> colours() const {
    std::set<std::uint32_t> all;
    for (std::uint32_t y = 0; y < image.height; ++y) {
      for (std::uint32_t x = 0; x < image.width; ++x) all.insert(at(x, y));
    }
    return all;
  }

  png_image image{};
  std::vector<std::uint8_t> bytes;
};

/// The names of the elements of a document, which must be well formed.
std::vector<std::string> elementsOf(const std::string& xml) {
  std::vector<std::string> elements;
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr),
                                                                            &XML_ParserFree);
  XML_SetUserData(parser.get(), &elements);
  XML_SetStartElementHandler(parser.get(), [](void* all, const char* name, const char**) {
    static_cast<std::vector<std::string>*>(all)->emplace_back(name);
  });
  EXPECT_EQ(XML_Parse(parser.get(), xml.data(), static_cast<int>(xml.size()), 1), XML_STATUS_OK)
      << XML_ErrorString(XML_GetErrorCode(parser.get()));
  return elements;
}

class Map : public testing::Test {
 protected:
  Map() {
    quon.folder.file("tree/a/big", 6 * kMiB);
    quon.folder.file("tree/b/half", 3 * kMiB);
    quon.folder.file("tree/quarter.iso", 2 * kMiB);
    quon.folder.file("tree/small", 5000);
  }

  [[nodiscard]] std::string picture(const std::string& name) const { return quon.folder.at("out/" + name); }
  Json drawn(const std::string& name, std::vector<std::string> further = {}) {
    Arguments arguments{"map", quon.tree, "-o", picture(name)};
    arguments.insert(arguments.end(), further.begin(), further.end());
    return quon.document(arguments);
  }
  /// The names in the folder of the pictures.
  [[nodiscard]] std::vector<std::string> written() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(out))
      names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
  }

  Quon quon;
  const std::string out = quon.folder.folder("out");
};

TEST_F(Map, DrawsASunburstInProportion) {
  const Json document = drawn("map.png", {"--size", "900x700", "--scale", "2"});
  EXPECT_EQ(document, (Json{{"path", quon.tree},
                            {"file", picture("map.png")},
                            {"mode", "sunburst"},
                            {"metric", "logical"},
                            {"width", 1800},
                            {"height", 1400},
                            {"marks", 5}}));
  const Pixels pixels(picture("map.png"));
  ASSERT_EQ(pixels.image.width, 1800U);
  ASSERT_EQ(pixels.image.height, 1400U);
  EXPECT_EQ(pixels.at(0, 0), 0xFFFFFFU);
  // By area the first colour, of the largest folder, has twice the second's, less what text and edges take.
  std::map<std::uint32_t, double> areas;
  for (std::uint32_t y = 0; y < pixels.image.height; ++y) {
    for (std::uint32_t x = 0; x < pixels.image.width; ++x) ++areas[pixels.at(x, y)];
  }
  EXPECT_NEAR(areas[0x9BB2FB] / areas[0xD3B865], 2.0, 0.15);
  EXPECT_NEAR(areas[0x5FB9C8] / areas[0xD3B865], 2.0 / 3, 0.1);
}

TEST_F(Map, DrawsATreemapOnWholePixelsInEitherScheme) {
  for (const bool isDark : {false, true}) {
    std::vector<std::string> options{"--mode", "treemap", "--size", "400x300", "--metric", "physical"};
    if (isDark) options.emplace_back("--dark");
    EXPECT_EQ(drawn("t.png", options).at("metric"), "physical");
    // The files are sparse: on the disk there is nothing but the hole of the map.
    const Pixels empty(picture("t.png"));
    EXPECT_EQ(empty.at(399, 299), isDark ? 0x17181BU : 0xFFFFFFU);
    options[5] = "logical";
    EXPECT_EQ(drawn("t.png", options).at("marks"), 5);
    const std::set<std::uint32_t> colours = Pixels(picture("t.png")).colours();
    for (const std::uint32_t slot :
         isDark ? std::array{0x4955B3U, 0x876C04U, 0x156A80U} : std::array{0x9BB2FBU, 0xD3B865U, 0x5FB9C8U}) {
      EXPECT_TRUE(colours.contains(slot)) << std::hex << slot;
    }
  }
}

TEST_F(Map, IsWellFormedWhateverTheNames) {
  for (const char* name : {"<&>\"'", "new\nline", "\x1b[31mred", "caf\xe9 \xff", "שלום עולם",
                           "\xe2\x80\xaeright", "]]>", "e\xcc\x81\xf0\x9f\x98\x80", "-", "%s%n"}) {
    quon.folder.file(std::string("tree/d") + name + "/" + name + ".bin", 4 * kMiB);
    quon.folder.file(std::string("tree/") + name, 2 * kMiB);
  }
  quon.folder.file("tree/" + std::string(255, 'x'), 9 * kMiB);
  for (const char* mode : {"sunburst", "treemap"}) {
    EXPECT_GT(drawn("map.svg", {"--mode", mode}).at("marks"), 20);
    const std::vector<std::string> elements = elementsOf(readBytes(picture("map.svg")));
    EXPECT_EQ(elements.front(), "svg");
    EXPECT_GT(elements.size(), 100U);
    EXPECT_GT(drawn("map.png", {"--mode", mode}).at("marks"), 20);
    EXPECT_EQ(Pixels(picture("map.png")).image.width, 1200U);
  }
  // Of any folder, also one whose own name is odd, and of an empty one; as small as it may be.
  quon.folder.folder("tree/empty");
  for (const char* below : {"/dcaf\xe9 \xff", "/empty"}) {
    const Finished run =
        quon.run({"map", quon.tree + below, "-o", picture("small.svg"), "--size", "200x200"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(elementsOf(readBytes(picture("small.svg"))), testing::Not(IsEmpty()));
  }
}

TEST_F(Map, RefusesWhatItCannotWriteAndLeavesNothingElse) {
  const auto refusal = [&](std::vector<std::string> options, int status) {
    options.insert(options.begin(), {"map", quon.tree});
    const Finished run = quon.run(options);
    EXPECT_EQ(run.status, status) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(std::ranges::count(run.err, '\n'), 1) << run.err;
    return run.err;
  };
  EXPECT_THAT(refusal({"-o", picture("map.gif")}, 2), HasSubstr("a file that ends in .svg or .png"));
  EXPECT_THAT(refusal({}, 2), HasSubstr("--output"));
  for (const char* size : {"100x800", "800", "800x", "x800", "800x-1", "800x99999", "8e2x800"}) {
    EXPECT_THAT(refusal({"-o", picture("map.png"), "--size", size}, 2), HasSubstr("two sides from"));
  }
  EXPECT_THAT(refusal({"-o", picture("map.svg"), "--scale", "2"}, 2), HasSubstr("--scale is for .png"));
  EXPECT_THAT(refusal({"-o", picture("map.png"), "--size", "9000x9000", "--scale", "8"}, 2),
              HasSubstr("too large"));
  EXPECT_THAT(refusal({"-o", picture("map.png"), "--mode", "pie"}, 2), HasSubstr("sunburst or treemap"));
  EXPECT_THAT(refusal({"-o", picture("none/map.png")}, 1), HasSubstr("none/map.png: No such file"));
  EXPECT_THAT(refusal({"-o", "/proc/map.png"}, 1), StartsWith("quon: cannot write /proc/map.png"));
  EXPECT_THAT(written(), IsEmpty());

  // Only a regular file is replaced, and only by a whole picture.
  const std::string target = quon.folder.file("out/target", 10);
  std::filesystem::create_symlink(target, picture("link.png"));
  std::filesystem::create_directory(picture("folder.png"));
  ASSERT_EQ(::mkfifo(picture("pipe.png").c_str(), 0600), 0);
  for (const char* name : {"link.png", "folder.png", "pipe.png"}) {
    EXPECT_THAT(refusal({"-o", picture(name)}, 1), HasSubstr("is not a regular file"));
  }
  writeFile(picture("kept.png"), "earlier");
  ASSERT_EQ(::chmod(picture("kept.png").c_str(), 0640), 0);
  quon.limits[RLIMIT_FSIZE] = 1000;
  EXPECT_THAT(refusal({"-o", picture("kept.png"), "--no-catch-up"}, 1), HasSubstr("File too large"));
  EXPECT_EQ(readBytes(picture("kept.png")), "earlier");
  EXPECT_THAT(written(), testing::ElementsAre("folder.png", "kept.png", "link.png", "pipe.png", "target"));
  quon.limits.clear();
  EXPECT_EQ(drawn("kept.png").at("marks"), 5);
  EXPECT_EQ(Pixels(picture("kept.png")).image.height, 800U);
  EXPECT_EQ(std::filesystem::status(picture("kept.png")).permissions(), std::filesystem::perms{0640});
}

TEST_F(Map, InterruptedWhileItWritesLeavesNoPartOfAPicture) {
  const Arguments arguments{"map", quon.tree, "--no-catch-up", "-o", picture("map.png"), "--scale", "2"};
  ASSERT_EQ(quon.run(arguments).status, 0);
  const std::string whole = readBytes(picture("map.png"));
  const Descriptor watch(::inotify_init1(IN_CLOEXEC));
  ASSERT_GE(::inotify_add_watch(watch.get(), out.c_str(), IN_CREATE), 0);
  int interrupted = 0;
  for (int round = 0; round < 10; ++round) {
    Running run(quon.start(arguments));
    alignas(inotify_event) std::array<char, 4096> begun{};
    ASSERT_GT(::read(watch.get(), begun.data(), begun.size()), 0);
    run.signal(SIGINT);
    const int status = run.wait().status;
    ASSERT_TRUE(status == 128 + SIGINT || status == 0) << status;
    if (status != 0) ++interrupted;
    ASSERT_THAT(written(), testing::ElementsAre("map.png"));
    ASSERT_EQ(readBytes(picture("map.png")), whole);
  }
  RecordProperty("interrupted", interrupted);
}

TEST_F(Map, KeepsWhatItLearnsOfFontsAmongItsOwnFiles) {
  // A font that no cache of the system contains.
  const std::filesystem::recursive_directory_iterator all("/usr/share/fonts");
  const auto font = std::find_if(begin(all), end(all), [](const auto& entry) {
    return entry.path().extension() == ".ttf" || entry.path().extension() == ".otf";
  });
  ASSERT_NE(font, end(all)) << "no font is installed";
  const std::filesystem::path data = std::filesystem::path(quon.indexFolder()).parent_path();
  const std::filesystem::path fonts = data.parent_path() / "fonts";
  std::filesystem::create_directories(fonts);
  std::filesystem::copy(font->path(), fonts / "a.ttf");
  (void)drawn("map.svg");
  EXPECT_FALSE(std::filesystem::is_empty(data / "fonts"));
  for (const char* elsewhere : {"/.cache", "/.fontconfig"}) {
    EXPECT_FALSE(std::filesystem::exists(quon.home + elsewhere)) << elsewhere;
  }
}

}  // namespace
}  // namespace quon::test
