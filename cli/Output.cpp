#include "Output.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "base/ByteJson.h"
#include "base/HumanBytes.h"

namespace quon::cli {
namespace {

const char* kindOf(const Entry& row) {
  if (std::holds_alternative<RefPtr<DirNode>>(row.payload)) return "dir";
  return std::holds_alternative<Entry::File>(row.payload) ? "file" : "rest";
}

}  // namespace

Json toJson(std::span<const Entry> rows) {
  Json array = Json::array();
  for (const Entry& row : rows) {
    array.push_back({{"kind", kindOf(row)},
                     {"name", encodeBytes(row.name)},
                     {"path", encodeBytes(row.path())},
                     {"logical", row.logical},
                     {"physical", row.physical},
                     {"mtime", row.mtime()}});
  }
  return array;
}

Json toJson(const std::vector<std::string>& paths) {
  Json array = Json::array();
  for (const std::string& path : paths) array.push_back(encodeBytes(path));
  return array;
}

void printDocument(const Json& document) {
  print(document.dump() + "\n");
}

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

std::string counted(std::uint64_t count, std::string_view noun) {
  return fmt::format("{} {}{}", grouped(count), noun, count == 1 ? "" : "s");
}

std::int64_t now() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch).count();
}

std::string localTime(double secondsSince1970) {
  const auto seconds = static_cast<std::time_t>(secondsSince1970);
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) return "at an unknown time";
  return fmt::format("{:%Y-%m-%d %H:%M}", local);
}

const char* nameOf(Metric metric) {
  return metric == Metric::logical ? "logical" : "physical";
}

bool flushOutput() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  fmt::print(stderr, "quon: cannot write to standard output: {}\n", std::generic_category().message(errno));
  return false;
}

}  // namespace quon::cli
