# Runs one consumer check: install (find_package mode) or embed
# (add_subdirectory mode) the library, build the consumer, run it.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
endfunction()

set(_gen)
find_program(_ninja ninja)
if(_ninja)
  set(_gen -G Ninja)
endif()

if(MODE STREQUAL "find_package")
  run(${CMAKE_COMMAND} --install ${QUILLET_BUILD_DIR} --prefix ${WORK_DIR}/prefix)
  if(NOT EXISTS ${WORK_DIR}/prefix/include/Quillet/Quillet.h)
    message(FATAL_ERROR "the umbrella header was not installed")
  endif()
  run(${CMAKE_COMMAND} ${_gen} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build
      -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix)
else()
  run(${CMAKE_COMMAND} ${_gen} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build
      -DQUILLET_SOURCE_DIR=${QUILLET_SOURCE_DIR} -DCMAKE_BUILD_TYPE=Release)
endif()
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build --parallel 2)
run(${WORK_DIR}/build/consumer)
