# Each library publishes exactly one folder of the tree, and its users reach those headers by the
# folder's path ("core/cleanup/SafetyPolicy.hpp"). A library's include path holds its own folder and,
# through its links, the folders of the libraries below it, and nothing else: a header of a higher
# floor included from a lower one is an error at compile time, not a habit to keep.
#
# The tree itself is never put on an include path. Instead each target gets a private root in the
# build folder with a link named after its folder, pointing back into the sources.
function(kestrow_public_folder target folder)
  set(root "${PROJECT_BINARY_DIR}/include-roots/${target}")
  get_filename_component(parent "${root}/${folder}" DIRECTORY)
  file(MAKE_DIRECTORY "${parent}")
  if(NOT EXISTS "${root}/${folder}")
    file(CREATE_LINK "${PROJECT_SOURCE_DIR}/${folder}" "${root}/${folder}" SYMBOLIC)
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    target_include_directories(${target} INTERFACE "${root}")
  else()
    target_include_directories(${target} PUBLIC "${root}")
  endif()
endfunction()
