# Turns docs/faults.md into a C++ source with a row for each number, so that no other text about a finding can exist:
#   cmake -DPAGE=docs/faults.md -DOUTPUT=faultstable.cpp -P FaultsTable.cmake

cmake_minimum_required(VERSION 3.18)

file(READ "${PAGE}" page)
string(FIND "${page}" ")page\"" end)
if(NOT end EQUAL -1)
  message(FATAL_ERROR "${PAGE}: the page holds what ends a C++ string")
endif()

set(rows "")
set(group "")
while(TRUE)
  string(FIND "${page}" "\n## " next_group)
  string(FIND "${page}" "\n### " next_number)
  if(next_number EQUAL -1)
    break()
  endif()
  if(next_group GREATER -1 AND next_group LESS next_number)
    math(EXPR begin "${next_group} + 4")
    string(SUBSTRING "${page}" ${begin} -1 page)
    string(FIND "${page}" "\n" end)
    string(SUBSTRING "${page}" 0 ${end} group)
    continue()
  endif()
  math(EXPR begin "${next_number} + 5")
  string(SUBSTRING "${page}" ${begin} -1 page)
  string(FIND "${page}" "\n" end)
  string(SUBSTRING "${page}" 0 ${end} number)
  string(SUBSTRING "${page}" ${end} -1 page)
  if(NOT number MATCHES "^-?[0-9]+$")
    message(FATAL_ERROR "${PAGE}: \"${number}\" is no number")
  endif()
  # The text ends where the next heading begins, or with the page.
  string(FIND "${page}\n##" "\n##" end)
  string(SUBSTRING "${page}" 0 ${end} text)
  string(APPEND rows "    {${number}, R\"page(${group})page\", R\"page(${text})page\"},\n")
endwhile()
if(rows STREQUAL "")
  message(FATAL_ERROR "${PAGE}: there is no number")
endif()

file(WRITE "${OUTPUT}" "// Made from docs/faults.md.

#include \"tools/zmvutil/archive/src/faultspage.h\"

namespace archive {
namespace {

constexpr FaultRow kRows[] = {
${rows}};

}  // namespace

std::span<const FaultRow> faultRows()
{
    return kRows;
}

}  // namespace archive
")
