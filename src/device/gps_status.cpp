#include "device/gps_status.h"

#include <cstring>

#include "device/device.h"
#include "device/services.h"
#include "device/timebase_discipline.h"
#include "gps/timebase_file.h"
#include "platform/data_folder.h"
#include "transport/command_list.h"

namespace zr {

void decodeStatusGps(ZrDevice& dev, const uint8_t* block, uint16_t tuneReported, bool gpsFlag, bool skipGPS,
                     int timebaseOffset) {
    const GpsBlockView view = gpsBlockViewFromBytes(block);
    readTriggerRing(dev.gpsPulses, view);
    if (skipGPS) return;
    decodeGPS(dev.gps, view, gpsFlag);
    if (disciplineTimebase(dev, tuneReported, timebaseOffset))
        (void)writeTimebaseFile(calFilesFolder(), dev.serialNumber, dev.storedTimebase);
}

bool sendTimebaseWordAsIs(ZrDevice& dev) {
    CommandList list;
    list.AppendRegister(reg::kTimebase, timebaseWord(dev));
    list.AppendWord(cmd::kPad);
    return SendCommandList(*dev.transport, list);
}

void AppendGPSMessage(CommandList& list, const uint8_t* data, int length) {
    const int words = (length + 3) / 4;
    uint32_t packed[255 + 1] = {};
    packed[0] = cmd::registerWord(static_cast<uint32_t>(words), reg::kGpsMessage);
    std::memcpy(&packed[1], data, static_cast<size_t>(length));
    list.AppendWords(packed, static_cast<size_t>(words) + 1);
}

}  // namespace zr
