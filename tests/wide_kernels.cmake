# cmake -DNM=nm -DOBJECTS="a.o;b.o" -P wide_kernels.cmake: fails when an
# object defines code that other objects could be linked to, outside
# tiffgate::detail::v32. Data (type information, sanitizer markers) is the
# same whatever the instruction set, so it may be shared.
foreach(object ${OBJECTS})
  execute_process(COMMAND ${NM} -C --defined-only ${object} OUTPUT_VARIABLE symbols RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${object}")
  endif()
  string(REPLACE "\n" ";" lines "${symbols}")
  foreach(line ${lines})
    # T: global code, W: weak (code unless marked V), i: indirect function.
    if(line MATCHES "^[0-9a-f]* [TWi] (.*)$" AND NOT CMAKE_MATCH_1 MATCHES "^tiffgate::detail::v32::")
      message(SEND_ERROR "${object} exports ${CMAKE_MATCH_1}")
    endif()
  endforeach()
endforeach()
