# What cmake --install puts where: the libraries with their headers, the zr
# tool, a pkg-config file for each library and a CMake package.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(zr_api INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_include_directories(zr_sim INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS zr_api zr_sim EXPORT zr_apiTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${CMAKE_SOURCE_DIR}/include/zr_api.h ${CMAKE_SOURCE_DIR}/include/zr_sim.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS zr RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

foreach(lib zr_api zr_sim)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/${lib}.pc.in ${CMAKE_BINARY_DIR}/${lib}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/${lib}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zr_api)
install(EXPORT zr_apiTargets NAMESPACE zr_api:: DESTINATION ${config_dir})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/zr_apiConfig.cmake.in
  ${CMAKE_BINARY_DIR}/zr_apiConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/zr_apiConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/zr_apiConfig.cmake ${CMAKE_BINARY_DIR}/zr_apiConfigVersion.cmake
        DESTINATION ${config_dir})
