# wsi_library(name INCLUDE_DIRS dir... SOURCES source...): one of the project's shared libraries,
# built with hidden visibility and the project's warnings, its public headers taken from the
# given folders alone (each library marks its names with its own export macro, so no library
# reaches into another's headers), and only its own interface exported: hidden visibility keeps
# the library's own names in, and the version script abi/lib<name>.map keeps out the
# standard-library instantiations it compiles for itself, which no attribute can hide
# (docs/abi.md).
function(wsi_library name)
  cmake_parse_arguments(ARG "" "" "INCLUDE_DIRS;SOURCES" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  foreach(dir ${ARG_INCLUDE_DIRS})
    target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/${dir}>)
  endforeach()
  target_include_directories(${name} PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  set(map ${PROJECT_SOURCE_DIR}/abi/lib${name}.map)
  target_link_options(${name} PRIVATE "LINKER:--version-script=${map}")
  set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${map})
  wsi_warnings(${name})
endfunction()
