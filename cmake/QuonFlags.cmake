# One interface target carries the language level, the warnings and the sanitizers of every target.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(quon_flags INTERFACE)
target_compile_features(quon_flags INTERFACE cxx_std_20)
target_compile_options(quon_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -fstack-protector-strong $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<BOOL:${QUON_WERROR}>:-Werror>)

if(QUON_SANITIZE)
  # For the libraries and tests alike, so on the directory and not on the interface target.
  add_compile_options(-fsanitize=${QUON_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUON_SANITIZE})
  if(QUON_SANITIZE MATCHES undefined)
    # It looks at objects through a pipe, and takes sound ones for broken when descriptors have run out, which
    # tests bring about.
    add_compile_options(-fno-sanitize=vptr)
  endif()
elseif(CMAKE_BUILD_TYPE STREQUAL "Release" OR CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
  add_compile_definitions(_FORTIFY_SOURCE=2)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  # Clones in different folders share what one of them has compiled.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=true ${CCACHE})
endif()
