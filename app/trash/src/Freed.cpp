#include "trash/Freed.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "base/Checked.h"
#include "base/Path.h"
#include "platform/Directories.h"
#include "platform/Files.h"

namespace quon {

Freed Freed::of(const Platform& platform, const std::string& path, FunctionRef<bool()> cancelled) {
  Freed freed;
  std::error_code error;
  const auto top = platform.files.ownFacts(path, error);
  if (!top) return freed;
  if (!top->isDirectory) {
    freed.count(top->device, top->fileID, top->linkCount, top->logical, top->physical);
    return freed;
  }
  const std::unique_ptr<DirectoryReader> reader = platform.directories.makeReader();
  std::vector<std::string> waiting{path};
  while (!waiting.empty() && !cancelled()) {
    const std::string folder = std::move(waiting.back());
    waiting.pop_back();
    const OpenedDirectory opened = reader->open(folder);
    if (!opened.directory) {
      ++freed.alone.unreadable;
      continue;
    }
    reader->start(opened.directory);
    for (bool more = true; more;) {
      const DirectoryBatch batch = reader->next();
      for (const DirEntry& entry : batch.entries) {
        if (entry.type == EntryType::directory) {
          waiting.push_back(joinPath(folder, entry.name));
        } else {
          freed.count(entry.device, entry.fileID, entry.linkCount, entry.logical, entry.physical);
        }
      }
      more = batch.status == ReadStatus::more;
      if (batch.status == ReadStatus::failed || batch.attributesRefused) ++freed.alone.unreadable;
    }
  }
  return freed;
}

void Freed::count(std::uint32_t device, std::uint64_t fileID, std::uint64_t links, std::uint64_t logical,
                  std::uint64_t physical) {
  if (links < 2) {
    ++alone.files;
    alone.logical = saturatingAdd(alone.logical, logical);
    alone.physical = saturatingAdd(alone.physical, physical);
    return;
  }
  File& file = linked[{device, fileID}];
  file.logical = logical;
  file.physical = physical;
  file.names = links;
  ++file.found;
}

void Freed::add(const Freed& other) {
  alone.files += other.alone.files;
  alone.unreadable += other.alone.unreadable;
  alone.logical = saturatingAdd(alone.logical, other.alone.logical);
  alone.physical = saturatingAdd(alone.physical, other.alone.physical);
  for (const auto& [identity, file] : other.linked) {
    File& own = linked[identity];
    own.logical = file.logical;
    own.physical = file.physical;
    own.names = std::max(own.names, file.names);
    own.found += file.found;
  }
}

Freed::Total Freed::total() const {
  Total total = alone;
  for (const auto& [identity, file] : linked) {
    ++total.files;
    if (file.found < file.names) {
      ++total.keptByLinks;
      continue;
    }
    total.logical = saturatingAdd(total.logical, file.logical);
    total.physical = saturatingAdd(total.physical, file.physical);
  }
  return total;
}

}  // namespace quon
