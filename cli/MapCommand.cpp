#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "FolderReport.h"
#include "Output.h"
#include "base/ByteJson.h"
#include "base/Path.h"
#include "base/Text.h"
#include "picture/FolderPicture.h"
#include "platform_linux/NewFile.h"

namespace quon::cli {

int runMap(Session& session, const Command& command) {
  const MapPicture& wanted = command.map;
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  const DrawnPicture picture =
      drawn({.scope = {tree.scope, std::string(pathPrefix(tree.root)), command.metric},
             .path = path,
             .when = localTime(tree.scannedAt),
             .mode = wanted.mode,
             .dark = wanted.dark,
             .fontCache = session.folders.data + "/fonts",
             .size = {static_cast<double>(wanted.width), static_cast<double>(wanted.height)},
             .scale = wanted.scale},
            wanted.isVector() ? PictureFormat::svg : PictureFormat::png);
  {
    NewFile file(wanted.file);
    session.runner().setUnfinished(file.unfinished());
    file.write(picture.bytes);
    session.runner().setUnfinished("");
  }
  const unsigned width = wanted.width * wanted.scale;
  const unsigned height = wanted.height * wanted.scale;
  if (command.json) {
    printDocument(Json{{"path", encodeBytes(path)},
                       {"file", encodeBytes(wanted.file)},
                       {"mode", rawTextOf(wanted.mode)},
                       {"metric", nameOf(command.metric)},
                       {"width", width},
                       {"height", height},
                       {"marks", picture.marks}});
  } else {
    print(fmt::format("{}: {} of {}, {} × {}\n", displayText(wanted.file), rawTextOf(wanted.mode),
                      displayText(path), width, height));
  }
  reportUnreadable(tree);
  return 0;
}

}  // namespace quon::cli
