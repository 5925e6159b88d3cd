# Four components, which the packages are made of:
#   runtime   the shared library
#   dev       what a program is built with: headers, both libraries, .pc, CMake package, manual pages
#   tools     the example programs, if they are built, with their manual pages and catalogues; the rest
#             of it is in examples/CMakeLists.txt
#   doc       the guide, the HTML reference where it is built, and the sources of the examples
install(TARGETS vellib EXPORT vellib_targets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev)
install(TARGETS vellib_static EXPORT vellib_targets ARCHIVE COMPONENT dev)
install(FILES ${VEL_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vellib COMPONENT dev)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT doc
  FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN man1 EXCLUDE)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)

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
  install(DIRECTORY ${PROJECT_BINARY_DIR}/man/man3 ${PROJECT_BINARY_DIR}/man/man7
    DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT dev OPTIONAL)
  if(VEL_EXAMPLES)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/man/man1
      DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT tools OPTIONAL)
  endif()
  install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc OPTIONAL)
else()
  message(STATUS "No python3: the manual pages are not made")
endif()

# The .pc and the CMake package find everything from where they lie, so that a prefix can be moved. The
# directories do not stand on the variable prefix: pkg-config --define-prefix would take lib for it where
# the .pc is in lib/x86_64-linux-gnu/pkgconfig.
file(RELATIVE_PATH VEL_PC_PREFIX
  "/p/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/p")
configure_file(cmake/vellib.pc.in vellib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vellib.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vellib)
install(EXPORT vellib_targets NAMESPACE vellib:: FILE vellib-targets.cmake
  DESTINATION ${package_dir} COMPONENT dev)
write_basic_package_version_file(vellib-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/vellib-config.cmake ${PROJECT_BINARY_DIR}/vellib-config-version.cmake
  DESTINATION ${package_dir} COMPONENT dev)

# Removes what the last cmake --install of this build directory has put there. Within another tree the
# name is that tree's.
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -D BUILD=${PROJECT_BINARY_DIR}
    -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake VERBATIM)
endif()
