# Static libraries for programs that start fast: with shared ones a start is mostly the search for some 2,000
# symbols. The C library stays shared.

option(KRX_STATIC "Link Boost and the compiler's libraries into the programs, where static ones are found" ON)
if(KRX_SANITIZERS OR KRX_FUZZERS)
  set(KRX_STATIC OFF)
endif()

set(static_options -static-libstdc++ -static-libgcc -Wl,--gc-sections -Wl,--as-needed)
# Comes last, with the two functions used of the mathematical library, which then need not be loaded.
set(static_libraries "-Wl,--push-state,-Bstatic,-lstdc++,-lm,--pop-state")
if(KRX_STATIC)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_LINK_OPTIONS ${static_options})
  set(CMAKE_REQUIRED_LIBRARIES "${static_libraries}")
  # Compiled as the programs are: a call of trunc that is not optimised away may need the shared library.
  string(TOUPPER "${CMAKE_BUILD_TYPE}" build_type)
  set(CMAKE_REQUIRED_FLAGS "${CMAKE_CXX_FLAGS_${build_type}}")
  check_cxx_source_compiles("#include <cmath>\n#include <string>
    int main(int n, char**) { return std::to_string(std::trunc(n * 1.5)).empty(); }"
    KRX_STATIC_LINKS)
  unset(CMAKE_REQUIRED_FLAGS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  unset(CMAKE_REQUIRED_LIBRARIES)
endif()

# krx_find_boost(COMPONENTS...): shared libraries where there are no static ones. They load the compiler's
# shared libraries; a program must not hold a second, static copy of those.
macro(krx_find_boost)
  set(Boost_USE_STATIC_LIBS ${KRX_STATIC})
  find_package(Boost 1.71 QUIET COMPONENTS ${ARGN})
  if(NOT Boost_FOUND)
    set(Boost_USE_STATIC_LIBS OFF)
    set(KRX_STATIC OFF)
    find_package(Boost 1.71 REQUIRED COMPONENTS ${ARGN})
  endif()
endmacro()

# krx_add_programs(FOLDER): add_subdirectory for a folder of programs that others run.
function(krx_add_programs folder)
  if(KRX_STATIC AND KRX_STATIC_LINKS)
    string(JOIN " " CMAKE_EXE_LINKER_FLAGS ${CMAKE_EXE_LINKER_FLAGS} ${static_options})
    string(APPEND CMAKE_CXX_STANDARD_LIBRARIES " ${static_libraries}")
  endif()
  add_subdirectory(${folder})
endfunction()
