# The targets stand in a file of their own: CMake has that include all that is named like it with
# something behind, and vellib-config-version.cmake among them would change variables of the host.
include("${CMAKE_CURRENT_LIST_DIR}/vellib-targets.cmake")

# There are no components to ask for.
foreach(component IN LISTS vellib_FIND_COMPONENTS)
  if(vellib_FIND_REQUIRED_${component})
    set(vellib_FOUND FALSE)
    set(vellib_NOT_FOUND_MESSAGE "vellib has no component '${component}'")
  endif()
endforeach()
