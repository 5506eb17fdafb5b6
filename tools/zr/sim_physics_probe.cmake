# Included by case scripts: asks `zr info` whether a simulated PROBE_MODEL
# carries a factory calibration of its own. Without one the simulator's
# tones land at their frequency but not at their level, so SIM_CALIBRATED
# tells the case whether levels can be checked.
execute_process(COMMAND ${ZR} --data-folder ${PROBE_FOLDER} --sim ${PROBE_MODEL} info
                RESULT_VARIABLE probe_rc OUTPUT_VARIABLE probe_out ERROR_VARIABLE probe_err TIMEOUT 120)
if(NOT probe_rc EQUAL 0)
  message(FATAL_ERROR "zr info on a simulated ${PROBE_MODEL} failed (${probe_rc}):\n${probe_err}")
endif()
set(SIM_CALIBRATED TRUE)
if(probe_out MATCHES "calibrated +none")
  set(SIM_CALIBRATED FALSE)
  message("levels unchecked: a simulated ${PROBE_MODEL} carries no calibration yet")
endif()
