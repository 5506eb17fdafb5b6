# Installs the build into a fresh prefix, then builds examples/sweep_peak.c
# against it twice: with pkg-config and with find_package. Both programs run.
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed")
endif()

set(ENV{PKG_CONFIG_PATH} ${WORK}/prefix/lib/pkgconfig)
execute_process(COMMAND pkg-config --cflags --libs zr_api zr_sim OUTPUT_VARIABLE flags RESULT_VARIABLE rc
                OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know zr_api")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
execute_process(COMMAND cc ${EXAMPLE} -o ${WORK}/sweep_peak_pc ${flags} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the example does not build through pkg-config")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${WORK}/app
                        -DCMAKE_PREFIX_PATH=${WORK}/prefix -DEXAMPLE_SOURCE=${EXAMPLE}
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc EQUAL 0)
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/app RESULT_VARIABLE rc OUTPUT_QUIET)
endif()
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the example does not build through find_package")
endif()

set(ENV{LD_LIBRARY_PATH} ${WORK}/prefix/lib)
foreach(program ${WORK}/sweep_peak_pc ${WORK}/app/sweep_peak_cmake)
  execute_process(COMMAND ${program} ${WORK}/data RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message("${program}: ${out}${err}")
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${program} failed")
  endif()
endforeach()
