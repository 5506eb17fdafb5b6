#include "gps/gps_status.h"

#include <cstring>

#include "api/device.h"
#include "gps/timebase_discipline.h"
#include "gps/timebase_file.h"
#include "platform/data_folder.h"
#include "transport/command_list.h"
#include "transport/status_block.h"

namespace zr {

GpsBlockView gpsBlockView(const StatusBlock& block) {
    return gpsBlockViewFromBytes(reinterpret_cast<const uint8_t*>(&block));
}

void decodeStatusGps(ZrDevice& dev, const StatusBlock& block, bool gpsFlag, bool skipGPS, int timebaseOffset) {
    const GpsBlockView view = gpsBlockView(block);
    readTriggerRing(dev.gpsPulses, view);
    if (skipGPS) return;
    decodeGPS(dev.gps, view, gpsFlag);
    if (disciplineTimebase(dev, timebaseOffset))
        (void)writeTimebaseFile(calFilesFolder(), dev.serialNumber, dev.storedTimebase);
}

uint32_t timebaseReferenceWord(const ZrDevice& dev) {
    uint32_t word = 0x4;
    if (dev.referenceSource == 1) word |= 0x1;
    if (dev.externalReference == 1) word |= 0x2;
    if (dev.gpsTimebaseUpdate == 1) word |= 0x8;
    return word | (static_cast<uint32_t>(dev.timebaseTuned) << 16);
}

bool sendTimebaseReferenceWord(ZrDevice& dev) {
    CommandList list;
    list.AppendRegister(0x002E, timebaseReferenceWord(dev));
    return SendCommandList(*dev.transport, list);
}

void AppendGPSMessage(CommandList& list, const uint8_t* data, int length) {
    const int words = (length + 3) / 4;
    uint32_t packed[255 + 1] = {};
    packed[0] = cmd::registerWord(static_cast<uint32_t>(words), 0x01C0);
    std::memcpy(&packed[1], data, static_cast<size_t>(length));
    list.AppendWords(packed, static_cast<size_t>(words) + 1);
}

}  // namespace zr
