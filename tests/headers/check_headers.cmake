# Compiles every public header on its own, so that a host can include any of them first.
#
# Each header becomes a translation unit that includes it twice (the second time proves the
# include guard), followed by one declaration (ISO C forbids an empty unit), and is compiled as C++11 with -Wall -Wextra -Werror -pedantic; every *.h is a C
# header and is compiled as C99 as well. All failures are listed, then the script fails.
#
# Run as: cmake -DSOURCE_DIR=<project> -DCXX_COMPILER=<c++> -DC_COMPILER=<cc> -DWORK_DIR=<dir>
#         -P check_headers.cmake
cmake_minimum_required(VERSION 3.25)

foreach(var SOURCE_DIR CXX_COMPILER C_COMPILER WORK_DIR)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "check_headers.cmake needs -D${var}=...")
  endif()
endforeach()

set(include_roots wsi/include wx/include qco/include w3/include)
set(warning_flags -Wall -Wextra -Werror -pedantic -fsyntax-only)

set(include_flags)
set(headers)
foreach(root IN LISTS include_roots)
  list(APPEND include_flags -I${SOURCE_DIR}/${root})
  file(GLOB_RECURSE found RELATIVE ${SOURCE_DIR}/${root}
       ${SOURCE_DIR}/${root}/*.h ${SOURCE_DIR}/${root}/*.hpp)
  list(APPEND headers ${found})
endforeach()
list(SORT headers)
if(NOT headers)
  message(FATAL_ERROR "no public headers found under ${SOURCE_DIR}")
endif()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

set(failures 0)
set(checked 0)

# compile(header language standard extension compiler): one translation unit for `header`.
function(compile header language standard extension compiler)
  string(MAKE_C_IDENTIFIER "${header}_${language}" unit)
  set(source ${WORK_DIR}/${unit}.${extension})
  file(WRITE ${source} "#include <${header}>\n#include <${header}>\ntypedef int header_check;\n")
  execute_process(
    COMMAND ${compiler} -x ${language} -std=${standard} ${warning_flags} ${include_flags} ${source}
    RESULT_VARIABLE result
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output)
  math(EXPR n "${checked} + 1")
  set(checked ${n} PARENT_SCOPE)
  if(NOT result EQUAL 0)
    message("FAILED: <${header}> as ${standard}:\n${output}")
    math(EXPR n "${failures} + 1")
    set(failures ${n} PARENT_SCOPE)
  endif()
endfunction()

foreach(header IN LISTS headers)
  compile(${header} c++ c++11 cpp ${CXX_COMPILER})
  if(header MATCHES "\\.h$")
    compile(${header} c c99 c ${C_COMPILER})
  endif()
endforeach()

list(LENGTH headers count)
if(failures GREATER 0)
  message(FATAL_ERROR "${failures} of ${checked} header compilations failed")
endif()
message("${count} public headers, ${checked} compilations: all self-contained")
