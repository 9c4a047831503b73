# SPDX-License-Identifier: MIT
# What the tests need besides when they were built for another machine and run under its
# emulator. The system is not asked to start foreign programs by itself (binfmt_misc).

# CTest shows the tests that are listed as disabled. Each directory with tests includes this.
set(disable_skipped_tests ${CMAKE_CURRENT_BINARY_DIR}/disable_skipped_tests.cmake)
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/skipped_emulated.txt lines REGEX "^[^#]")
set_property(DIRECTORY APPEND PROPERTY
  CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/skipped_emulated.txt)
file(WRITE ${disable_skipped_tests} "")
foreach(line IN LISTS lines)
  string(REGEX MATCH "^([^ ]+) ([^ ]+) [^ ]" matched "${line}")
  if(NOT matched)
    message(FATAL_ERROR "skipped_emulated.txt: no test, machine and reason: ${line}")
  endif()
  if(CMAKE_MATCH_2 STREQUAL "*" OR CMAKE_MATCH_2 STREQUAL CMAKE_SYSTEM_PROCESSOR)
    file(APPEND ${disable_skipped_tests}
      "set_tests_properties(${CMAKE_MATCH_1} PROPERTIES DISABLED TRUE)\n")
  endif()
endforeach()

# They run the emulator, so they are programs of this machine.
foreach(launcher IN LISTS launchers)
  set(file ${CMAKE_CURRENT_BINARY_DIR}/${launcher}.host)
  set(source ${CMAKE_CURRENT_LIST_DIR}/support/${launcher}.cpp)
  add_custom_command(OUTPUT ${file}
    COMMAND g++ -std=c++17 -O2 -I ${CMAKE_CURRENT_LIST_DIR} -o ${file} ${source}
    DEPENDS ${source} VERBATIM)
  add_custom_target(${launcher}_program DEPENDS ${file})
  add_executable(${launcher} IMPORTED)
  set_target_properties(${launcher} PROPERTIES IMPORTED_LOCATION ${file})
  add_dependencies(${launcher} ${launcher}_program)
endforeach()

# The numbers that this machine gives to the system calls of a blocked thread.
set(emulation_definitions EMULATED)
foreach(name IN ITEMS SYS_ppoll SYS_sendto SYS_connect SYS_futex)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/system_call.txt ${name})
  execute_process(
    COMMAND g++ -E -P -x c++ -include sys/syscall.h ${CMAKE_CURRENT_BINARY_DIR}/system_call.txt
    OUTPUT_VARIABLE number OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  list(APPEND emulation_definitions HOST_${name}=${number})
endforeach()

# zedipc_launch_emulated(TARGET...)
#
# Gives the names of programs to scripts that have the emulator run them, so that any
# process can start them.
function(zedipc_launch_emulated)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  foreach(target IN LISTS ARGV)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
      set_target_properties(${target} PROPERTIES SUFFIX .emulated)
      file(GENERATE
        OUTPUT $<TARGET_FILE_DIR:${target}>/$<TARGET_FILE_BASE_NAME:${target}>
        CONTENT "#!/bin/sh\nexec ${emulator} \"$(readlink -f \"$0\").emulated\" \"$@\"\n"
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
          GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
  endforeach()
endfunction()
