# Installs the build tree into a fresh prefix and builds a host program against it twice: with
# find_package(qvwsi) and with only `pkg-config --cflags --libs qvwsi`. Both programs must run,
# without LD_LIBRARY_PATH, and do one exchange over streams.
#
# Run as: cmake -DBUILD_DIR=<build tree> -DCONSUMER_DIR=<this directory> -DWORK_DIR=<scratch>
#         -DCXX_COMPILER=<c++> -DGENERATOR=<generator> -DVERSION=<x.y.z> -DREADELF=<readelf>
#         [-DSANITIZE=<list>] -P check_install.cmake
cmake_minimum_required(VERSION 3.25)

foreach(var BUILD_DIR CONSUMER_DIR WORK_DIR CXX_COMPILER GENERATOR VERSION READELF)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "check_install.cmake needs -D${var}=...")
  endif()
endforeach()

# run(step command...): runs one command, fails the test with its output when it fails.
function(run step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${step} failed (${result}):\n${out}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

# A library built with sanitizers needs their run-time in the program that loads it.
set(flags)
if(SANITIZE)
  set(flags -fsanitize=${SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
endif()
string(JOIN " " flags_text ${flags})
string(REGEX MATCH "^[0-9]+" major "${VERSION}")

# Only the installed tree may serve: no library path, no pkg-config path of the caller's.
unset(ENV{LD_LIBRARY_PATH})
unset(ENV{PKG_CONFIG_PATH})
unset(ENV{CMAKE_PREFIX_PATH})

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

# --- the installed layout --------------------------------------------------------------------
run("cmake --install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(file
    include/wsi/wsi.hpp include/wsi/wsi.h include/wsi/export.h include/wsi/interface.hpp
    include/wx/wx.hpp include/wx/export.hpp include/qco/qco.hpp include/qco/export.hpp
    include/w3/w3.h include/w3/export.h
    lib/libqvwsi.so.${VERSION} lib/libqvwxutil.so lib/libw3srvpgm.so lib/libqvqco.so
    lib/pkgconfig/qvwsi.pc lib/cmake/qvwsi/qvwsiConfig.cmake
    lib/cmake/qvwsi/qvwsiConfigVersion.cmake)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()

foreach(link_and_target "libqvwsi.so:libqvwsi.so.${major}" "libqvwsi.so.${major}:libqvwsi.so.${VERSION}")
  string(REPLACE ":" ";" pair "${link_and_target}")
  list(GET pair 0 link)
  list(GET pair 1 expected)
  if(NOT IS_SYMLINK ${prefix}/lib/${link})
    message(FATAL_ERROR "lib/${link} is not a symbolic link")
  endif()
  file(READ_SYMLINK ${prefix}/lib/${link} target)
  if(NOT target STREQUAL expected)
    message(FATAL_ERROR "lib/${link} points to ${target}, expected ${expected}")
  endif()
endforeach()

run("readelf" ${READELF} -d ${prefix}/lib/libqvwsi.so.${VERSION})
if(NOT run_output MATCHES "\\(SONAME\\)[^\n]*\\[libqvwsi\\.so\\.${major}\\]")
  message(FATAL_ERROR "libqvwsi.so.${VERSION} does not have the SONAME libqvwsi.so.${major}:\n${run_output}")
endif()

# --- a host built with find_package ----------------------------------------------------------
set(cmake_build ${WORK_DIR}/find_package)
run("configuring the consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${cmake_build}
    -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    "-DCMAKE_CXX_FLAGS=${flags_text}"
    -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
file(STRINGS ${cmake_build}/CMakeCache.txt found_dir REGEX "^qvwsi_DIR:")
if(NOT found_dir STREQUAL "qvwsi_DIR:PATH=${prefix}/lib/cmake/qvwsi")
  message(FATAL_ERROR "the consumer found another qvwsi: ${found_dir}")
endif()
run("building the consumer" ${CMAKE_COMMAND} --build ${cmake_build})
run("running the find_package consumer" ${cmake_build}/app)
message("find_package consumer:\n${run_output}")

# --- a host built with pkg-config alone ------------------------------------------------------
set(ENV{PKG_CONFIG_LIBDIR} ${prefix}/lib/pkgconfig)
run("pkg-config --modversion" pkg-config --modversion qvwsi)
string(STRIP "${run_output}" pc_version)
if(NOT pc_version STREQUAL VERSION)
  message(FATAL_ERROR "qvwsi.pc gives version ${pc_version}, expected ${VERSION}")
endif()
run("pkg-config --cflags --libs" pkg-config --cflags --libs qvwsi)
string(STRIP "${run_output}" pc_flags)
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
run("compiling the pkg-config consumer"
    ${CXX_COMPILER} -std=c++11 ${flags} ${CONSUMER_DIR}/main.cpp ${pc_flags} -o ${WORK_DIR}/app-pc)
run("running the pkg-config consumer" ${WORK_DIR}/app-pc)
message("pkg-config consumer:\n${run_output}")
