#include "maketree/NameMaker.h"

namespace quon::bench {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t leastBytes = 3;
constexpr std::size_t mostBytes = 40;

constexpr std::array words{
    "account"sv, "archive"sv, "asset"sv,   "audio"sv,    "backup"sv,   "base"sv,    "batch"sv,  "build"sv,
    "cache"sv,   "chart"sv,   "client"sv,  "common"sv,   "config"sv,   "core"sv,    "data"sv,   "db"sv,
    "default"sv, "detail"sv,  "doc"sv,     "draft"sv,    "driver"sv,   "editor"sv,  "engine"sv, "error"sv,
    "event"sv,   "example"sv, "export"sv,  "family"sv,   "filter"sv,   "final"sv,   "font"sv,   "form"sv,
    "gallery"sv, "graph"sv,   "handler"sv, "holiday"sv,  "icon"sv,     "image"sv,   "import"sv, "index"sv,
    "input"sv,   "invoice"sv, "item"sv,    "kernel"sv,   "layout"sv,   "lib"sv,     "list"sv,   "loader"sv,
    "local"sv,   "log"sv,     "main"sv,    "map"sv,      "message"sv,  "meta"sv,    "model"sv,  "module"sv,
    "network"sv, "node"sv,    "notes"sv,   "object"sv,   "old"sv,      "option"sv,  "output"sv, "package"sv,
    "page"sv,    "parser"sv,  "patch"sv,   "photo"sv,    "plugin"sv,   "project"sv, "query"sv,  "queue"sv,
    "readme"sv,  "record"sv,  "render"sv,  "report"sv,   "resource"sv, "result"sv,  "sample"sv, "schema"sv,
    "script"sv,  "server"sv,  "session"sv, "shader"sv,   "song"sv,     "source"sv,  "state"sv,  "static"sv,
    "style"sv,   "summer"sv,  "table"sv,   "template"sv, "test"sv,     "theme"sv,   "thumb"sv,  "token"sv,
    "tool"sv,    "travel"sv,  "type"sv,    "update"sv,   "util"sv,     "vendor"sv,  "video"sv,  "view"sv,
    "widget"sv,  "window"sv,  "worker"sv,  "x11"sv};

constexpr std::array foreignWords{
    "Größe"sv,   "Bücher"sv, "Übersicht"sv, "naïve"sv,        "café"sv,  "été"sv,   "façade"sv, "señal"sv,
    "año"sv,     "São"sv,    "Żółw"sv,      "příloha"sv,      "сканы"sv, "отчёт"sv, "фото"sv,   "музыка"sv,
    "Έγγραφα"sv, "写真"sv,   "書類"sv,      "ドキュメント"sv, "音楽"sv,  "사진"sv,  "문서"sv,   "🎵"sv};

/// Repeated where it occurs more often.
constexpr std::array extensions{
    ".c"sv,    ".c"sv,    ".h"sv,    ".h"sv,     ".h"sv,    ".cpp"sv,  ".o"sv,   ".so"sv,     ".py"sv,
    ".py"sv,   ".pyc"sv,  ".js"sv,   ".js"sv,    ".js"sv,   ".js"sv,   ".ts"sv,  ".d.ts"sv,   ".js.map"sv,
    ".json"sv, ".json"sv, ".json"sv, ".css"sv,   ".html"sv, ".html"sv, ".xml"sv, ".svg"sv,    ".md"sv,
    ".md"sv,   ".txt"sv,  ".txt"sv,  ".png"sv,   ".png"sv,  ".png"sv,  ".jpg"sv, ".jpg"sv,    ".webp"sv,
    ".mp3"sv,  ".mp4"sv,  ".pdf"sv,  ".docx"sv,  ".log"sv,  ".gz"sv,   ".zip"sv, ".tar.xz"sv, ".db"sv,
    ".yaml"sv, ".rs"sv,   ".java"sv, ".class"sv, ""sv,      ""sv,      ""sv};

constexpr std::array separators{""sv, "_"sv, "_"sv, "-"sv, "-"sv, "."sv, " "sv};

enum FileStyle : std::size_t {
  fileWords,
  fileNumberedWords,
  fileDigest,
  fileCamera,
  fileForeign,
  fileStyles
};
constexpr std::array<std::uint16_t, fileStyles> fileStyleWeights{4'600, 2'900, 1'300, 700, 500};

enum FolderStyle : std::size_t {
  folderWord,
  folderWords,
  folderVersion,
  folderHex,
  folderDate,
  folderForeign,
  folderStyles
};
constexpr std::array<std::uint16_t, folderStyles> folderStyleWeights{4'500, 2'600, 900, 900, 600, 500};

/// Cuts to at most `bytes`, never inside a character.
void cutToBytes(std::string& text, std::size_t bytes) {
  if (text.size() <= bytes) return;
  while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xc0U) == 0x80U) --bytes;
  text.resize(bytes);
}

}  // namespace

const std::string& NameMaker::fileName() {
  name.clear();
  std::string_view extension = random.oneOf(extensions);
  switch (random.pick(fileStyleWeights)) {
    case fileWords:
      appendWords(3);
      break;
    case fileNumberedWords:
      appendWords(3);
      name += random.oneOf(separators);
      appendDigits(1 + random.below(5));
      break;
    case fileDigest:
      appendHex(random.chance(3'000) ? 38 : 8 + random.below(25));
      break;
    case fileCamera:
      name += random.chance(5'000) ? "IMG_" : "DSC";
      if (random.chance(5'000)) appendDate();
      appendDigits(4 + random.below(3));
      extension = ".jpg";
      break;
    default:
      appendForeignWords();
      break;
  }
  finish(extension);
  return name;
}

const std::string& NameMaker::folderName() {
  name.clear();
  switch (random.pick(folderStyleWeights)) {
    case folderWord:
      appendWords(1);
      break;
    case folderWords:
      appendWords(4);
      break;
    case folderVersion:
      appendWords(2);
      name += '-';
      appendDigits(1);
      name += '.';
      appendDigits(1 + random.below(2));
      break;
    case folderHex:
      appendHex(random.chance(5'000) ? 3 : 40);
      break;
    case folderDate:
      appendDate();
      break;
    default:
      appendForeignWords();
      break;
  }
  finish("");
  return name;
}

void NameMaker::appendWords(std::size_t most) {
  const std::string_view separator = random.oneOf(separators);
  const std::size_t count = 1 + random.below(static_cast<std::uint32_t>(most));
  const bool capitals = random.chance(2'000);
  for (std::size_t word = 0; word < count; ++word) {
    if (word > 0) name += separator;
    const std::size_t start = name.size();
    name += random.oneOf(words);
    if (capitals) name[start] = static_cast<char>(name[start] - 'a' + 'A');
  }
}

void NameMaker::appendForeignWords() {
  name += random.oneOf(foreignWords);
  if (random.chance(6'000)) {
    name += ' ';
    name += random.oneOf(foreignWords);
  }
  if (random.chance(6'000)) {
    name += '_';
    appendDigits(1 + random.below(4));
  }
}

void NameMaker::appendDigits(std::size_t count) {
  for (; count > 0; --count) name += static_cast<char>('0' + random.below(10));
}

void NameMaker::appendHex(std::size_t count) {
  for (; count > 0; --count) name += "0123456789abcdef"[random.below(16)];
}

void NameMaker::appendDate() {
  const std::uint32_t month = 1 + random.below(12);
  name += "20";
  name += static_cast<char>('1' + random.below(2));
  appendDigits(1);
  name += '-';
  name += static_cast<char>('0' + month / 10);
  name += static_cast<char>('0' + month % 10);
  name += '_';
}

void NameMaker::finish(std::string_view extension) {
  cutToBytes(name, mostBytes - extension.size());
  while (name.size() + extension.size() < leastBytes) appendDigits(1);
  name += extension;
}

}  // namespace quon::bench
