#include "model/CommandBar.h"

#include <utility>

#include "SearchWork.h"
#include "search/Tokens.h"

namespace quon {
namespace {

constexpr std::chrono::duration<double> kTypingPause{0.08};

/// Without the white space around it.
std::string trimmed(std::string_view text) {
  const auto tokens = tokensOf(text);
  if (tokens.empty()) return {};
  return {tokens.front().data(), tokens.back().data() + tokens.back().size()};
}

}  // namespace

CommandBar::CommandBar(ModelState& model)
    : _showPalette(model),
      _paletteHits(model),
      _paletteSearching(model),
      state(model),
      job(model, QueueName::palette, Job::Reads::tree, _paletteSearching,
          {.prepare = [this] { return searchWork(state, lastPaletteText, false, paletteCap); },
           .deliver = [this](SearchHits&& hits) { _paletteHits.set(std::move(hits.rows)); },
           .clear = [this] { _paletteHits.set({}); }}) {}

void CommandBar::schedulePaletteSearch(const std::string& text) {
  state.perform([this, text] {
    lastPaletteText = trimmed(text);
    job.request();
  });
}

void CommandBar::deriveCommandBar() {
  if (lastPaletteText.empty() || !state.shownTree()) return job.clear();
  ViewKey key = state.viewKey(lastPaletteText);
  key.scopePath.clear();
  job.follow(key, _showPalette.get(),
             state.options.typingPauses ? kTypingPause : std::chrono::duration<double>{});
}

}  // namespace quon
