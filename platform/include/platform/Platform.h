#pragma once

#include <cstdint>

namespace quon {

class DirectoryService;
class FileService;
class ThreadService;

/// The services of the desktop that the scan engine and the index call. Owned by the program's main; outlives
/// everything that refers to it.
struct Platform {
  const DirectoryService& directories;
  const FileService& files;
  const ThreadService& threads;
};

}  // namespace quon
