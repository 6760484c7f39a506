# quon_library(NAME SOURCES ... [PUBLIC libs...] [PRIVATE libs...])
# A module: a static library whose headers lie in an include root of its own (./include), so that a module
# can include only what it links.
function(quon_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/include)
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE quon_flags ${ARG_PRIVATE})
endfunction()

# quon_test(NAME SOURCES ... LIBRARIES ... [LABELS ...])
# A GoogleTest program, each of whose tests is a CTest test. The sources are remembered, so that
# quon_check_test_sources can find a source that no target builds.
function(quon_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES;LABELS;DEPENDS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  if(NOT ARG_LABELS)
    set(ARG_LABELS single)  # an empty list would take the next property's name for a label
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE quon_flags ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  if(ARG_DEPENDS)
    add_dependencies(${name} ${ARG_DEPENDS})
  endif()
  quon_remember_test_sources(${ARG_SOURCES})
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES
    PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT})
endfunction()

function(quon_remember_test_sources)
  foreach(source ${ARGN})
    cmake_path(ABSOLUTE_PATH source NORMALIZE)
    set_property(GLOBAL APPEND PROPERTY QUON_TEST_SOURCES ${source})
  endforeach()
endfunction()

# Fails the configuration when a source below tests/ belongs to no target: it would be a test that never runs.
function(quon_check_test_sources)
  file(GLOB_RECURSE found CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/*.cpp)
  get_property(known GLOBAL PROPERTY QUON_TEST_SOURCES)
  foreach(source ${found})
    if(NOT source IN_LIST known)
      message(FATAL_ERROR "${source} belongs to no target")
    endif()
  endforeach()
endfunction()
