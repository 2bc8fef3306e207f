# The Octave package tiffgate-VERSION.tar.gz, for Octave's pkg install.
# Included from host/octave/CMakeLists.txt.

set(TIFFGATE_OCTAVE_PACKAGE ${PROJECT_BINARY_DIR}/tiffgate-${PROJECT_VERSION}.tar.gz
    CACHE INTERNAL "The Octave package")
file(GLOB_RECURSE package_inputs CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/core/* ${PROJECT_SOURCE_DIR}/files/*
  ${PROJECT_SOURCE_DIR}/tags/* ${PROJECT_SOURCE_DIR}/imagedata/*
  ${PROJECT_SOURCE_DIR}/gateway/* ${PROJECT_SOURCE_DIR}/host/octave/*)
add_custom_command(
  OUTPUT ${TIFFGATE_OCTAVE_PACKAGE}
  COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${PROJECT_SOURCE_DIR}
          -DSTAGE_DIR=${PROJECT_BINARY_DIR}/octave-package -DVERSION=${PROJECT_VERSION}
          -DOUTPUT=${TIFFGATE_OCTAVE_PACKAGE} -P ${CMAKE_CURRENT_LIST_DIR}/make_package.cmake
  DEPENDS ${package_inputs}
  COMMENT "Packing the Octave package tiffgate-${PROJECT_VERSION}.tar.gz"
  VERBATIM)
add_custom_target(octave_package ALL DEPENDS ${TIFFGATE_OCTAVE_PACKAGE})
