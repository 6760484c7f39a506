#include "base/Log.h"

#include <cstdio>
#include <string>

#include "base/Text.h"

namespace quon {

void StandardErrorLog::line(std::string_view text) {
  const std::string whole = "[quon] " + displayText(text) + "\n";
  // One call, under the stream's lock. There is nowhere to report a broken standard error to.
  std::fwrite(whole.data(), 1, whole.size(), stderr);
}

}  // namespace quon
