# Runs sweep_peak without hardware: it plugs in its simulated Mesa2 with a
# -30 dBm tone at 2.4 GHz and must report that tone as its peak (its level
# once simulated instruments carry their own calibration).
include(${CMAKE_CURRENT_LIST_DIR}/../tools/zr/sim_physics_probe.cmake)
execute_process(COMMAND ${EXAMPLE} ${DATA} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 240)
message("${out}${err}")
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "sweep_peak failed (${rc})")
endif()
set(level "-(29\\.|30\\.|31\\.0)[0-9]*")
if(NOT SIM_CALIBRATED)
  set(level "-?[0-9.]+")
endif()
if(NOT out MATCHES "peak: 2\\.(399|400)[0-9]* GHz at ${level} dBm")
  message(FATAL_ERROR "the peak is not the 2.4 GHz tone at -30 dBm")
endif()
