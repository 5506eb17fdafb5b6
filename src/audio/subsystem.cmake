# The Hilbert filter's wide build; dspInit decides whether it runs.
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/hilbert_avx2.cpp
  PROPERTIES COMPILE_OPTIONS "-mavx2;-mfma")
