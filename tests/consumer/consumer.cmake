# Script mode: install, configure the consumer against the prefix, build it, run it; then
# build and run it again with the flags pkg-config gives.
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
# The same program built the way an application without CMake would build it.
find_program(PKG_CONFIG pkg-config REQUIRED)
find_program(CXX NAMES c++ g++ REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs mirel
                OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not find mirel in ${prefix}/${LIBDIR}/pkgconfig")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
step(${CXX} -std=c++20 ${SOURCE_DIR}/main.cpp ${flags} -o ${WORK_DIR}/consumer-pc)
step(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${WORK_DIR}/consumer-pc)
if(NOT EXISTS ${prefix}/bin/mirel)
  message(FATAL_ERROR "the tool was not installed")
endif()
