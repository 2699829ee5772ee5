# The Debian packages, made by CPack: "vidlint" holds the program, "vidlint-archive" the one for archives, where it is
# built, since it needs more libraries, and "libvidlint-dev" the libraries and headers. With KRX_DEBIAN the tree is
# installed as Debian wants it: pages and change logs compressed, a copyright file and a change log for each package.

option(KRX_DEBIAN "Install the documents as a Debian package holds them" OFF)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vidlint)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "The vidlint authors")
set(CPACK_PACKAGE_CONTACT "The vidlint authors <vidlint@vidlint.invalid>")
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET vidlint-archive)
  list(APPEND CPACK_COMPONENTS_ALL archive)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME vidlint)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION video)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Pages of each package link to pages of the others.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS "libvidlint-dev, vidlint-archive")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "checker of media files for a streaming server
vidlint checks ZMV files, MP4 files and recorded streams before a streaming
server plays them: headers, every message or sample, metadata, and places
where playback would stall. It lists what it finds by number, and can write
corrected copies of ZMV files.")

set(CPACK_DEBIAN_ARCHIVE_PACKAGE_NAME vidlint-archive)
set(CPACK_DEBIAN_ARCHIVE_PACKAGE_SECTION video)
set(CPACK_DEBIAN_ARCHIVE_PACKAGE_SHLIBDEPS ON)
# Repairs what this one finds, and has the samples and the pages of findings.
set(CPACK_DEBIAN_ARCHIVE_PACKAGE_RECOMMENDS "vidlint")
set(CPACK_COMPONENT_ARCHIVE_DESCRIPTION "checker of whole archives of media files
vidlint-archive searches folders for ZMV files, MP4 files and recorded
streams, checks them several at a time, and keeps the results, so that the
next run checks only what is new or has changed. It finds downloads that
were cut short, lists inputs by what is to be done about them, and reports
as text, JSON lines, CSV or an HTML page. Several machines can share the
work.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvidlint-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libboost-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "vidlint")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "checks and readers of media files for a streaming server
The static libraries and headers of vidlint, with a CMake package and a
pkg-config file. A program makes the checks of ZMV files, MP4 files and
recorded streams with them, many at once, and gets reports as data. It can
also open an MP4 file or a recorded stream, find its segments, receive its
timed messages, and read aggregates and metadata.")

include(CPack)

if(NOT KRX_DEBIAN)
  return()
endif()

find_program(KRX_GZIP gzip REQUIRED)
set(debian_dir "${PROJECT_BINARY_DIR}/debian")
set(compressed "")

# krx_install_compressed(SOURCE RESULT DESTINATION COMPONENT): installs the file compressed, under the same bytes each time.
function(krx_install_compressed source result destination component)
  set(output "${debian_dir}/${result}")
  add_custom_command(OUTPUT "${output}"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${debian_dir}"
    COMMAND "${KRX_GZIP}" -9nc "${source}" > "${output}"
    DEPENDS "${source}" VERBATIM)
  set(compressed ${compressed} "${output}" PARENT_SCOPE)
  install(FILES "${output}" DESTINATION "${destination}" COMPONENT ${component})
endfunction()

foreach(page vidlint.1 list_messages.1)
  krx_install_compressed("${PROJECT_SOURCE_DIR}/docs/${page}" ${page}.gz "${CMAKE_INSTALL_MANDIR}/man1" runtime)
endforeach()
krx_install_compressed("${PROJECT_SOURCE_DIR}/CHANGELOG.md" CHANGELOG.md.gz "${CMAKE_INSTALL_DOCDIR}" runtime)
krx_install_compressed("${PROJECT_SOURCE_DIR}/cmake/debian/changelog" changelog.gz "${CMAKE_INSTALL_DOCDIR}" runtime)
if(TARGET vidlint-archive)
  krx_install_compressed("${PROJECT_SOURCE_DIR}/docs/vidlint-archive.1" vidlint-archive.1.gz
    "${CMAKE_INSTALL_MANDIR}/man1" archive)
endif()
add_custom_target(krx_debian_documents ALL DEPENDS ${compressed})

install(FILES "${PROJECT_SOURCE_DIR}/cmake/debian/copyright"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT runtime)
install(FILES "${PROJECT_SOURCE_DIR}/cmake/debian/vidlint.lintian-overrides" RENAME vidlint
  DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" COMPONENT runtime)
install(FILES "${PROJECT_SOURCE_DIR}/cmake/debian/copyright" "${debian_dir}/changelog.gz"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/libvidlint-dev" COMPONENT development)
if(TARGET vidlint-archive)
  install(FILES "${PROJECT_SOURCE_DIR}/cmake/debian/copyright" "${debian_dir}/changelog.gz"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/vidlint-archive" COMPONENT archive)
endif()
