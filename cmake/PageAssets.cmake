# Turns the style and the script of the HTML page into a C++ source, each with its SHA-256 for the content security
# policy:
#   cmake -DSTYLE=page.css -DSCRIPT=page.js -DOUTPUT=pageassets.cpp -P PageAssets.cmake

cmake_minimum_required(VERSION 3.18)

set(assets "")
foreach(asset STYLE SCRIPT)
  file(READ "${${asset}}" text)
  string(FIND "${text}" ")asset\"" end)
  string(FIND "${text}" "</" tag)
  if(NOT end EQUAL -1 OR NOT tag EQUAL -1)
    message(FATAL_ERROR "${${asset}}: holds what ends a C++ string or an element")
  endif()
  file(SHA256 "${${asset}}" hash)
  string(TOLOWER "${asset}" name)
  string(APPEND assets "
PageAsset ${name}Asset()
{
    return {R\"asset(${text})asset\", \"${hash}\"};
}
")
endforeach()

file(WRITE "${OUTPUT}" "// Made from the style and the script of the HTML page.

#include \"tools/zmvutil/archive/src/pageassets.h\"

namespace archive {
${assets}
}  // namespace archive
")
