#include "scan/FileBatch.h"

#include <cstring>

namespace quon {
namespace {

/// Memory beyond these is freed, so that a folder of a million files does not cost it for the rest of the
/// scan.
constexpr std::size_t kRetainedRecords = std::size_t{16} * 1024;
constexpr std::size_t kRetainedNameBytes = std::size_t{512} * 1024;

}  // namespace

void FileBatch::Builder::clear() {
  if (records.capacity() > kRetainedRecords) {
    std::vector<Record>().swap(records);
    records.reserve(kRetainedRecords);
  }
  if (names.capacity() > kRetainedNameBytes) {
    std::string().swap(names);
    names.reserve(kRetainedNameBytes);
  }
  records.clear();
  names.clear();
}

void FileBatch::Builder::add(const File& file) {
  names += file.name;
  records.push_back({file.logical, file.physical, file.mtime, names.size()});
}

FileBatch FileBatch::Builder::build() const {
  FileBatch batch;
  if (records.empty()) return batch;
  const std::size_t recordBytes = records.size() * sizeof(Record);
  batch.count = records.size();
  batch.allocated = recordBytes + names.size();
  batch.memory = std::make_unique_for_overwrite<std::byte[]>(batch.allocated);
  std::memcpy(batch.memory.get(), records.data(), recordBytes);
  std::memcpy(batch.memory.get() + recordBytes, names.data(), names.size());
  return batch;
}

FileBatch::File FileBatch::operator[](std::size_t index) const {
  const auto* records = reinterpret_cast<const Builder::Record*>(memory.get());
  const auto* names = reinterpret_cast<const char*>(memory.get() + count * sizeof(Builder::Record));
  const std::uint64_t begin = index == 0 ? 0 : records[index - 1].nameEnd;
  const Builder::Record& record = records[index];
  return {{names + begin, record.nameEnd - begin}, record.logical, record.physical, record.mtime};
}

}  // namespace quon
