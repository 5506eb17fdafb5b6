# Included by case scripts: asks `zr info` whether a simulated PROBE_MODEL
# carries its own calibration, which comes with the simulator's RF physics.
# Without it, prints the skip text the case is registered with and ends the
# script.
execute_process(COMMAND ${ZR} --data-folder ${PROBE_FOLDER} --sim ${PROBE_MODEL} info
                RESULT_VARIABLE probe_rc OUTPUT_VARIABLE probe_out ERROR_VARIABLE probe_err TIMEOUT 120)
if(NOT probe_rc EQUAL 0)
  message(FATAL_ERROR "zr info on a simulated ${PROBE_MODEL} failed (${probe_rc}):\n${probe_err}")
endif()
if(probe_out MATCHES "calibrated +none")
  message("skipped: waits for the simulator's RF physics (a simulated ${PROBE_MODEL} has no calibration)")
  return()
endif()
