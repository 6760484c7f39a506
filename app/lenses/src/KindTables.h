#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "lenses/FileKind.h"

namespace quon::Kinds {

struct CategoryText {
  FileKind kind;
  std::string_view extensions;  ///< lower case, a blank between two
};

// Some endings could stand elsewhere and do not: lock, map, pack and idx are what developers' tools leave
// (lock files, source maps, packs of version control), sketch and raw are pictures, pages, numbers and key
// are documents, npz and bin are data, and a ts is source text far more often than a video stream.
inline constexpr std::array<CategoryText, 9> kCategories{{
    {{"code", "Code & dev", 0},
     "js ts tsx jsx mjs cjs mts cts swift rs go py rb php c h cc cpp hpp m mm java kt kts scala sh zsh bash "
     "lua css scss sass styl less html htm xml yml yaml toml lock map sql graphql gql proto pack idx vim el "
     "flow pyi pde erb asm s pbxproj vue svelte astro dart zig nim jl ex exs clj cljs cljc hs ml mli fs fsx "
     "cs pl pm tf tfvars hcl gradle groovy cmake bazel bzl gn coffee pug hbs ejs mustache haml slim res elm "
     "purs cr sol glsl metal hlsl wgsl wat"},
    {{"images", "Images", 1},
     "jpg jpeg png gif heic heif webp svg tif tiff bmp ico raw cr2 nef arw psd ai sketch icns avif jxl dds "
     "tga exr hdr xcf jp2 j2k"},
    {{"archives", "Archives", 2},
     "zip tar gz tgz bz2 tbz xz zst 7z rar jar war aar whl gem crate deb rpm pkg xip nupkg ipa apk aab cab "
     "lz4 lzma br lz"},
    {{"docs", "Documents", 3},
     "pdf doc docx xls xlsx ppt pptx txt md rtf pages numbers key epub mobi tex mdx adoc asciidoc rst org "
     "textile odt ods odp"},
    {{"media", "Media", 4},
     "mp4 mov mkv avi webm m4v mpg mpeg mp3 m4a wav flac aac ogg opus aiff 3gp 3g2 m2ts vob wmv flv f4v wma "
     "amr ac3 dts mid midi caf ape wv"},
    {{"disk", "Disk images & VMs", 5}, "img iso dmg qcow2 vmdk vdi vhd vhdx ipsw sparseimage sparsebundle"},
    {{"data", "Data & DB", 6},
     "json csv tsv sqlite sqlite3 db db3 realm parquet avro log plist dat ndjson jsonl dump mdb ldb sst bin "
     "pak msgpack cbor pkl npy npz h5 hdf5 pcap arrow feather orc bson pb"},
    {{"bins", "Binaries", 7},
     "dylib so a o obj exe dll wasm node car metallib pcm pyc pyo hbc rlib rmeta class bc ko elf pdb ilk "
     "lib"},
    {{"fonts", "Fonts", 8}, "ttf otf ttc woff woff2 eot pfb pfa dfont"},
}};

inline constexpr FileKind kOther{"other", "Other", std::nullopt};

struct NamesText {
  std::size_t category;    ///< index into kCategories
  std::string_view names;  ///< lower case, a blank between two
};

inline constexpr std::array<NamesText, 2> kNamedFiles{{
    {0,
     "makefile gnumakefile dockerfile containerfile rakefile gemfile podfile brewfile procfile vagrantfile "
     "jenkinsfile justfile .gitignore .gitattributes .gitmodules .editorconfig .env .dockerignore .npmrc "
     ".yarnrc .nvmrc .prettierrc .babelrc .eslintrc .bashrc .zshrc .zprofile .profile .vimrc codeowners"},
    {3, "license licence copying notice authors contributors readme changelog news"},
}};

/// Calls `each` with every word of a text of the tables.
template <typename Each>
constexpr void forEachWord(std::string_view text, Each each) {
  while (!text.empty()) {
    const std::size_t blank = text.find(' ');
    const std::string_view word = text.substr(0, blank);
    if (!word.empty()) each(word);
    text = blank == std::string_view::npos ? std::string_view() : text.substr(blank + 1);
  }
}

}  // namespace quon::Kinds
