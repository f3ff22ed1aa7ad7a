# Cross-building the product for macOS on Apple silicon from Linux: clang, the LLVM libc++ headers,
# ld64.lld and the LLVM binary tools against a macOS SDK (headers and .tbd link stubs). The result
# is compiled and linked exactly as on a Mac; it cannot be run here.
#
# The SDK is the folder that holds SDKSettings.json (for example MacOSX12.sdk). Give it as the cache
# variable KESTROW_DARWIN_SDK or the environment variable of the same name; otherwise the copy that
# .ci/run unpacks into build/macos-sdk/ is used.

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_OSX_ARCHITECTURES arm64 CACHE STRING "Apple silicon only" FORCE)
set(CMAKE_OSX_DEPLOYMENT_TARGET 13.0 CACHE STRING "Minimum macOS version" FORCE)

if(NOT KESTROW_DARWIN_SDK AND DEFINED ENV{KESTROW_DARWIN_SDK} AND NOT "$ENV{KESTROW_DARWIN_SDK}" STREQUAL "")
  set(KESTROW_DARWIN_SDK "$ENV{KESTROW_DARWIN_SDK}")
endif()
if(NOT KESTROW_DARWIN_SDK)
  get_filename_component(_kestrow_root "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
  set(KESTROW_DARWIN_SDK "${_kestrow_root}/build/macos-sdk/MacOSX12.sdk")
endif()
if(NOT EXISTS "${KESTROW_DARWIN_SDK}/SDKSettings.json")
  message(FATAL_ERROR "No macOS SDK at ${KESTROW_DARWIN_SDK}: set KESTROW_DARWIN_SDK to a MacOSX*.sdk folder")
endif()
set(KESTROW_DARWIN_SDK "${KESTROW_DARWIN_SDK}" CACHE PATH "macOS SDK used by the cross-build")
# try_compile projects load this file again; hand them the SDK too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KESTROW_DARWIN_SDK)
set(CMAKE_OSX_SYSROOT "${KESTROW_DARWIN_SDK}" CACHE PATH "" FORCE)

# Tools: the versioned LLVM 14 names of Debian, else the plain names.
macro(_kestrow_tool var)
  find_program(${var} NAMES ${ARGN} REQUIRED)
endmacro()
_kestrow_tool(_kestrow_clang clang-14 clang)
_kestrow_tool(_kestrow_clangxx clang++-14 clang++)
_kestrow_tool(_kestrow_ld ld64.lld-14 ld64.lld)
_kestrow_tool(CMAKE_AR llvm-ar-14 llvm-ar)
_kestrow_tool(CMAKE_RANLIB llvm-ranlib-14 llvm-ranlib)
_kestrow_tool(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-14 llvm-install-name-tool)
_kestrow_tool(CMAKE_STRIP llvm-strip-14 llvm-strip)
_kestrow_tool(CMAKE_NM llvm-nm-14 llvm-nm)
_kestrow_tool(CMAKE_OBJDUMP llvm-objdump-14 llvm-objdump)
set(CMAKE_LINKER "${_kestrow_ld}")

set(_kestrow_target arm64-apple-macos${CMAKE_OSX_DEPLOYMENT_TARGET})
foreach(lang C CXX OBJC OBJCXX)
  set(CMAKE_${lang}_COMPILER_TARGET ${_kestrow_target})
endforeach()
set(CMAKE_C_COMPILER "${_kestrow_clang}")
set(CMAKE_OBJC_COMPILER "${_kestrow_clang}")
set(CMAKE_CXX_COMPILER "${_kestrow_clangxx}")
set(CMAKE_OBJCXX_COMPILER "${_kestrow_clangxx}")

# libc++ headers: LLVM's own (the SDK's copy is older than C++20 needs), with Apple's availability
# markup switched on by the site configuration beside this file.
find_path(_kestrow_libcxx NAMES __config
  PATHS /usr/lib/llvm-14/include/c++/v1 /usr/include/c++/v1 /usr/local/include/c++/v1
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(_kestrow_cxx_flags
    "-stdlib=libc++ -stdlib++-isystem ${CMAKE_CURRENT_LIST_DIR}/darwin-libcxx -stdlib++-isystem ${_kestrow_libcxx}")
set(CMAKE_CXX_FLAGS_INIT "${_kestrow_cxx_flags}")
set(CMAKE_OBJCXX_FLAGS_INIT "${_kestrow_cxx_flags}")

# ld64.lld understands -platform_version, which clang passes only to a linker it believes is new
# enough; the version named here is that of the ld64 shipped with Xcode 14.
set(_kestrow_link_flags "--ld-path=${_kestrow_ld} -mlinker-version=820")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "${_kestrow_link_flags}")
endforeach()

# Headers and libraries come from the SDK only; programs from the build machine.
set(CMAKE_FIND_ROOT_PATH "${KESTROW_DARWIN_SDK}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Umbrella frameworks (AppKit, Carbon, ApplicationServices, CoreServices, …) carry their
# sub-libraries as further documents of the same .tbd and must name them as re-exported, or the
# linker cannot see symbols such as NSFont (UIFoundation), RegisterEventHotKey (HIToolbox) or
# AXUIElementCreateApplication (HIServices). Some SDK copies lack that entry; for each such stub a
# copy with the entry restored is written into the build tree and searched before the SDK.
function(_kestrow_restore_reexports sdk out)
  file(GLOB stubs "${sdk}/System/Library/Frameworks/*.framework/*.tbd")
  foreach(stub IN LISTS stubs)
    file(READ "${stub}" text)
    string(FIND "${text}" "\n--- !tapi-tbd" second)
    if(second EQUAL -1)
      continue()
    endif()
    string(SUBSTRING "${text}" 0 ${second} first)
    string(SUBSTRING "${text}" ${second} -1 rest)
    string(FIND "${first}" "reexported-libraries:" present)
    string(FIND "${first}" "\nexports:" exports)
    if(NOT present EQUAL -1 OR exports EQUAL -1)
      continue()
    endif()
    string(REGEX MATCHALL "\ninstall-name:[ ]+'[^']+'" names "${rest}")
    set(libraries "")
    foreach(name IN LISTS names)
      string(REGEX REPLACE "\ninstall-name:[ ]+" "" name "${name}")
      list(APPEND libraries "${name}")
    endforeach()
    list(JOIN libraries ", " libraries)
    set(entry "\nreexported-libraries:\n  - targets:         [ arm64-macos, arm64e-macos ]\n    libraries:       [ ${libraries} ]")
    string(SUBSTRING "${first}" 0 ${exports} head)
    string(SUBSTRING "${first}" ${exports} -1 tail)
    get_filename_component(framework "${stub}" DIRECTORY)
    get_filename_component(framework "${framework}" NAME)
    get_filename_component(name "${stub}" NAME)
    file(WRITE "${out}/${framework}/${name}" "${head}${entry}${tail}${rest}")
  endforeach()
endfunction()
set(_kestrow_stubs "${CMAKE_BINARY_DIR}/darwin-sdk-stubs")
if(NOT EXISTS "${_kestrow_stubs}/.done")
  _kestrow_restore_reexports("${KESTROW_DARWIN_SDK}" "${_kestrow_stubs}")
  file(WRITE "${_kestrow_stubs}/.done" "")
endif()
foreach(kind EXE SHARED MODULE)
  string(APPEND CMAKE_${kind}_LINKER_FLAGS_INIT " -F${_kestrow_stubs}")
endforeach()
