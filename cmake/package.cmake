# SPDX-License-Identifier: MIT
# The Debian packages, which `./dev package` makes by CPack: libzedipc1, libzedipc-dev and
# zedipc-tools, from the components of cmake/install.cmake.
set(revision 1)
set(debian_version ${PROJECT_VERSION}-${revision})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "zedipc contributors")
set(CPACK_PACKAGE_CONTACT "zedipc contributors <maintainers@zedipc.example>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/build/packages)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
# The rule file is below /etc, not below the prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${revision})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# What the command needs of the library is said below, in the versions that it needs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR})
# Programs that were linked with a version need it or a later one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzedipc1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"notifications and channels between processes (library)
zedipc is a small C++ library for the processes of a device that have to talk
to each other. It has a publish/subscribe service for notifications, message
channels over local sockets and TCP, and a JSON value that converts instead of
failing.
.
This package has the library that programs are run with.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libzedipc-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libzedipc1 (= ${debian_version})")
set(CPACK_COMPONENT_DEV_DESCRIPTION
"notifications and channels between processes (development)
zedipc is a small C++ library for the processes of a device that have to talk
to each other.
.
This package has what programs are built with: the headers, files for
pkg-config and CMake, an overview as a manual page, and a dissector that shows
the messages in Wireshark.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zedipc-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libzedipc1 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS bash-completion)
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/packaging/debian/conffiles)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"notifications and channels between processes (command)
zedipc is a small C++ library for the processes of a device that have to talk
to each other.
.
This package has the command that serves, sends and watches notifications from
a shell, and a systemd unit for the server. The unit is installed, but neither
enabled nor started.")

# Each package has the copyright and the changes in a folder of its own, and says which of
# lintian's complaints do not concern it. Other builds do not install these.
option(ZEDIPC_DEBIAN_DOCS "Install what Debian wants in each package's documentation" OFF)
if(ZEDIPC_DEBIAN_DOCS)
  set(changelog ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian)
  add_custom_command(OUTPUT ${changelog}.gz
    COMMAND ${CMAKE_COMMAND} -E copy
      ${CMAKE_CURRENT_SOURCE_DIR}/packaging/debian/changelog ${changelog}
    COMMAND ${GZIP} -9nf ${changelog}
    DEPENDS packaging/debian/changelog VERBATIM)
  add_custom_target(debian_changelog ALL DEPENDS ${changelog}.gz)
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    install(FILES packaging/debian/copyright ${changelog}.gz
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
    install(FILES packaging/lintian/${package}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  endforeach()
endif()

include(CPack)
