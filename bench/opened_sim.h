#pragma once
// A simulated Mesa2 opened through the public interface for the sweep
// benchmarks: unpaced, so the host side sets the pace, with one tone over a
// quiet floor.
#include <filesystem>
#include <string>

#include "registry.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr::bench {

struct OpenedSim {
    int handle = -1;
    int serial;
    OpenedSim(int serialNumber, const std::string& folderName) : serial(serialNumber) {
        const auto folder = std::filesystem::temp_directory_path() / folderName;
        std::filesystem::create_directories(folder);
        zrSetDataFolder(folder.c_str());
        zrSimSetWaitScale(0.0);
        zrSimAttachUSB(zrDeviceTypeMesa2, serial);
        zrOpenDeviceBySerial(&handle, serial);
        if (auto inst = zr::sim::findInstrument(serial)) inst->setPaced(false);
        zrSimAddTone(serial, 1e9, -30.0);
        zrSimSetNoiseFloor(serial, -150.0);
    }
    ~OpenedSim() {
        zrCloseDevice(handle);
        zrSimDetach(serial);
    }
    OpenedSim(const OpenedSim&) = delete;
    OpenedSim& operator=(const OpenedSim&) = delete;
};

}  // namespace zr::bench
