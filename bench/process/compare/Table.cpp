#include "compare/Table.h"

#include <fmt/format.h>
#include <iterator>
#include <optional>

namespace quon::bench {
namespace {

constexpr double bytesPerMegabyte = 1e6;

[[nodiscard]] double megabytes(std::uint64_t bytes) {
  return static_cast<double>(bytes) / bytesPerMegabyte;
}

[[nodiscard]] std::string ratio(const std::optional<double>& value) {
  return value ? fmt::format("{:.2f}", *value) : "–";
}

[[nodiscard]] std::string peak(std::uint64_t bytes, std::uint64_t ownPeakBytes) {
  return bytes > ownPeakBytes ? fmt::format("{:.1f}", megabytes(bytes))
                              : fmt::format("≤ {:.1f}", megabytes(bytes));
}

[[nodiscard]] std::string row(const ContestantSummary& summary, std::uint64_t ownPeakBytes) {
  if (!summary.figures) {
    return fmt::format("| `{}` | failed: {} | – | – | – | – |\n", summary.contestant.title, summary.failure);
  }
  const Figures& figures = *summary.figures;
  return fmt::format("| `{}` | {:.3f} ({:.3f}–{:.3f}) | {} | {} | {:.2f} | {} |\n", summary.contestant.title,
                     figures.wallMedian, figures.wallLeast, figures.wallMost, ratio(figures.toFloor),
                     ratio(figures.toDu), figures.processorMedian, peak(figures.peakBytes, ownPeakBytes));
}

}  // namespace

std::string markdownTable(const Report& report, const std::vector<ContestantSummary>& summaries) {
  std::string text =
      "| command | wall s, median (min–max) | to the floor | to `du` | CPU s | peak MB |\n"
      "|---|---:|---:|---:|---:|---:|\n";
  for (const ContestantSummary& summary : summaries) text += row(summary, report.ownPeakBytes);

  const auto out = std::back_inserter(text);
  fmt::format_to(out, "\nMachine: {} cores, {:.1f} GB memory, {}; the tree on {}; {} caches, {} rounds.\n",
                 report.machine.cores, static_cast<double>(report.machine.memoryBytes) / 1e9,
                 report.machine.kernel, report.machine.fileSystem, report.options.cold ? "cold" : "warm",
                 report.options.rounds);
  fmt::format_to(out, "Tree: {} files, {} folders, {} bytes logical, {} bytes physical.\n", report.tree.files,
                 report.tree.folders, report.tree.logical, report.tree.physical);
  fmt::format_to(
      out,
      "Ratios are medians of the ratios within each round. Peaks below {:.1f} MB cannot be measured: a child "
      "inherits the mark of the program that starts it.\n",
      megabytes(report.ownPeakBytes));
  for (const std::string& sentence : report.leftOut) text += sentence + '\n';
  return text;
}

}  // namespace quon::bench
