# Run when zorn is installed: copies the headers for authors of modules to include/zorn. They are those
# that export something, those that are the contract of modules without doing so, and what these include.

cmake_minimum_required(VERSION 3.25)

# Sets `out` to the headers, relative to src/.
function(find_public_headers out)
  file(GLOB_RECURSE all RELATIVE ${ZORN_SOURCE_DIR}/src ${ZORN_SOURCE_DIR}/src/*.h)
  set(waiting service/switch_binding.h trace/trace.h)
  foreach(header IN LISTS all)
    file(STRINGS ${ZORN_SOURCE_DIR}/src/${header} exports REGEX "ZORN_API")
    if(exports)
      list(APPEND waiting ${header})
    endif()
  endforeach()
  set(public)
  while(waiting)
    list(POP_FRONT waiting header)
    if(NOT header IN_LIST public)
      list(APPEND public ${header})
      file(STRINGS ${ZORN_SOURCE_DIR}/src/${header} includes REGEX "^#include \"")
      list(TRANSFORM includes REPLACE "^#include \"([^\"]+)\".*" "\\1")
      list(APPEND waiting ${includes})
    endif()
  endwhile()
  set(${out} ${public} PARENT_SCOPE)
endfunction()

find_public_headers(headers)
foreach(header IN LISTS headers)
  get_filename_component(folder ${header} DIRECTORY)
  file(INSTALL ${ZORN_SOURCE_DIR}/src/${header}
    DESTINATION ${CMAKE_INSTALL_PREFIX}/${ZORN_HEADERS_DIR}/${folder})
endforeach()
