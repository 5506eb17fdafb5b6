# The wide kernels alone get AVX2/FMA code generation, so the library still
# loads and runs on processors without them (dspInit picks the kernels).
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/fft_avx2.cpp
  PROPERTIES COMPILE_OPTIONS "-mavx2;-mfma")
