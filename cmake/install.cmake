install(TARGETS vellib vellib_static EXPORT vellib_targets)
install(FILES ${VEL_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vellib)

# What the example programs say in other languages, for those that are put into the directory bin.
install(DIRECTORY examples/locale/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vellib/locale)

# The .pc and the CMake package find the prefix from where they lie, so that a prefix can be moved.
file(RELATIVE_PATH VEL_PC_PREFIX
  "/p/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/p")
configure_file(cmake/vellib.pc.in vellib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vellib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vellib)
install(EXPORT vellib_targets NAMESPACE vellib:: FILE vellib-config.cmake DESTINATION ${package_dir})
write_basic_package_version_file(vellib-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vellib-config-version.cmake DESTINATION ${package_dir})
