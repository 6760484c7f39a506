#include "support/IndexComparison.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>
#include <vector>

#include "base/Text.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using Row = RawIndex::Row;

/// An index with its ids replaced by paths.
struct Content {
  std::map<std::string, std::string> folders;                 ///< path: mtime and error
  std::map<std::string, std::string> singles;                 ///< path of a file with one link: its figures
  std::map<std::string, std::set<std::string>> names;         ///< file id: the paths of its names
  std::map<std::string, std::vector<std::string>> countedAs;  ///< file id: the figures of its counted names
  std::string topSizes;
  std::string deduped;
};

Content read(const std::string& file) {
  RawIndex index(file);
  Content content;
  const std::map<std::string, std::string> paths = folderPaths(index, "");
  for (const Row& row : index.rows("SELECT id, mtime, error FROM dirs")) {
    content.folders[paths.at(row[0])] = row[1] + " error " + row[2];
  }
  std::map<std::string, std::string> idOfName;
  std::set<std::string> counted;
  for (const Row& row : index.rows("SELECT fileid, dir, name, counted FROM links")) {
    const std::string path = paths.at(row[1]) + "/" + row[2];
    content.names[row[0]].insert(path);
    idOfName[path] = row[0];
    if (row[3] == "1") counted.insert(path);
  }
  for (const Row& row : index.rows("SELECT dir, name, logical, physical, mtime FROM files")) {
    const std::string path = paths.at(row[0]) + "/" + row[1];
    const std::string figures = row[2] + " " + row[3] + " " + row[4];
    const auto link = idOfName.find(path);
    if (link == idOfName.end()) {
      content.singles[path] += figures + ";";
    } else {
      content.countedAs[link->second].push_back(figures +
                                                (counted.contains(path) ? "" : " though not counted"));
    }
  }
  // In an order of our own: files of one size may stand in any.
  for (const Row& row :
       index.rows("SELECT json_extract(value, '$.l') AS size, json_extract(value, '$.m') AS time FROM "
                  "json_each((SELECT value FROM meta WHERE key = 'topFiles')) ORDER BY size, time")) {
    content.topSizes += row[0] + "/" + row[1] + " ";
  }
  content.deduped = index.value("SELECT value FROM meta WHERE key = 'hardlinksDeduped'");
  return content;
}

void forgetSoleNames(Content& content) {
  for (const auto& [id, names] : content.names) {
    if (names.size() != 1 || content.countedAs[id].size() != 1) continue;
    content.singles[*names.begin()] = content.countedAs[id].front() + ";";
    content.countedAs.erase(id);
  }
  std::erase_if(content.names, [](const auto& file) { return file.second.size() == 1; });
}

std::string shown(const std::string& text) {
  return text;
}
template <typename Strings>
std::string shown(const Strings& items) {
  std::string all;
  for (const std::string& item : items) all += item + ", ";
  return all;
}

template <typename Value>
void compare(const char* what, const std::map<std::string, Value>& patched,
             const std::map<std::string, Value>& fresh, std::string& found) {
  for (const auto& [key, value] : patched) {
    const auto other = fresh.find(key);
    if (other == fresh.end()) {
      found += std::string(what) + " " + key + ": only patched: " + shown(value) + "\n";
    } else if (!(other->second == value)) {
      found += std::string(what) + " " + key + ": patched " + shown(value) + " fresh " +
               shown(other->second) + "\n";
    }
  }
  for (const auto& [key, value] : fresh) {
    if (!patched.contains(key))
      found += std::string(what) + " " + key + ": only fresh: " + shown(value) + "\n";
  }
}

/// All figures of a node, children aside.
std::string figures(const DirNode& node) {
  std::string text = node.name + ": ";
  for (const std::uint64_t value : {node.directLogical, node.directPhysical, node.directFiles,
                                    node.totalLogical, node.totalPhysical, node.totalFiles, node.totalDirs}) {
    text += std::to_string(value) + " ";
  }
  for (const std::int64_t value : {node.mtime, node.directNewest, node.newest})
    text += std::to_string(value) + " ";
  std::vector<std::string> kept;
  for (const FileEntry& file : node.keptFiles) {
    kept.push_back(file.name + " " + std::to_string(file.logical) + " " + std::to_string(file.physical) +
                   " " + std::to_string(file.mtime));
  }
  std::ranges::sort(kept);
  return text + (node.error ? "error " : "") + (node.cacheTagged ? "tagged " : "") + shown(kept);
}

std::vector<const DirNode*> childrenByName(const DirNode& node) {
  std::vector<const DirNode*> children;
  for (const RefPtr<DirNode>& child : node.subdirs) children.push_back(child.get());
  std::ranges::sort(children, {}, &DirNode::name);
  return children;
}

}  // namespace

std::string differences(const std::string& patchedIndex, const std::string& freshIndex, SoleNames soleNames) {
  Content patched = read(patchedIndex);
  Content fresh = read(freshIndex);
  if (soleNames == SoleNames::alike) {
    forgetSoleNames(patched);
    forgetSoleNames(fresh);
  }
  std::string found;
  compare("folder", patched.folders, fresh.folders, found);
  compare("file", patched.singles, fresh.singles, found);
  compare("names of", patched.names, fresh.names, found);
  compare("counted", patched.countedAs, fresh.countedAs, found);
  if (patched.topSizes != fresh.topSizes)
    found += "top files: " + patched.topSizes + "\n  fresh: " + fresh.topSizes + "\n";
  if (patched.deduped != fresh.deduped)
    found += "deduped: " + patched.deduped + " fresh " + fresh.deduped + "\n";
  return found;
}

std::string differences(const DirNode& tree, const DirNode& expected) {
  std::string found;
  std::vector<std::pair<const DirNode*, const DirNode*>> pairs{{&tree, &expected}};
  while (!pairs.empty()) {
    const auto [node, wanted] = pairs.back();
    pairs.pop_back();
    if (const std::string own = figures(*node), other = figures(*wanted); own != other)
      found += fmt::format("node at {}: {}\n  expected {}\n", displayText(node->path("")), own, other);
    const auto children = childrenByName(*node);
    const auto others = childrenByName(*wanted);
    if (children.size() != others.size()) found += "other children at " + displayText(node->path("")) + "\n";
    for (std::size_t at = 0; at < std::min(children.size(), others.size()); ++at)
      pairs.emplace_back(children[at], others[at]);
  }
  return found;
}

}  // namespace quon::test
