# Runs CMD and passes when it fails the way a user should see it fail: an
# ordinary non-zero exit (not a signal, not a hang) and a message on
# stderr matching REGEX.
execute_process(COMMAND ${CMD} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 120)
if(NOT rc MATCHES "^[0-9]+$")
  message(FATAL_ERROR "did not exit normally (${rc}); stderr:\n${err}")
endif()
if(rc EQUAL 0 OR rc GREATER 125)
  message(FATAL_ERROR "exit status ${rc}, expected a failure; stdout:\n${out}\nstderr:\n${err}")
endif()
if(NOT err MATCHES "${REGEX}")
  message(FATAL_ERROR "stderr does not match '${REGEX}':\n${err}")
endif()
