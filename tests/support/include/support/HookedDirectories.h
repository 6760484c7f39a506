#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "platform/Directories.h"

namespace quon::test {

/// Folders that call back before one of them is opened, with the path or the name that opens it. Threads: as
/// the service below; the callback runs on the thread that opens.
class HookedDirectories final : public DirectoryService {
 public:
  HookedDirectories(const DirectoryService& below, std::function<void(const std::string&)> callback)
      : real(below), beforeOpening(std::move(callback)) {}

  [[nodiscard]] std::unique_ptr<DirectoryReader> makeReader() const override {
    return std::make_unique<Reader>(*this, real.makeReader());
  }

 private:
  class Reader final : public DirectoryReader {
   public:
    Reader(const HookedDirectories& service, std::unique_ptr<DirectoryReader> below)
        : owner(service), real(std::move(below)) {}
    OpenedDirectory open(const std::string& path) override {
      owner.beforeOpening(path);
      return real->open(path);
    }
    OpenedDirectory openChild(const OpenDirectory& parent, const std::string& name) override {
      owner.beforeOpening(name);
      return real->openChild(parent, name);
    }
    void start(const OpenDirectoryRef& directory, Detail detail) override { real->start(directory, detail); }
    DirectoryBatch next() override { return real->next(); }

   private:
    const HookedDirectories& owner;
    const std::unique_ptr<DirectoryReader> real;
  };

  const DirectoryService& real;
  const std::function<void(const std::string&)> beforeOpening;
};

}  // namespace quon::test
