# Flags that every target of the project is compiled and linked with.

# Warnings, and what the code relies on. Objects of static storage are used before their constructor
# and after their destructor have run (trace calls of other static objects), so the compiler must not
# drop stores at the edges of an object's life.
add_library(zorn_options INTERFACE)
target_compile_options(zorn_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wold-style-cast -Werror
  -fvisibility=hidden -fvisibility-inlines-hidden)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Paths and names are cut at the size of their fields on purpose.
  target_compile_options(zorn_options INTERFACE -fno-lifetime-dse -Wno-format-truncation)
  # Exported functions are called and inlined directly: no module puts its own in their place.
  target_compile_options(zorn_options INTERFACE -fno-semantic-interposition)
  # With ccache in front precompiled headers need this.
  target_compile_options(zorn_options INTERFACE -fpch-preprocess)
else()
  target_compile_options(zorn_options INTERFACE -Wthread-safety)
endif()
target_include_directories(zorn_options INTERFACE ${CMAKE_SOURCE_DIR}/src)

if(ZORN_HARDENING)
  target_compile_options(zorn_options INTERFACE
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fcf-protection=full
    -fstack-clash-protection)
  target_link_options(zorn_options INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack)
endif()

if(ZORN_SANITIZE)
  target_compile_options(zorn_options INTERFACE
    -fsanitize=${ZORN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zorn_options INTERFACE -fsanitize=${ZORN_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ 12 takes what the sanitizers add for reads of std::regex's members before they are set.
    target_compile_options(zorn_options INTERFACE -Wno-maybe-uninitialized)
  endif()
endif()

if(ZORN_FUZZ)
  target_compile_options(zorn_options INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(zorn_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# zorn_subsystem(NAME USES SUBSYSTEM... SOURCES FILE...)
#
# One subsystem of the product. USES names the subsystems whose headers it may include: only those
# below it (scripts/check.sh looks at the includes themselves). An object library, so that every
# object reaches the executable whole, also what only modules call.
function(zorn_subsystem name)
  cmake_parse_arguments(arg "" "" "USES;SOURCES" ${ARGN})
  add_library(zorn_${name} OBJECT ${arg_SOURCES})
  target_link_libraries(zorn_${name} PRIVATE zorn_options)
  set_property(GLOBAL APPEND PROPERTY ZORN_SUBSYSTEMS zorn_${name})
endfunction()

# zorn_test(NAME SOURCES FILE... [LIBRARIES TARGET...])
#
# One test program a subsystem: the product's objects, the fake machine and GoogleTest's own main.
function(zorn_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE zorn_options zorn_library zorn_test_support ${arg_LIBRARIES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  target_precompile_headers(${name} REUSE_FROM zorn_test_headers)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ 12 takes std::string{text} + "literal" for an overflow.
    target_compile_options(${name} PRIVATE -Wno-array-bounds -Wno-restrict)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120 LABELS "${arg_LABELS}")
endfunction()
