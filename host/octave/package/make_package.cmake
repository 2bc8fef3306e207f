# Stages the Octave package and packs it: cmake -DSOURCE_DIR=... -DSTAGE_DIR=...
# -DVERSION=... -DOUTPUT=... -P make_package.cmake
#
# The package carries its own copy of the module's sources under src/, in the
# folders they have here, so that its Makefile builds with mkoctfile alone.

foreach(var SOURCE_DIR STAGE_DIR VERSION OUTPUT)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "make_package.cmake: ${var} is not set")
  endif()
endforeach()

set(package ${SOURCE_DIR}/host/octave/package)
set(root ${STAGE_DIR}/tiffgate-${VERSION})
file(REMOVE_RECURSE ${STAGE_DIR})
file(MAKE_DIRECTORY ${root}/src/host/octave)

set(TIFFGATE_VERSION ${VERSION})
string(TIMESTAMP TIFFGATE_DATE "%Y-%m-%d" UTC)  # honours SOURCE_DATE_EPOCH
configure_file(${package}/DESCRIPTION.in ${root}/DESCRIPTION @ONLY)
file(COPY ${package}/COPYING ${package}/INDEX ${package}/post_install.m ${package}/inst
     DESTINATION ${root})
# tiffgate.m carries the oct-file's help; post_install.m puts it beside it.
file(COPY ${package}/src/Makefile ${SOURCE_DIR}/host/octave/tiffgate.m DESTINATION ${root}/src)

foreach(folder core files tags imagedata gateway)
  file(COPY ${SOURCE_DIR}/${folder} DESTINATION ${root}/src
       FILES_MATCHING PATTERN "*.cpp" PATTERN "*.h" PATTERN "*.def" PATTERN "*.inc")
endforeach()
file(GLOB adapter ${SOURCE_DIR}/host/octave/*.cpp ${SOURCE_DIR}/host/octave/*.h)
file(COPY ${adapter} DESTINATION ${root}/src/host/octave)

execute_process(COMMAND ${CMAKE_COMMAND} -E tar czf ${OUTPUT} tiffgate-${VERSION}
                WORKING_DIRECTORY ${STAGE_DIR} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "make_package.cmake: packing ${OUTPUT} failed")
endif()
