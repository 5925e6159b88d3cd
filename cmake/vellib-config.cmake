# The targets stand in a file of their own: CMake has that include all that is named like it with
# something behind, and vellib-config-version.cmake among them would change variables of the host.
include("${CMAKE_CURRENT_LIST_DIR}/vellib-targets.cmake")
