# brimlog_layer(NAME [PREFIX P] [DEPS ...] [PRIVATE_DEPS ...]): the sources of the folder NAME beside
# the calling CMakeLists as the library P_NAME (brimlog_NAME without a prefix).
#
# Every library sees its own headers and those of the libraries it links, and no others: its
# include root holds a link to its own folder alone, so `#include "store/UsageStore.hpp"` from a
# folder that does not link the store does not compile. Sources are found in the folder and its
# sub-folders (ingest/ keeps each tool in one), so adding a
# type means adding its files.
function(brimlog_layer name)
  cmake_parse_arguments(LAYER "" "PREFIX" "DEPS;PRIVATE_DEPS" ${ARGN})
  if(NOT LAYER_PREFIX)
    set(LAYER_PREFIX brimlog)
  endif()
  set(target ${LAYER_PREFIX}_${name})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  set(root ${CMAKE_CURRENT_BINARY_DIR}/layers/${name})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${name} ${root}/${name} SYMBOLIC)
  if(sources)
    add_library(${target} STATIC ${sources})
    target_include_directories(${target} PUBLIC ${root})
    target_link_libraries(${target} PUBLIC brimlog_options ${LAYER_DEPS}
                                       PRIVATE ${LAYER_PRIVATE_DEPS})
  else()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${root})
    target_link_libraries(${target} INTERFACE brimlog_options ${LAYER_DEPS})
  endif()
endfunction()
