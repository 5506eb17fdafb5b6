# Runs the export driver once per seed; any failure fails the test.
foreach(seed ${SEEDS})
  execute_process(COMMAND ${DRIVER} ${seed} ${CALLS} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message("${out}${err}")
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "export driver seed ${seed}: exit ${rc}")
  endif()
endforeach()
