# What is installed where. Two components: "runtime" is the program with its pages and completions, "development" the
# libraries with their public headers, the CMake package that finds them, and the examples.

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

# krx_page(NAME LINKS): writes docs/NAME as it is installed. A link whose target begins with the expression LINKS leads
# to what is not installed beside the page, and becomes plain text.
function(krx_page name links)
  set(source "${PROJECT_SOURCE_DIR}/docs/${name}")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${source}")
  file(READ "${source}" text)
  string(REGEX REPLACE "\\[([^]\n]*)\\]\\(${links}[^)]*\\)" "\\1" text "${text}")
  file(WRITE "${PROJECT_BINARY_DIR}/${name}" "${text}")
endfunction()

# krx_install_documents(): pages, completions and examples. The Debian package has them compressed, see KrxPackage.cmake.
function(krx_install_documents)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/vidlint.bash" RENAME vidlint
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT runtime)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/_vidlint"
    DESTINATION "${KRX_ZSH_COMPLETION_DIR}" COMPONENT runtime)
  krx_page(faults.md "\\.\\./samples")
  install(FILES "${PROJECT_BINARY_DIR}/faults.md" "${PROJECT_SOURCE_DIR}/docs/formats.md"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT runtime)
  if(NOT KRX_DEBIAN)
    install(FILES "${PROJECT_SOURCE_DIR}/docs/vidlint.1"
      DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT runtime)
    install(FILES "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
      DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT runtime)
    set(library_docs "${CMAKE_INSTALL_DOCDIR}")
  else()
    set(library_docs "${CMAKE_INSTALL_DATADIR}/doc/libvidlint-dev")
  endif()
  krx_page(library.md "[a-z./]*(\\.md|examples)")
  install(FILES "${PROJECT_BINARY_DIR}/library.md" DESTINATION "${library_docs}" COMPONENT development)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples" DESTINATION "${library_docs}" COMPONENT development
    FILES_MATCHING PATTERN "*.cpp" PATTERN "*.h" PATTERN "CMakeLists.txt")
endfunction()
