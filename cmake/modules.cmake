# Reads tools/layers.txt into VEL_SOURCES and VEL_PUBLIC_HEADERS.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/tools/layers.txt ${PROJECT_SOURCE_DIR}/tools/exports.txt)

set(VEL_SOURCES)
set(VEL_PUBLIC_HEADERS include/vellib/velapi.h include/vellib/vellib.h)
file(STRINGS tools/layers.txt lines REGEX "^[a-z]")
foreach(line IN LISTS lines)
  if(line MATCHES "^allow | core$")
    continue()
  endif()
  string(REGEX MATCH "^[a-z0-9_/]+" module "${line}")
  string(REGEX REPLACE "^.*/" "" name "${module}")
  set(source src/${module}.cpp)
  if(line MATCHES " seam$")
    set(source src/${module}_${VEL_SEAM_${name}}.cpp)
  elseif(NOT line MATCHES " internal$")
    set(header include/vellib/${name}.h)
  endif()
  if(NOT EXISTS ${PROJECT_SOURCE_DIR}/${source})
    message(FATAL_ERROR "tools/layers.txt: no ${source}")
  endif()
  list(APPEND VEL_SOURCES ${source})
  if(NOT line MATCHES " (seam|internal)$")
    list(APPEND VEL_PUBLIC_HEADERS ${header})
  endif()
endforeach()

# The linker script: exactly the symbols of tools/exports.txt, in one version node.
file(STRINGS tools/exports.txt exports)
list(JOIN exports ";\n    " exports)
file(CONFIGURE OUTPUT vellib.map CONTENT
  "VELLIB_1.0 {\nglobal:\n    @exports@;\nlocal:\n    *;\n};\n" @ONLY)
