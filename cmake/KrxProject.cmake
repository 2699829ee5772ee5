# Settings that every target of the project shares.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

option(KRX_TESTS "Build the tests where GoogleTest is found" ON)
option(KRX_BENCHMARKS "Build the benchmarks and their generator" ON)
option(KRX_FUZZERS "Build the libFuzzer targets (clang only)" OFF)
option(KRX_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
set(KRX_TEST_FLAGS "" CACHE STRING
  "Compiler options for what only tests run, behind all others: most of their code runs once")
set(KRX_ARCHIVE_FLAGS "" CACHE STRING
  "Compiler options for what only vidlint-archive runs, behind all others")
option(KRX_JOIN "Compile the sources of a target together, which is faster from scratch" OFF)
if(KRX_JOIN)
  set(CMAKE_UNITY_BUILD ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE 12)
endif()
set(KRX_SANITIZERS "" CACHE STRING "Value for -fsanitize= (for example address,undefined)")

include(KrxInstall)
include(CheckPIESupported)
check_pie_supported()  # so that CMAKE_POSITION_INDEPENDENT_CODE reaches the linking of programs too

# A program that uses the installed library gets only the language level and the include path of these.
add_library(krx_settings INTERFACE)
target_compile_features(krx_settings INTERFACE cxx_std_20)
target_include_directories(krx_settings INTERFACE
  "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
  "$<INSTALL_INTERFACE:${KRX_INSTALL_INCLUDEDIR}>")
target_compile_definitions(krx_settings INTERFACE
  "$<BUILD_INTERFACE:_FILE_OFFSET_BITS=64;_LARGEFILE64_SOURCE>")
set(warnings -Wall -Wextra -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12 sees overlapping copies in the concatenation of temporary std::strings where there are none.
  list(APPEND warnings -Wno-restrict)
  if(KRX_JOIN)
    # It takes the sources that are compiled together for headers.
    list(APPEND warnings -Wno-subobject-linkage)
  endif()
endif()
if(KRX_WARNINGS_AS_ERRORS)
  list(APPEND warnings -Werror)
endif()
target_compile_options(krx_settings INTERFACE "$<BUILD_INTERFACE:${warnings}>")
krx_install_target(krx_settings)
if(KRX_SANITIZERS)
  target_compile_options(krx_settings INTERFACE
    -fsanitize=${KRX_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(krx_settings INTERFACE -fsanitize=${KRX_SANITIZERS})
endif()

# krx_library(NAME SOURCES... PUBLIC_HEADERS... DEPENDS...): one library per folder, so that the linker holds the
# layering. A library with public headers is installed.
function(krx_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_HEADERS;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC krx_settings ${ARG_DEPENDS})
  if(ARG_PUBLIC_HEADERS)
    krx_install_target(${name} PUBLIC_HEADERS ${ARG_PUBLIC_HEADERS})
  endif()
endfunction()

# krx_test_flags(TARGETS...): compiles them as code of the tests.
separate_arguments(krx_test_options NATIVE_COMMAND "${KRX_TEST_FLAGS}")
function(krx_test_flags)
  foreach(target IN LISTS ARGN)
    target_compile_options(${target} PRIVATE ${krx_test_options})
  endforeach()
endfunction()

# krx_test(NAME [HEAVY] SOURCES... DEPENDS...): one test program per folder, its cases listed one by one to CTest. Where
# most of the time is spent in code of the tests, HEAVY compiles it like the program.
function(krx_test name)
  cmake_parse_arguments(ARG "HEAVY" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  if(NOT ARG_HEAVY)
    krx_test_flags(${name})
  endif()
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} GTest::gtest GTest::gtest_main)
  include(GoogleTest)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300)
endfunction()
