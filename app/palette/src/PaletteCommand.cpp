#include "palette/PaletteCommand.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <iterator>

#include "base/Text.h"
#include "model/AppModel.h"
#include "search/FoldedText.h"
#include "search/Tokens.h"

namespace quon {
namespace {

constexpr std::array<const char*, kLenses.size()> kLensIcons{
    "chart.pie",  "list.number", "tag",           "clock",    "arrow.3.trianglepath",
    "doc.on.doc", "textformat",  "internaldrive", "tag.slash"};

void addLenses(AppModel& model, std::vector<PaletteCommand>& commands) {
  for (std::size_t at = 0; at < kLenses.size(); ++at) {
    const Lens lens = kLenses[at];
    commands.push_back({fmt::format("lens-{}", titleOf(lens)), fmt::format("Go to {}", titleOf(lens)),
                        kLensIcons[at], fmt::format("⌘{}", at + 1), "lens view show",
                        [&model, lens] { model._lens.set(lens); }});
  }
}

void addViews(AppModel& model, std::vector<PaletteCommand>& commands) {
  const bool offersTreemap = model._mapMode.get() == MapMode::sunburst;
  commands.push_back({"mapmode", offersTreemap ? "Show as Treemap" : "Show as Sunburst",
                      offersTreemap ? "square.grid.2x2" : "chart.pie", "⌘⇧M", "map style sunburst treemap",
                      [&model, offersTreemap] {
                        model._mapMode.set(offersTreemap ? MapMode::treemap : MapMode::sunburst);
                      }});
  const bool offersPhysical = model._metric.get() == Metric::logical;
  commands.push_back(
      {"metric", offersPhysical ? "Show Physical Sizes" : "Show Logical Sizes", "internaldrive", "⌘⇧P",
       "metric size logical physical apparent on disk",
       [&model, offersPhysical] { model._metric.set(offersPhysical ? Metric::physical : Metric::logical); }});
  if (model._scope.get() && model._scope.get()->parent != nullptr) {
    commands.push_back({"up", "Enclosing Folder", "chevron.up", std::nullopt, "up parent back go",
                        [&model] { model.goUp(); }});
  }
  if (model.hasQuery()) {
    commands.push_back({"clear", "Clear Filters", "xmark.circle", std::nullopt, "reset query chips search",
                        [&model] { model.clearQuery(); }});
  }
  const bool shown = model._showInspector.get();
  commands.push_back({"inspector", shown ? "Hide List Pane" : "Show List Pane", "sidebar.trailing", "⌘⌥I",
                      "inspector toggle", [&model, shown] { model._showInspector.set(!shown); }});
}

void addRoots(AppModel& model, std::vector<PaletteCommand>& commands) {
  commands.push_back({"rescan", "Rescan", "arrow.clockwise", "⌘R", "refresh reload index scan",
                      [&model] { model.scan(std::string(model._rootPath.get())); }});
  commands.push_back({"open", "Open Folder…", "folder", std::nullopt, "scan choose pick volume",
                      [&model] { model.openFolder(); }});
  for (const std::string& root : model._recentRoots.get()) {
    commands.push_back({"recent-" + root, "Scan " + displayText(root), "clock.arrow.circlepath", std::nullopt,
                        "recent root open scan", [&model, root] { model.scan(root); }});
  }
  if (!model._hasFullDiskAccess.get()) {
    commands.push_back({"fda", "Grant Full Disk Access", "lock.shield", std::nullopt,
                        "permission privacy containers settings", [&model] { model.openPrivacySettings(); }});
  }
}

}  // namespace

std::vector<PaletteCommand> paletteCommands(AppModel& model) {
  std::vector<PaletteCommand> commands;
  addLenses(model, commands);
  addViews(model, commands);
  addRoots(model, commands);
  return commands;
}

std::vector<PaletteCommand> matchedCommands(std::vector<PaletteCommand> commands, std::string_view text) {
  const std::string wanted = folded(text);
  const std::vector<std::string_view> words = tokensOf(wanted);
  std::erase_if(commands, [&](const PaletteCommand& command) {
    const std::string searched = folded(command.title + " " + command.keywords);
    return std::ranges::any_of(
        words, [&](std::string_view word) { return searched.find(word) == std::string::npos; });
  });
  return commands;
}

std::string shownShortcut(std::string_view stored) {
  constexpr std::pair<std::string_view, std::string_view> kKeys[]{
      {"⌘", "Ctrl+"}, {"⌥", "Alt+"}, {"⇧", "Shift+"}};
  std::string shown;
  while (!stored.empty()) {
    const auto* const key =
        std::ranges::find_if(kKeys, [&](const auto& known) { return stored.starts_with(known.first); });
    if (key == std::end(kKeys)) return shown + std::string(stored);
    shown += key->second;
    stored.remove_prefix(key->first.size());
  }
  return shown;
}

void runPaletteRow(AppModel& model, const PaletteRow& row) {
  model.perform([&model, row] {
    model._showPalette.set(false);
    if (const auto* command = std::get_if<PaletteCommand>(&row)) {
      command->run();
    } else {
      model.jump(std::get<Entry>(row));
    }
  });
}

std::vector<PaletteRow> paletteRows(AppModel& model, std::string_view text) {
  std::vector<PaletteRow> rows;
  for (PaletteCommand& command : matchedCommands(paletteCommands(model), text)) {
    rows.emplace_back(std::move(command));
  }
  if (!tokensOf(text).empty()) std::ranges::copy(model._paletteHits.get(), std::back_inserter(rows));
  return rows;
}

}  // namespace quon
