# pip installs the package (no network: setuptools from Debian) into a
# folder of its own, with the libraries copied in; a fresh interpreter with
# nothing else on its paths sweeps a simulated tone with it.
file(REMOVE_RECURSE ${WORK})
file(COPY ${SOURCE}/ DESTINATION ${WORK}/src PATTERN tests EXCLUDE PATTERN __pycache__ EXCLUDE)
set(ENV{ZR_API_LIBRARY_DIR} ${LIBDIR})
execute_process(COMMAND /usr/bin/python3 -m pip install -q --no-build-isolation --no-deps --no-index
                        --target ${WORK}/site ${WORK}/src RESULT_VARIABLE rc ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pip install failed: ${err}")
endif()
unset(ENV{ZR_API_LIBRARY})
set(ENV{PYTHONPATH} ${WORK}/site)
execute_process(COMMAND /usr/bin/python3 -c "
import os, numpy as np, zr_api, zr_api.sim as sim
assert os.path.dirname(zr_api.__file__).startswith('${WORK}')
zr_api.set_data_folder('${WORK}/data'); sim.set_wait_scale(0)
sim.attach('Mesa2', 20006001); sim.add_tone(20006001, 1e9, -30)
with zr_api.open(20006001) as dev:
    dev.configure_sweep(center=1e9, span=1e7, rbw=1e4, window='flattop')
    f, t = dev.sweep()
    assert abs(t.max() + 30) < 0.5 and abs(f[t.argmax()] - 1e9) < 2e4, (f[t.argmax()], t.max())
print('ok')
" WORKING_DIRECTORY ${WORK} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
message("${out}${err}")
if(NOT rc EQUAL 0 OR NOT out MATCHES "ok")
  message(FATAL_ERROR "the installed package does not work")
endif()
