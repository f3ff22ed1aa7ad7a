# Installs the build into a fresh temporary prefix and checks what landed there: the executable
# runs, and the desktop entry and the systemd user unit name it at its installed place.
# Run by ctest with -DBUILD=<build folder> -DPREFIX=<an empty folder to install into>.
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}"
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cmake --install failed:\n${output}")
endif()

set(executable "${PREFIX}/bin/KestrowBrimlet")
set(entry "${PREFIX}/share/applications/kestrow-brimlet.desktop")
set(unit "${PREFIX}/lib/systemd/user/kestrow-brimlet.service")
foreach(path IN ITEMS "${executable}" "${entry}" "${unit}")
  if(NOT EXISTS "${path}")
    message(FATAL_ERROR "not installed: ${path}")
  endif()
endforeach()

execute_process(COMMAND "${executable}" --version RESULT_VARIABLE result OUTPUT_VARIABLE version)
if(NOT result EQUAL 0 OR NOT version MATCHES "^KestrowBrimlet [0-9]+\\.[0-9]+\\.[0-9]+\n$")
  message(FATAL_ERROR "the installed executable does not run: ${result} ${version}")
endif()

file(READ "${entry}" text)
if(NOT text MATCHES "\nExec=${executable}\n" OR NOT text MATCHES "^\\[Desktop Entry\\]\n")
  message(FATAL_ERROR "the desktop entry does not start ${executable}:\n${text}")
endif()
file(READ "${unit}" text)
if(NOT text MATCHES "\nExecStart=${executable}\n" OR NOT text MATCHES "\nWantedBy=default.target\n")
  message(FATAL_ERROR "the user unit does not start ${executable}:\n${text}")
endif()

# Where the desktop's own checkers are installed, they must accept both files.
find_program(desktop_validate desktop-file-validate)
if(desktop_validate)
  execute_process(COMMAND "${desktop_validate}" "${entry}" RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "desktop-file-validate refuses the entry:\n${output}")
  endif()
endif()
file(REMOVE_RECURSE "${PREFIX}")
message(STATUS "installed and checked under ${PREFIX}")
