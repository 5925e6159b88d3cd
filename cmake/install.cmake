install(TARGETS vellib vellib_static EXPORT vellib_targets)
install(FILES ${VEL_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vellib)

# What the example programs say in other languages, for those that are put into the directory bin.
install(DIRECTORY examples/locale/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vellib/locale)

# The manual pages, wherever Python is; the HTML reference, if the target vellib_reference was built, which
# needs doxygen. The interpreter is the one that the system's packages of Python are for.
find_program(VEL_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
find_program(VEL_PYTHON python3)
if(VEL_PYTHON)
  file(GLOB VEL_DOCS CONFIGURE_DEPENDS docs/*.md docs/man1/*)
  set(python ${CMAKE_COMMAND} -E env PYTHONDONTWRITEBYTECODE=1 ${VEL_PYTHON})
  add_custom_command(OUTPUT man.stamp
    COMMAND ${python} ${PROJECT_SOURCE_DIR}/tools/manual.py ${PROJECT_BINARY_DIR}/man
    COMMAND ${CMAKE_COMMAND} -E touch man.stamp
    DEPENDS ${VEL_PUBLIC_HEADERS} ${VEL_DOCS} CHANGELOG.md tools/manual.py tools/headers.py
    COMMENT "Making the manual pages" VERBATIM)
  add_custom_target(vellib_manual ALL DEPENDS man.stamp)
  add_custom_target(vellib_reference
    COMMAND ${python} ${PROJECT_SOURCE_DIR}/tools/docs.py ${PROJECT_BINARY_DIR}/docs VERBATIM)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR} OPTIONAL)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
else()
  message(STATUS "No python3: the manual pages are not made")
endif()

# The .pc and the CMake package find the prefix from where they lie, so that a prefix can be moved.
file(RELATIVE_PATH VEL_PC_PREFIX
  "/p/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/p")
configure_file(cmake/vellib.pc.in vellib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vellib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vellib)
install(EXPORT vellib_targets NAMESPACE vellib:: FILE vellib-config.cmake DESTINATION ${package_dir})
write_basic_package_version_file(vellib-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vellib-config-version.cmake DESTINATION ${package_dir})
