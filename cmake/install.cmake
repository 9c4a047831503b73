# SPDX-License-Identifier: MIT
# What `cmake --install` installs, in three components: `runtime` is what programs need to
# run, `dev` what they are built with, `tools` the command with what belongs to it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZEDIPC_UNIT_DIR lib/systemd/system CACHE STRING "Where the systemd unit is installed")

# What names folders is written when it is installed.
install(CODE "
  set(zedipc_source \"${CMAKE_CURRENT_SOURCE_DIR}\")
  set(zedipc_build \"${CMAKE_CURRENT_BINARY_DIR}\")
  set(zedipc_version ${PROJECT_VERSION})
  set(zedipc_bindir \"${CMAKE_INSTALL_BINDIR}\")
  set(zedipc_libdir \"${CMAKE_INSTALL_LIBDIR}\")
  set(zedipc_includedir \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(zedipc_sysconfdir \"${CMAKE_INSTALL_SYSCONFDIR}\")
  include(\"${CMAKE_CURRENT_SOURCE_DIR}/cmake/install_named.cmake\")" ALL_COMPONENTS)

# ---- The library

# The headers are C++11, whatever the library itself is built with.
target_compile_features(zedipc INTERFACE cxx_std_11)
install(TARGETS zedipc EXPORT zedipc_targets
  LIBRARY
    DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/zedipc TYPE INCLUDE COMPONENT dev FILES_MATCHING PATTERN *.h)

# ---- How other builds find it

install(CODE "zedipc_install_configured(packaging/zedipc.pc.in
  \"${CMAKE_INSTALL_LIBDIR}/pkgconfig\")" COMPONENT dev)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zedipc)
install(EXPORT zedipc_targets NAMESPACE zedipc:: FILE zedipc-targets.cmake
  DESTINATION ${package_dir} COMPONENT dev)
configure_package_config_file(packaging/zedipc-config.cmake.in zedipc-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/zedipc-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/zedipc-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/zedipc-config-version.cmake
  DESTINATION ${package_dir} COMPONENT dev)

# ---- The manual pages

find_program(SCDOC scdoc)
find_program(GZIP gzip)
mark_as_advanced(SCDOC GZIP)
if(NOT SCDOC OR NOT GZIP)
  message(STATUS "No manual pages: scdoc or gzip is not installed (Debian packages of these names)")
endif()

# zedipc_install_manual(COMPONENT PAGE...)
function(zedipc_install_manual component)
  if(NOT SCDOC OR NOT GZIP)
    return()
  endif()
  set(pages)
  foreach(name IN LISTS ARGN)
    set(source ${CMAKE_CURRENT_SOURCE_DIR}/docs/man/${name}.scd)
    set(page ${CMAKE_CURRENT_BINARY_DIR}/man/${name}.gz)
    add_custom_command(OUTPUT ${page}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/man
      COMMAND ${SCDOC} < ${source} > man/${name}
      COMMAND ${GZIP} -9nf man/${name}
      DEPENDS ${source} WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
    list(APPEND pages ${page})
    string(REGEX MATCH "[0-9]$" section ${name})
    install(FILES ${page}
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
  endforeach()
  add_custom_target(manual_pages_${component} ALL DEPENDS ${pages})
endfunction()

zedipc_install_manual(dev zedipc.7)
install(FILES tools/wireshark/zedipc.lua
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zedipc/wireshark COMPONENT dev)

# ---- The command, and the server that it is

if(ZEDIPC_BUILD_TOOLS)
  # The command finds the library that is installed beside it, whatever the prefix is.
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR}
    OUTPUT_VARIABLE libdir_from_bindir)
  set_target_properties(zedipc_command PROPERTIES INSTALL_RPATH $ORIGIN/${libdir_from_bindir})
  install(TARGETS zedipc_command RUNTIME COMPONENT tools)
  install(CODE "zedipc_forget_run_path(zedipc)" COMPONENT tools)
  zedipc_install_manual(tools zedipc.1 zedipc-rules.5)
  install(FILES tools/zedipc/zedipc.bash-completion
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME zedipc COMPONENT tools)
  install(CODE "zedipc_install_configured(packaging/systemd/zedipc.service.in
      \"${ZEDIPC_UNIT_DIR}\")
    file(INSTALL \"${CMAKE_CURRENT_SOURCE_DIR}/packaging/rules\" DESTINATION \${sysconfdir}/zedipc)"
    COMPONENT tools)
endif()
