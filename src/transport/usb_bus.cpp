#include "transport/usb_bus.h"

#include <algorithm>
#include <mutex>

// A simulator library in the process publishes its bus under this name. The
// reference is weak: without a simulator it stays null and only the
// machine's bus and explicitly registered ones are walked.
extern "C" zr::UsbBus* zrSimUSBBus(void) __attribute__((weak, visibility("default")));

namespace zr {

namespace {
std::mutex busMutex;
std::vector<UsbBus*>& registeredBuses() {
    static std::vector<UsbBus*> buses;
    return buses;
}
}  // namespace

void registerUsbBus(UsbBus* bus) {
    if (!bus) return;
    std::lock_guard<std::mutex> lock(busMutex);
    auto& buses = registeredBuses();
    if (std::find(buses.begin(), buses.end(), bus) == buses.end()) buses.push_back(bus);
}

void unregisterUsbBus(UsbBus* bus) {
    std::lock_guard<std::mutex> lock(busMutex);
    auto& buses = registeredBuses();
    buses.erase(std::remove(buses.begin(), buses.end(), bus), buses.end());
}

std::vector<UsbDeviceInfo> enumerateAllUsb() {
    std::vector<UsbDeviceInfo> all = hostUsbBus().enumerate();
    std::vector<UsbBus*> buses;
    {
        std::lock_guard<std::mutex> lock(busMutex);
        buses = registeredBuses();
    }
    if (zrSimUSBBus != nullptr) {
        if (UsbBus* sim = zrSimUSBBus()) buses.insert(buses.begin(), sim);
    }
    for (UsbBus* bus : buses) {
        auto more = bus->enumerate();
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

}  // namespace zr
