# Script mode: install, configure the consumer against the prefix, build it, run it.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    string(JOIN " " line ${ARGN})
    message(FATAL_ERROR "failed (${rc}): ${line}")
  endif()
endfunction()

step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
step(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
     -DCMAKE_PREFIX_PATH=${prefix})
step(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
step(${WORK_DIR}/build/consumer)
if(NOT EXISTS ${prefix}/bin/mirel)
  message(FATAL_ERROR "the tool was not installed")
endif()
