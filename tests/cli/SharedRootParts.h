#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "QuonProcess.h"

namespace quon::test {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

inline bool runs(const std::string& command) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs
  return std::system(("{ " + command + "; } >/dev/null 2>&1").c_str()) == 0;
}

/// The test's own accesses to files as another user.
class Acting {
 public:
  explicit Acting(uid_t user) : is(user != 0) {
    if (is && (::setegid(user) != 0 || ::seteuid(user) != 0)) throw std::runtime_error("seteuid");
  }
  ~Acting() {
    if (is && (::seteuid(0) != 0 || ::setegid(0) != 0)) std::abort();
  }
  Acting(const Acting&) = delete;
  Acting& operator=(const Acting&) = delete;

 private:
  const bool is;
};

inline void giveTo(uid_t user, const std::string& path) {
  if (user == 0) return;
  const auto give = [&](const std::string& each) {
    if (::lchown(each.c_str(), user, user) != 0) throw std::runtime_error("chown " + each);
  };
  give(path);
  for (const auto& entry : fs::recursive_directory_iterator(path)) give(entry.path().string());
}

/// The file system that is mounted on the root. What is written takes its space on the disk at once: where
/// blocks are allocated later, sizes change after the last event.
class Disk {
 public:
  Disk(std::string type, const std::string& folder, std::string mountPoint)
      : kind(std::move(type)),
        image(folder + "/image"),
        spare(folder + "/spare"),
        place(std::move(mountPoint)) {}
  ~Disk() {
    if (isMounted) ::umount2(place.c_str(), MNT_DETACH);
  }
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;

  /// False where that cannot be done here.
  [[nodiscard]] bool make() {
    if (kind == "tmpfs") return true;
    std::ofstream(image).flush();
    std::ofstream(spare).flush();
    fs::resize_file(image, 512U << 20U);
    fs::resize_file(spare, 1U << 20U);
    if (!runs("mkfs." + kind + " -q " + image) || !mount()) return false;
    if (kind != "btrfs") return true;
    // A subvolume, as most roots of that kind are; such a one is watched folder by folder.
    const std::string sub = place + "/sub";
    return runs("btrfs subvolume create " + sub + " && btrfs subvolume set-default " + sub) && unmount() &&
           mount();
  }
  [[nodiscard]] bool mount() {
    const std::string more = kind == "xfs" ? ",allocsize=4k" : kind == "btrfs" ? ",max_inline=0" : "";
    isMounted = runs("mount -t " + kind + " -o loop,sync" + more + " " + image + " " + place);
    return isMounted;
  }
  [[nodiscard]] bool unmount() {
    isMounted = ::umount2(place.c_str(), 0) != 0;
    return !isMounted;
  }
  /// As another device: the number that it had is taken.
  [[nodiscard]] bool mountRenumbered() {
    return runs("losetup -f " + spare) && mount() &&
           runs("losetup -d $(losetup -n -O NAME -j " + spare + ")");
  }
  [[nodiscard]] bool canMove() const { return kind != "tmpfs"; }

 private:
  const std::string kind;
  const std::string image;
  const std::string spare;
  const std::string place;
  bool isMounted = false;
};

inline std::unique_ptr<Running> started(const Quon& quon, const Arguments& words) {
  return std::unique_ptr<Running>(new Running(quon.start(words)));
}

/// A program whose output is read while it runs.
class Following {
 public:
  Following(Quon& quon, const std::string& name, const Arguments& words) {
    const std::string pipe = quon.folder.at(name);
    ::unlink(pipe.c_str());
    if (::mkfifo(pipe.c_str(), 0600) != 0) throw std::runtime_error("mkfifo");
    out = Descriptor(::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    quon.output = pipe;
    process = started(quon, words);
    quon.output.clear();
  }

  /// The next line of its output; nothing when none came within the time, or the program has ended.
  std::optional<std::string> line(std::chrono::milliseconds longest) {
    const auto until = Clock::now() + longest;
    while (true) {
      if (const std::size_t end = text.find('\n'); end != std::string::npos) {
        last = text.substr(0, end);
        text.erase(0, end + 1);
        return last;
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
      pollfd waiting{out.get(), POLLIN, 0};
      if (left < 0 || ::poll(&waiting, 1, static_cast<int>(left)) == 0) return std::nullopt;
      std::array<char, 4096> piece{};
      const ssize_t got = ::read(out.get(), piece.data(), piece.size());
      if (got <= 0) {
        atEnd = true;
        return std::nullopt;
      }
      text.append(piece.data(), static_cast<std::size_t>(got));
    }
  }
  /// Takes in what it has written; a program that writes to a full pipe stands still.
  void drain() {
    while (line(std::chrono::milliseconds(0))) {
    }
  }

  const Clock::time_point begun = Clock::now();
  std::unique_ptr<Running> process;
  bool atEnd = false;
  std::string last;  ///< the line that was read last

 private:
  Descriptor out;
  std::string text;
};

/// What recorders have used, those that were killed among them.
struct Usage {
  double seconds = 0;  ///< how long they ran
  double cpuSeconds = 0;
  std::uint64_t peakKilobytes = 0;
  std::uint64_t written = 0;  ///< bytes handed to the system
  std::uint64_t stored = 0;   ///< bytes that reached a disk

  void add(pid_t process, Clock::time_point begun) {
    seconds += std::chrono::duration<double>(Clock::now() - begun).count();
    const std::string folder = "/proc/" + std::to_string(process);
    std::ifstream stat(folder + "/stat");
    std::string all((std::istreambuf_iterator<char>(stat)), {});
    std::istringstream fields(all.substr(std::min(all.size(), all.rfind(')') + 1)));
    std::vector<std::string> field{std::istream_iterator<std::string>(fields), {}};
    if (field.size() > 12) {
      cpuSeconds +=
          (std::stod(field[11]) + std::stod(field[12])) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    }
    peakKilobytes = std::max(peakKilobytes, numberIn(folder + "/status", "VmHWM:"));
    written += numberIn(folder + "/io", "wchar:");
    stored += numberIn(folder + "/io", "write_bytes:");
  }

 private:
  static std::uint64_t numberIn(const std::string& file, const std::string& name) {
    std::ifstream lines(file);
    for (std::string word; lines >> word;) {
      std::uint64_t number = 0;
      if (word == name && lines >> number) return number;
    }
    return 0;
  }
};

}  // namespace quon::test
