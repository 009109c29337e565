# Checks the dynamic symbols that each library exports against the committed list.
#
# For every library, the defined dynamic symbols (nm -D --defined-only) are demangled with
# c++filt, the standard string and stream types are shortened to their usual names, and the
# resulting set of names must equal that library's section of the expected list. The check fails
#  - when an exported name is a standard-library instantiation, a function-local static, a guard
#    variable or a name of an anonymous namespace: those are the library's own business, and a
#    host that bound to them would break with any rebuild;
#  - when any other exported name is not in the list: a helper that escaped hidden visibility;
#  - when a listed name is not exported: a host compiled against it would no longer load.
# Constructor and destructor variants demangle to one name, so one line stands for all of them.
#
# Run as: cmake -DNM=<nm> -DCXXFILT=<c++filt> -DEXPECTED=<list> -DLIBRARIES=<path;...>
#         -DWORK_DIR=<dir> -P check_symbols.cmake
cmake_minimum_required(VERSION 3.25)

foreach(var NM CXXFILT EXPECTED LIBRARIES WORK_DIR)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "check_symbols.cmake needs -D${var}=...")
  endif()
endforeach()
file(MAKE_DIRECTORY ${WORK_DIR})

# short_names(var): the usual names of the standard string and stream types in ${var}.
macro(short_names var)
  string(REPLACE "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >"
                 "std::string" ${var} "${${var}}")
  foreach(stream istream ostream iostream)
    string(REPLACE "std::basic_${stream}<char, std::char_traits<char> >" "std::${stream}"
                   ${var} "${${var}}")
  endforeach()
endmacro()

# internal_kind(mangled out): why the symbol `mangled` must not be exported, or empty.
function(internal_kind mangled out)
  set(kind "")
  if(mangled MATCHES "^_Z(T[VIST]|Th[0-9n_]*|Tv[0-9n_]*)?N?K?(St|Sa|Sb|Ss|Si|So|Sd|9__gnu_cxx)")
    set(kind "standard-library instantiation")
  elseif(mangled MATCHES "^_ZGV")
    set(kind "guard variable")
  elseif(mangled MATCHES "^_ZZ")
    set(kind "function-local static")
  elseif(mangled MATCHES "_GLOBAL__N")
    set(kind "name of an anonymous namespace")
  endif()
  set(${out} "${kind}" PARENT_SCOPE)
endfunction()

# The expected list: "[libname.so]" opens a section, "#" a comment; every other non-blank line is
# one demangled name of the current section.
file(STRINGS ${EXPECTED} expected_lines)
set(section "")
set(sections "")
foreach(line IN LISTS expected_lines)
  if(line MATCHES "^[ \t]*(#|$)")
    continue()
  elseif(line MATCHES "^\\[([^]]+)\\]$")
    set(section ${CMAKE_MATCH_1})
    list(APPEND sections ${section})
    set(expected_${section} "")
  elseif(section STREQUAL "")
    message(FATAL_ERROR "${EXPECTED}: a name before the first [library] line: ${line}")
  else()
    list(APPEND expected_${section} "${line}")
  endif()
endforeach()

set(failures 0)
foreach(library IN LISTS LIBRARIES)
  get_filename_component(name ${library} NAME)
  string(REGEX REPLACE "\\.so\\..*$" ".so" name "${name}")
  if(NOT name IN_LIST sections)
    message("FAILED: ${EXPECTED} has no [${name}] section")
    math(EXPR failures "${failures} + 1")
    continue()
  endif()

  execute_process(COMMAND ${NM} -D --defined-only ${library}
                  RESULT_VARIABLE result OUTPUT_VARIABLE nm_output ERROR_VARIABLE nm_error)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} -D --defined-only ${library} failed:\n${nm_error}")
  endif()
  string(REGEX MATCHALL "[^\n]+" nm_lines "${nm_output}")
  set(mangled_names "")
  foreach(line IN LISTS nm_lines)
    if(line MATCHES "^[0-9a-fA-F]* *[A-Za-z] ([^ @]+)")
      list(APPEND mangled_names ${CMAKE_MATCH_1})
    endif()
  endforeach()
  list(REMOVE_DUPLICATES mangled_names)

  # Demangle all names with one c++filt run; line k of its output belongs to name k.
  string(REPLACE ";" "\n" mangled_text "${mangled_names}")
  file(WRITE ${WORK_DIR}/${name}.mangled "${mangled_text}\n")
  execute_process(COMMAND ${CXXFILT} INPUT_FILE ${WORK_DIR}/${name}.mangled
                  RESULT_VARIABLE result OUTPUT_VARIABLE demangled_text)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${CXXFILT} failed on the symbols of ${library}")
  endif()
  short_names(demangled_text)
  string(REGEX MATCHALL "[^\n]+" demangled_names "${demangled_text}")

  set(exported "")
  set(index 0)
  foreach(mangled IN LISTS mangled_names)
    list(GET demangled_names ${index} demangled)
    math(EXPR index "${index} + 1")
    internal_kind(${mangled} kind)
    if(kind)
      message("FAILED: ${name} exports a ${kind}: ${demangled}")
      math(EXPR failures "${failures} + 1")
      continue()
    endif()
    list(APPEND exported "${demangled}")
    if(NOT demangled IN_LIST expected_${name})
      message("FAILED: ${name} exports a name that is not in the list (hide it, or list it if "
              "hosts are meant to use it): ${demangled}")
      math(EXPR failures "${failures} + 1")
    endif()
  endforeach()
  foreach(wanted IN LISTS expected_${name})
    if(NOT wanted IN_LIST exported)
      message("FAILED: ${name} no longer exports a listed name: ${wanted}")
      math(EXPR failures "${failures} + 1")
    endif()
  endforeach()
  list(REMOVE_DUPLICATES exported)
  list(LENGTH exported count)
  message(STATUS "${name}: ${count} exported names")
endforeach()

if(failures GREATER 0)
  message(FATAL_ERROR "${failures} exported-symbol problem(s); the list is ${EXPECTED}")
endif()
