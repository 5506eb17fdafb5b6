# The queue's float to int16 conversion vectorises only when comparisons may
# be if-converted; the library never enables floating-point traps.
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/iq_sample_queue.cpp
  PROPERTIES COMPILE_OPTIONS "-fno-trapping-math")
