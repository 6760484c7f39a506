#include "snapshot/QuonSnapshot.h"

#include <nlohmann/json.hpp>

namespace quon {

using Json = nlohmann::ordered_json;

// Found by the library by their names.
// NOLINTBEGIN(readability-identifier-naming)
static void to_json(Json& json, const QuonSnapshot::Item& item) {
  json = {{"name", item.name}, {"size", item.size}};
}
static void from_json(const Json& json, QuonSnapshot::Item& item) {
  json.at("name").get_to(item.name);
  json.at("size").get_to(item.size);
}
static void to_json(Json& json, const QuonSnapshot::Area& area) {
  json = {{"name", area.name},
          {"total", area.total},
          {"topFolders", area.topFolders},
          {"topKinds", area.topKinds}};
}
static void from_json(const Json& json, QuonSnapshot::Area& area) {
  json.at("name").get_to(area.name);
  json.at("total").get_to(area.total);
  json.at("topFolders").get_to(area.topFolders);
  json.at("topKinds").get_to(area.topKinds);
}
// NOLINTEND(readability-identifier-naming)

std::string QuonSnapshot::encoded() const {
  return Json{{"generatedAt", generatedAt},
              {"volumeName", volumeName},
              {"usedFraction", usedFraction},
              {"used", used},
              {"free", free},
              {"total", total},
              {"topFolders", topFolders},
              {"topKinds", topKinds},
              {"areas", areas},
              {"rootName", rootName}}
      .dump();
}

std::optional<QuonSnapshot> QuonSnapshot::decoded(std::string_view json) {
  QuonSnapshot snapshot;
  try {
    const Json read = Json::parse(json);
    read.at("generatedAt").get_to(snapshot.generatedAt);
    read.at("volumeName").get_to(snapshot.volumeName);
    read.at("usedFraction").get_to(snapshot.usedFraction);
    read.at("used").get_to(snapshot.used);
    read.at("free").get_to(snapshot.free);
    read.at("total").get_to(snapshot.total);
    read.at("topFolders").get_to(snapshot.topFolders);
    read.at("topKinds").get_to(snapshot.topKinds);
    read.at("areas").get_to(snapshot.areas);
    read.at("rootName").get_to(snapshot.rootName);
  } catch (const Json::exception&) {
    return std::nullopt;
  }
  return snapshot;
}

}  // namespace quon
