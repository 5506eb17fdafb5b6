# The real USB bus goes through libusb-1.0.
pkg_check_modules(LIBUSB REQUIRED IMPORTED_TARGET libusb-1.0)
target_link_libraries(zr_objs PUBLIC PkgConfig::LIBUSB)
