# `cpack` makes a Debian package of all that is installed; script/package makes and tries it.
set(KORVEL_MAINTAINER "KorvelHelper maintainers <maintainers@korvel.invalid>" CACHE STRING
  "Who answers for a Debian package: NAME <ADDRESS>")

set(papers ${made}/debian/copyright ${made}/debian/changelog.gz)
add_custom_command(OUTPUT ${papers}
  COMMAND Python3::Interpreter -B ${makers}/debian.py ${CMAKE_SOURCE_DIR} ${PROJECT_VERSION}
    ${KORVEL_MAINTAINER} ${made}/debian
  DEPENDS ${makers}/debian.py ${makers}/history.py ${CMAKE_SOURCE_DIR}/README.md
    ${CMAKE_SOURCE_DIR}/VirtualMac/Viewer/lib/uPlot-LICENSE
  VERBATIM)
add_custom_target(virtual-mac-debian DEPENDS ${papers})
add_dependencies(virtual-mac-kit virtual-mac-debian)
install(FILES ${papers} DESTINATION ${documents})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME virtual-mac)
set(CPACK_PACKAGE_CONTACT ${KORVEL_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Mac as a program, to develop against a charging helper")
set(CPACK_PACKAGE_DESCRIPTION "A Mac's charging hardware, battery, power management and launchd as \
processes,\nwith the helper KorvelHelper that controls charging, and an application that\nasks it. \
Stories in YAML play hours in seconds; faults are switched on by name.\nNo licence has been chosen \
yet. Until then none is granted.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, man-db")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SECTION non-free/devel)
include(CPack)
