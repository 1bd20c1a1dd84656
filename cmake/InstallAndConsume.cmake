# Installs the build into a scratch prefix, then configures, builds and runs
# tests/consumer against that prefix. Arguments: BUILD_DIR, SOURCE_DIR,
# WORK_DIR, GENERATOR.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(f include/trv/trv.h lib/cmake/trv/trvConfig.cmake lib/pkgconfig/trv.pc)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "install is missing ${f}")
  endif()
endforeach()
run_step("consumer configure" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G "${GENERATOR}"
         -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run_step("consumer build" ${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run_step("consumer run" ${WORK_DIR}/build/trv_consumer)
message(STATUS "${step_output}")
if(NOT step_output MATCHES "fused 128x96")
  message(FATAL_ERROR "consumer output unexpected: ${step_output}")
endif()
