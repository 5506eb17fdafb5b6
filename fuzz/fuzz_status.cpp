// Status blocks as a data thread decodes them: flags and diagnostics, the
// loss counter, the GPS text, pulse and times, the trigger ring and the
// timebase discipline, block after block on one device. The input is whole
// 8192-byte blocks.
#include <cstdint>
#include <memory>
#include <new>

#include "device/device.h"
#include "device/services.h"
#include "support/fake_transport.h"

using namespace zr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kBlock = 8192;
    if (size < kBlock) return 0;
    // One device for the whole run (its tables are costly to build); what
    // a status block can change starts afresh with each input.
    static ZrDevice* dev = [] {
        zrSetDataFolder("/tmp/zr_fuzz_status");
        return new ZrDevice(std::make_unique<test::OfflineTransport>(zrDeviceTypeMesa2, 20000001));
    }();
    dev->status.store(StatusImage{});
    dev->gps.~GpsReceiver();
    new (&dev->gps) GpsReceiver();
    dev->gpsPulses = GpsPulseReader{};
    dev->gpsPulses.tickOffset = 5120 - 208;
    dev->gpsTimebaseUpdate = data[0] & 1;
    dev->timebaseDisciplined = 0;
    alignas(8) uint8_t block[kBlock];
    for (size_t at = 0; at + kBlock <= size; at += kBlock) {
        std::memcpy(block, data + at, kBlock);
        decodeStatus(*dev, block, (at / kBlock) % 2 == 0, false);
    }
    return 0;
}
