# Script mode: install, configure and build the consumer, then run it.
# LIBDIR is the library folder below the prefix, as the build installs it.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
  endif()
  set(LAST_OUTPUT "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix} "-DCMAKE_CXX_FLAGS=${EXTRA_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer_cmake)
set(expected "Copied report.txt of 7 files; lower of U\\+00C9 is U\\+00E9\nxml text")
if(NOT LAST_OUTPUT MATCHES "${expected}")
  message(FATAL_ERROR "unexpected output from the CMake consumer: ${LAST_OUTPUT}")
endif()

# The same program built by hand with the flags pkg-config gives.
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(pkg-config --cflags --libs vosystem)
string(STRIP "${LAST_OUTPUT}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(extra UNIX_COMMAND "${EXTRA_FLAGS}")
run(${CXX} -std=c++17 ${extra} ${SOURCE_DIR}/main.cpp ${flags} -o ${WORK_DIR}/consumer_pc)
execute_process(COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${WORK_DIR}/consumer_pc
  RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0 OR NOT out MATCHES "${expected}")
  message(FATAL_ERROR "pkg-config consumer failed (${rc}): ${out}")
endif()

# The installed tool finds the installed data, also once the whole tree has
# moved somewhere else.
file(RENAME ${prefix} ${WORK_DIR}/moved)
run(${WORK_DIR}/moved/bin/vosys chars "É")
if(NOT LAST_OUTPUT MATCHES "Lu L +lower U\\+00E9")
  message(FATAL_ERROR "installed vosys did not find its character data: ${LAST_OUTPUT}")
endif()
