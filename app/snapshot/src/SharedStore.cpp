#include "snapshot/SharedStore.h"

#include <ctime>
#include <exception>
#include <fmt/format.h>
#include <system_error>

#include "base/Path.h"

namespace quon {
namespace {

constexpr std::string_view kName = "snapshot.json";
/// What a killed program left half-written is of nobody's use after so many seconds.
constexpr std::int64_t kAbandoned = 3600;

}  // namespace

SharedStore::SharedStore(const FileService& fileService, const Folders& folders, Log& messages)
    : files(fileService), folder(folders.shared()), log(messages) {}

std::optional<std::string> SharedStore::containerURL() const {
  try {
    files.makePrivateFolder(folder);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
  return folder;
}

bool SharedStore::write(const QuonSnapshot& snapshot) const {
  const std::optional<std::string> container = containerURL();
  if (!container) {
    log.line("app-group container unavailable (entitlement missing?)");
    return false;
  }
  const std::string path = joinPath(*container, kName);
  std::string text;
  try {
    text = snapshot.encoded();
    removeAbandoned(*container);
    files.writePrivateFile(path, text);
  } catch (const std::exception& failure) {
    log.line(fmt::format("snapshot write failed: {}", failure.what()));
    return false;
  }
  log.line(fmt::format("snapshot written: {}B, {} folders, {} kinds → {}", text.size(), snapshot.topFolders.size(),
                       snapshot.topKinds.size(), path));
  return true;
}

void SharedStore::removeAbandoned(const std::string& container) const {
  const std::int64_t now = std::time(nullptr);
  for (const FolderItem& item : files.list(container)) {
    const bool isUnfinished = item.name.size() > kName.size() && item.name.starts_with(kName);
    if (isUnfinished && now - item.mtime > kAbandoned) (void)files.remove(joinPath(container, item.name));
  }
}

}  // namespace quon
