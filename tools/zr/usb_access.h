// Instruments present on USB that this user may not open: the kernel lists
// them, but without the udev rule their device nodes belong to root, and
// the library cannot see them. zr list names them instead of staying silent.
#pragma once

#include <string>
#include <vector>

namespace zrtool {

struct UsbNode {
    int bus = 0, device = 0;
    std::string path;  // the device node
    bool accessible = false;
};

// Every device of the instruments' vendor under sysRoot (the kernel's USB
// device list), with its node under devRoot and whether it can be opened
// for reading and writing.
std::vector<UsbNode> instrumentNodes(const std::string& sysRoot = "/sys/bus/usb/devices",
                                     const std::string& devRoot = "/dev/bus/usb");

}  // namespace zrtool
