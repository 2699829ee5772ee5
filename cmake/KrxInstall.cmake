# What is installed where. Three components: "runtime" is the program and list_messages, with their pages, samples and
# completions; "archive" is vidlint-archive with its own, where it is built; "development" is the libraries with their
# public headers, the CMake package that finds them, and the examples.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(KRX_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/vidlint")
set(KRX_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/vidlint")
set(KRX_ZSH_COMPLETION_DIR "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" CACHE STRING
  "Where the zsh completion is installed, below the prefix")

# krx_install_target(TARGET [NAME name] PUBLIC_HEADERS...): installs the library krx_NAME, or the one that is given that
# name, as vidlint::NAME, and its headers under their path from the project's root, so that what includes them reads the
# same inside and outside of the project.
function(krx_install_target name)
  cmake_parse_arguments(ARG "" "NAME" "PUBLIC_HEADERS" ${ARGN})
  string(REGEX REPLACE "^krx_" "" short ${name})
  if(ARG_NAME)
    set(short ${ARG_NAME})
  endif()
  add_library(vidlint::${short} ALIAS ${name})
  set_target_properties(${name} PROPERTIES EXPORT_NAME ${short})
  get_target_property(type ${name} TYPE)
  if(NOT type STREQUAL "INTERFACE_LIBRARY")
    set_target_properties(${name} PROPERTIES OUTPUT_NAME vidlint_${short})
    set_property(GLOBAL APPEND PROPERTY KRX_LIBRARIES vidlint_${short})
  endif()
  install(TARGETS ${name} EXPORT vidlintTargets
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
  file(RELATIVE_PATH folder "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
  if(ARG_PUBLIC_HEADERS)
    install(FILES ${ARG_PUBLIC_HEADERS}
      DESTINATION "${KRX_INSTALL_INCLUDEDIR}/${folder}" COMPONENT development)
  endif()
endfunction()

# krx_install_pkgconfig(): vidlint.pc for builds without CMake. It finds the prefix from its own place.
function(krx_install_pkgconfig)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(prefix "${CMAKE_INSTALL_PREFIX}")
  else()
    file(RELATIVE_PATH up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" /)
    string(REGEX REPLACE "/$" "" prefix "\${pcfiledir}/${up}")
  endif()
  foreach(dir CMAKE_INSTALL_LIBDIR KRX_INSTALL_INCLUDEDIR)
    if(NOT IS_ABSOLUTE "${${dir}}")
      string(PREPEND ${dir} "\${prefix}/")
    endif()
  endforeach()
  # Targets are declared after those that they need; static libraries are named before those.
  get_property(libraries GLOBAL PROPERTY KRX_LIBRARIES)
  list(REVERSE libraries)
  list(APPEND libraries ${CMAKE_DL_LIBS})
  list(TRANSFORM libraries PREPEND "-l")
  string(JOIN " " libraries ${libraries} -pthread)
  configure_file("${PROJECT_SOURCE_DIR}/cmake/vidlint.pc.in" "${PROJECT_BINARY_DIR}/vidlint.pc" @ONLY)
endfunction()

# krx_install_package(): the CMake package and vidlint.pc, after all targets are declared.
function(krx_install_package)
  configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/vidlintConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/vidlintConfig.cmake" INSTALL_DESTINATION "${KRX_INSTALL_CMAKEDIR}")
  write_basic_package_version_file("${PROJECT_BINARY_DIR}/vidlintConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
  install(FILES
    "${PROJECT_BINARY_DIR}/vidlintConfig.cmake"
    "${PROJECT_BINARY_DIR}/vidlintConfigVersion.cmake"
    DESTINATION "${KRX_INSTALL_CMAKEDIR}" COMPONENT development)
  install(EXPORT vidlintTargets NAMESPACE vidlint::
    DESTINATION "${KRX_INSTALL_CMAKEDIR}" COMPONENT development)
  krx_install_pkgconfig()
  install(FILES "${PROJECT_BINARY_DIR}/vidlint.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
endfunction()

# krx_page(SOURCE DESTINATION COMPONENT [MOVED FROM TO...] [WITHOUT TARGET...]): installs a page of the project. Links
# whose targets begin with FROM then begin with TO; those that begin with TARGET, which is not installed, become plain
# text.
function(krx_page source destination component)
  cmake_parse_arguments(ARG "" "" "MOVED;WITHOUT" ${ARGN})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${source}")
  file(READ "${PROJECT_SOURCE_DIR}/${source}" text)
  foreach(target IN LISTS ARG_WITHOUT)
    string(REGEX REPLACE "!?\\[([^]\n]*)\\]\\(${target}[^)]*\\)" "\\1" text "${text}")
  endforeach()
  while(ARG_MOVED)
    list(POP_FRONT ARG_MOVED from to)
    string(REPLACE "](${from}" "](${to}" text "${text}")
  endwhile()
  set(output "${PROJECT_BINARY_DIR}/pages/${component}/${source}")
  file(WRITE "${output}" "${text}")
  install(FILES "${output}" DESTINATION "${destination}" COMPONENT ${component})
endfunction()

# krx_install_archive_documents(): those of vidlint-archive, where it is built. For krx_install_documents.
macro(krx_install_archive_documents)
  if(TARGET vidlint-archive)
    install(FILES "${PROJECT_SOURCE_DIR}/completions/vidlint-archive.bash" RENAME vidlint-archive
      DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT archive)
    install(FILES "${PROJECT_SOURCE_DIR}/completions/_vidlint-archive"
      DESTINATION "${KRX_ZSH_COMPLETION_DIR}" COMPONENT archive)
    if(NOT KRX_DEBIAN)
      install(FILES "${PROJECT_SOURCE_DIR}/docs/vidlint-archive.1"
        DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT archive)
    endif()
    krx_page(docs/archive.md "${archive_docs}" archive
      MOVED ../README.md ${to_program}README.md faults.md ${to_program}faults.md
        performance.md ${to_program}performance.md)
    install(FILES "${PROJECT_SOURCE_DIR}/docs/archive-schema.json" "${PROJECT_SOURCE_DIR}/docs/archive-report.png"
      DESTINATION "${archive_docs}" COMPONENT archive)
  endif()
endmacro()

# krx_install_documents(): pages, samples, completions and examples. The Debian package has some of them compressed, see
# KrxPackage.cmake.
function(krx_install_documents)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/vidlint.bash" RENAME vidlint
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT runtime)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/_vidlint"
    DESTINATION "${KRX_ZSH_COMPLETION_DIR}" COMPONENT runtime)
  set(docs "${CMAKE_INSTALL_DOCDIR}")
  if(NOT KRX_DEBIAN)
    install(FILES "${PROJECT_SOURCE_DIR}/docs/vidlint.1" "${PROJECT_SOURCE_DIR}/docs/list_messages.1"
      DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT runtime)
    install(FILES "${PROJECT_SOURCE_DIR}/CHANGELOG.md" DESTINATION "${docs}" COMPONENT runtime)
    set(library_docs "${docs}")
    set(archive_docs "${docs}")
    set(to_library "")
    set(to_archive "")
    set(to_program "")
    set(changelog CHANGELOG.md)
  else()
    set(library_docs "${CMAKE_INSTALL_DATADIR}/doc/libvidlint-dev")
    set(archive_docs "${CMAKE_INSTALL_DATADIR}/doc/vidlint-archive")
    set(to_library ../libvidlint-dev/)
    set(to_archive ../vidlint-archive/)
    set(to_program ../vidlint/)
    set(changelog CHANGELOG.md.gz)
  endif()
  set(left_out docs/architecture.md CONTRIBUTING.md)
  if(NOT TARGET vidlint-archive)
    list(APPEND left_out docs/archive)
  endif()
  krx_page(README.md "${docs}" runtime
    MOVED docs/library.md ${to_library}library.md examples ${to_library}examples CHANGELOG.md ${changelog}
      docs/faults.md faults.md docs/formats.md formats.md docs/performance.md performance.md
      docs/archive ${to_archive}archive
    WITHOUT ${left_out})
  krx_page(docs/faults.md "${docs}" runtime MOVED ../samples samples)
  krx_page(docs/formats.md "${docs}" runtime)
  krx_page(docs/performance.md "${docs}" runtime MOVED ../README.md README.md WITHOUT architecture.md)
  krx_page(samples/README.md "${docs}/samples" runtime MOVED ../docs/ ../)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/samples" DESTINATION "${docs}" COMPONENT runtime
    PATTERN README.md EXCLUDE)
  krx_install_archive_documents()

  krx_page(docs/library.md "${library_docs}" development MOVED ../examples examples faults.md ${to_program}faults.md)
  if(KRX_DEBIAN)
    krx_page(docs/formats.md "${library_docs}" development)
  endif()
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples" DESTINATION "${library_docs}" COMPONENT development
    FILES_MATCHING PATTERN "*.cpp" PATTERN "*.h" PATTERN "CMakeLists.txt")
endfunction()
