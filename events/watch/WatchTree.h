#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

namespace quon {

/// The watched folders by the numbers of their watches, and how they lie in one another. A folder that lost
/// its place keeps its watch and what lies below it, but has no path, until it is attached again or removed.
///
/// Threads: one at a time. Nothing here follows the depth of the tree on the call stack.
class WatchTree {
 public:
  static constexpr int kNone = -1;

  WatchTree();
  WatchTree(const WatchTree&) = delete;
  WatchTree& operator=(const WatchTree&) = delete;

  /// The root's name is its absolute path.
  void setRoot(int watch, const std::string& path, std::uint64_t inode);
  [[nodiscard]] int root() const { return rootWatch; }
  /// Puts a new folder, or one that is known elsewhere, at a place below a known parent. The folder that
  /// had the name there before loses its place, and is returned; kNone when there was none.
  int attach(int watch, int parent, std::string_view name, std::uint64_t inode);
  void detach(int watch);
  /// Forgets a folder and all below it; their watches.
  [[nodiscard]] std::vector<int> remove(int watch);

  [[nodiscard]] bool contains(int watch) const { return nodes.contains(watch); }
  [[nodiscard]] int childOf(int parent, std::string_view name) const;
  /// The watch at the path, kNone when there is none.
  [[nodiscard]] int find(std::string_view path) const;
  /// nullopt for one that has no place, and for one that lies in such a one.
  [[nodiscard]] std::optional<std::string> path(int watch) const;
  [[nodiscard]] std::uint64_t inode(int watch) const;
  [[nodiscard]] std::size_t size() const { return nodes.size(); }

 private:
  struct Node {
    std::uint64_t inode = 0;
    int parent = kNone;
    int firstChild = kNone;
    int nextSibling = kNone;
    int previousSibling = kNone;
    std::string name;
  };
  struct Place {
    int parent;
    std::string_view name;
  };
  struct HashPlace {
    using is_transparent = void;
    const WatchTree* tree;
    std::size_t operator()(int watch) const;
    std::size_t operator()(const Place& place) const;
  };
  struct SamePlace {
    using is_transparent = void;
    const WatchTree* tree;
    bool operator()(int first, int second) const { return first == second; }
    bool operator()(int watch, const Place& place) const;
    bool operator()(const Place& place, int watch) const { return (*this)(watch, place); }
  };
  [[nodiscard]] Place placeOf(int watch) const;

  boost::unordered_flat_map<int, Node> nodes;
  boost::unordered_flat_set<int, HashPlace, SamePlace> places;  // of nodes that have a parent
  int rootWatch = kNone;
};

}  // namespace quon
