#include "watch/WatchTree.h"

#include <algorithm>

#include <boost/container_hash/hash.hpp>

#include "base/Path.h"

namespace quon {

std::size_t WatchTree::HashPlace::operator()(const Place& place) const {
  std::size_t seed = std::hash<std::string_view>()(place.name);
  boost::hash_combine(seed, place.parent);
  return seed;
}

std::size_t WatchTree::HashPlace::operator()(int watch) const {
  return (*this)(tree->placeOf(watch));
}

bool WatchTree::SamePlace::operator()(int watch, const Place& place) const {
  const Place other = tree->placeOf(watch);
  return other.parent == place.parent && other.name == place.name;
}

WatchTree::WatchTree() : places(0, HashPlace{this}, SamePlace{this}) {}

WatchTree::Place WatchTree::placeOf(int watch) const {
  const Node& node = nodes.at(watch);
  return {node.parent, node.name};
}

void WatchTree::setRoot(int watch, const std::string& path, std::uint64_t inode) {
  rootWatch = watch;
  Node& node = nodes[watch];
  node.name = path;
  node.inode = inode;
}

int WatchTree::attach(int watch, int parent, std::string_view name, std::uint64_t inode) {
  int before = childOf(parent, name);
  if (before == watch) {
    nodes.at(watch).inode = inode;
    return kNone;
  }
  if (before != kNone) detach(before);
  if (nodes.contains(watch)) {
    // The parent came from below this folder, by a move that is not reported yet: it has no place until then.
    for (int at = parent; at != kNone; at = nodes.at(at).parent) {
      if (nodes.at(at).parent == watch) {
        detach(at);
        break;
      }
    }
    detach(watch);
  }
  const auto [at, isNew] = nodes.try_emplace(watch);
  Node& node = at->second;
  node.parent = parent;
  node.name = name;
  node.inode = inode;
  Node& above = nodes.at(parent);
  node.nextSibling = above.firstChild;
  node.previousSibling = kNone;
  if (above.firstChild != kNone) nodes.at(above.firstChild).previousSibling = watch;
  above.firstChild = watch;
  places.insert(watch);
  return before;
}

void WatchTree::detach(int watch) {
  Node& node = nodes.at(watch);
  if (node.parent == kNone) return;
  places.erase(watch);
  if (node.previousSibling != kNone) {
    nodes.at(node.previousSibling).nextSibling = node.nextSibling;
  } else {
    nodes.at(node.parent).firstChild = node.nextSibling;
  }
  if (node.nextSibling != kNone) nodes.at(node.nextSibling).previousSibling = node.previousSibling;
  node.parent = node.nextSibling = node.previousSibling = kNone;
}

std::vector<int> WatchTree::remove(int watch) {
  detach(watch);
  std::vector<int> found{watch};
  for (std::size_t at = 0; at < found.size(); ++at) {
    for (int child = nodes.at(found[at]).firstChild; child != kNone; child = nodes.at(child).nextSibling) {
      found.push_back(child);
    }
  }
  // The places are found through the nodes, so they go first.
  for (std::size_t at = 1; at < found.size(); ++at) places.erase(found[at]);
  for (const int each : found) nodes.erase(each);
  if (watch == rootWatch) rootWatch = kNone;
  return found;
}

int WatchTree::childOf(int parent, std::string_view name) const {
  const auto at = places.find(Place{parent, name});
  return at == places.end() ? kNone : *at;
}

int WatchTree::find(std::string_view path) const {
  if (rootWatch == kNone) return kNone;
  const auto below = relativeTo(path, nodes.at(rootWatch).name);
  if (!below) return kNone;
  int at = rootWatch;
  for (std::string_view rest = *below; !rest.empty() && at != kNone;) {
    const std::size_t slash = rest.find('/');
    at = childOf(at, rest.substr(0, slash));
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
  }
  return at;
}

std::optional<std::string> WatchTree::path(int watch) const {
  std::vector<const std::string*> names;
  int at = watch;
  while (at != rootWatch) {
    const auto node = nodes.find(at);
    if (node == nodes.end() || node->second.parent == kNone) return std::nullopt;
    names.push_back(&node->second.name);
    at = node->second.parent;
  }
  const auto root = nodes.find(at);
  if (root == nodes.end()) return std::nullopt;
  if (names.empty()) return root->second.name;
  std::string joined(pathPrefix(root->second.name));
  for (auto name = names.rbegin(); name != names.rend(); ++name) {
    joined += '/';
    joined += **name;
  }
  return joined;
}

std::uint64_t WatchTree::inode(int watch) const {
  const auto node = nodes.find(watch);
  return node == nodes.end() ? 0 : node->second.inode;
}

}  // namespace quon
