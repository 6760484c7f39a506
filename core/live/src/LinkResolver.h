#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "BatchBuilder.h"
#include "NameSearch.h"
#include "platform/Files.h"

namespace quon::Refresh {

/// Makes each multiply-linked file keep exactly one counted sighting, which has the file's present size.
/// Works on what a batch has read. Threads: confined to one.
class LinkResolver {
 public:
  explicit LinkResolver(BatchBuilder& owner);

  /// Asks for every further folder that a decision depends on: where a sighting must be counted from now on,
  /// where the counted sighting's size is out of date, where the first name is of a file that had only one.
  void settle();
  /// With all of them read: chooses the counted sightings, and removes the others from what was read.
  void decide();

 private:
  /// A name of a file in what the batch has read.
  struct Fresh {
    std::string folder;
    std::string name;
    FileEntry entry;           ///< its present size; not of a walked name that the walk did not count
    DirNode* node = nullptr;   ///< of a walked folder; none for a listed one
    bool walkCounted = false;  ///< the walk counted this name
    bool wasCounted = false;   ///< the registry counts this name
  };
  /// All that is known of one file.
  struct Linked {
    std::vector<Fresh> fresh;
    std::vector<LinkSighting> untouched;  ///< in folders that the batch has not read
    bool wasKnown = false;                ///< the registry has rows of it
  };

  void collectFresh();
  void collectListed(const ListedFolder& folder);
  void collectWalked(const WalkedSubtree& subtree);
  [[nodiscard]] std::set<std::uint64_t> affected() const;
  [[nodiscard]] Linked gather(std::uint64_t fileID);
  /// What a name of the file shows now; none when every name has vanished since it was read.
  [[nodiscard]] std::optional<PathFacts> presentFacts(std::uint64_t fileID, const Linked& linked) const;
  /// By what a fresh name shows.
  [[nodiscard]] bool isStale(const LinkSighting& counted, const Linked& linked) const;
  /// By what it shows itself.
  [[nodiscard]] bool isRewritten(std::uint64_t fileID, const LinkSighting& counted) const;
  [[nodiscard]] std::map<std::string, WalkedSubtree, std::less<>>::iterator walkAround(
      std::string_view folder);
  void addName(const FoundName& found);
  void decideOne(std::uint64_t fileID);
  [[nodiscard]] bool isLastName(std::uint64_t fileID, const Linked& linked) const;
  void drop(const Fresh& fresh);
  void forgetLastName(const LinkSighting& last);
  void forgetVanished();

  BatchBuilder& builder;
  const bool registryMayLackNames;
  std::set<std::uint64_t> searched;
  std::set<std::uint64_t> vanished;  ///< files whose names have all gone since they were read
  std::map<std::uint64_t, std::vector<Fresh>> freshByFile;
};

}  // namespace quon::Refresh
