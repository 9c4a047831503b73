# SPDX-License-Identifier: MIT
# Installs what names folders. It runs at the installation, since only then the prefix is
# known: `cmake --install --prefix` may name another than the build did.
cmake_minimum_required(VERSION 3.25)

cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX NORMALIZE OUTPUT_VARIABLE prefix)
set(is_system FALSE)
if(prefix STREQUAL "/usr")
  set(is_system TRUE)
endif()

foreach(dir IN ITEMS bindir libdir includedir sysconfdir)
  cmake_path(ABSOLUTE_PATH zedipc_${dir} BASE_DIRECTORY ${prefix} OUTPUT_VARIABLE ${dir})
  # Users of the pkg-config file may set another prefix.
  set(pc_${dir} ${zedipc_${dir}})
  if(NOT IS_ABSOLUTE ${pc_${dir}})
    set(pc_${dir} "\${prefix}/${pc_${dir}}")
  endif()
endforeach()
if(is_system)
  cmake_path(ABSOLUTE_PATH zedipc_sysconfdir BASE_DIRECTORY / OUTPUT_VARIABLE sysconfdir)
endif()

# zedipc_install_configured(TEMPLATE DIR)
function(zedipc_install_configured template dir)
  cmake_path(GET template STEM LAST_ONLY name)
  configure_file(${zedipc_source}/${template} ${zedipc_build}/${name} @ONLY)
  cmake_path(ABSOLUTE_PATH dir BASE_DIRECTORY ${prefix})
  file(INSTALL ${zedipc_build}/${name} DESTINATION ${dir})
endfunction()

# zedipc_forget_run_path(PROGRAM): the linker knows the libraries of the system.
function(zedipc_forget_run_path program)
  if(is_system)
    file(RPATH_REMOVE FILE $ENV{DESTDIR}${bindir}/${program})
  endif()
endfunction()
