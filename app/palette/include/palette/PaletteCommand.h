#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "rows/Entry.h"

namespace quon {

class AppModel;

/// One command of the command bar, for the present state of the model. Threads: main only.
struct PaletteCommand {
  std::string id;  ///< stable
  std::string title;
  std::string icon;                     ///< name of a symbol
  std::optional<std::string> shortcut;  ///< as stored: "⌘⇧M"
  std::string keywords;                 ///< further words that find it
  std::function<void()> run;            ///< while the model lives
};

using PaletteRow = std::variant<PaletteCommand, Entry>;

/// Every command that can be given now, in the order of the bar.
[[nodiscard]] std::vector<PaletteCommand> paletteCommands(AppModel& model);

/// Those whose title or keywords contain every word of the text; all of them for a text without words.
[[nodiscard]] std::vector<PaletteCommand> matchedCommands(std::vector<PaletteCommand> commands,
                                                          std::string_view text);

/// A shortcut with the names that keys have here: "Ctrl+Shift+M" for "⌘⇧M".
[[nodiscard]] std::string shownShortcut(std::string_view stored);

/// What the bar lists for a text: the commands, then the files that the model's search for it has found.
[[nodiscard]] std::vector<PaletteRow> paletteRows(AppModel& model, std::string_view text);

/// The row was chosen: runs its command or goes to its file, and closes the bar.
void runPaletteRow(AppModel& model, const PaletteRow& row);

}  // namespace quon
