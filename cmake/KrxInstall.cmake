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
  endif()
  install(TARGETS ${name} EXPORT vidlintTargets
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
  file(RELATIVE_PATH folder "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
  if(ARG_PUBLIC_HEADERS)
    install(FILES ${ARG_PUBLIC_HEADERS}
      DESTINATION "${KRX_INSTALL_INCLUDEDIR}/${folder}" COMPONENT development)
  endif()
endfunction()

# krx_install_package(): the CMake package, after all targets are declared.
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
endfunction()

# krx_install_documents(): pages and completions. The Debian package has them compressed, see KrxPackage.cmake.
function(krx_install_documents)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/vidlint.bash" RENAME vidlint
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT runtime)
  install(FILES "${PROJECT_SOURCE_DIR}/completions/_vidlint"
    DESTINATION "${KRX_ZSH_COMPLETION_DIR}" COMPONENT runtime)
  # The samples are not installed, so links to them become plain text.
  set(faults "${PROJECT_SOURCE_DIR}/docs/faults.md")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${faults}")
  file(READ "${faults}" text)
  string(REGEX REPLACE "\\[([^]\n]*)\\]\\(\\.\\./samples[^)]*\\)" "\\1" text "${text}")
  file(WRITE "${PROJECT_BINARY_DIR}/faults.md" "${text}")
  install(FILES "${PROJECT_BINARY_DIR}/faults.md" "${PROJECT_SOURCE_DIR}/docs/formats.md"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT runtime)
  if(NOT KRX_DEBIAN)
    install(FILES "${PROJECT_SOURCE_DIR}/docs/vidlint.1"
      DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT runtime)
    install(FILES "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
      DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT runtime)
    set(examples "${CMAKE_INSTALL_DOCDIR}/examples")
  else()
    set(examples "${CMAKE_INSTALL_DATADIR}/doc/libvidlint-dev/examples")
  endif()
  install(FILES
    "${PROJECT_SOURCE_DIR}/examples/CMakeLists.txt"
    "${PROJECT_SOURCE_DIR}/examples/check_file.cpp"
    "${PROJECT_SOURCE_DIR}/examples/list_messages.cpp"
    DESTINATION "${examples}" COMPONENT development)
endfunction()
