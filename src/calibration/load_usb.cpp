#include "calibration/load_usb.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "platform/data_folder.h"
#include "transport/command_list.h"
#include "transport/wait.h"
#include "zr_correction_def.h"

namespace zr {

namespace {

constexpr double kResetWaitMs = 3000.0;
constexpr uint16_t kImageFirstPage = 1024;   // the image starts at flash byte 0x100000
constexpr uint16_t kPagesPerBlock = 32;      // a block read returns 32 KiB
constexpr size_t kBlockBytes = 32768;
constexpr int kShortBlocks = 9;              // head, dates and history
constexpr int kFullBlocksMesa = 74;
constexpr int kFullBlocksRidge = 147;
constexpr uint16_t kRidgeChecksumPage = 9184;
constexpr size_t kRidgeChecksumBlockOffset = 0x7F8000;

bool cacheFilePresent(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

void readBlocks(DeviceInterfaceUSB& t, int count) {
    for (int n = 0; n < count; ++n) {
        const uint16_t page = static_cast<uint16_t>(kImageFirstPage + kPagesPerBlock * n);
        if (ReadFlashBlock(t, page, t.image.data() + n * kBlockBytes) < 0) return;
    }
}

void readFull(DeviceInterfaceUSB& t, bool ridge) {
    readBlocks(t, ridge ? kFullBlocksRidge : kFullBlocksMesa);
    if (ridge && t.status >= 0) ReadFlashBlock(t, kRidgeChecksumPage, t.image.data() + kRidgeChecksumBlockOffset);
}

uint32_t imageDate(const DeviceInterfaceUSB& t, bool ridge) {
    return zrCalGetCorrectionCalDate(t.image.data(), ridge);
}

bool checksumFails(const DeviceInterfaceUSB& t) {
    return !ridgeChecksumValid(*reinterpret_cast<const RidgeCalData*>(t.image.data()));
}

bool attach(DeviceInterfaceUSB& t, const UsbDeviceInfo& info) {
    if (!info.bus) return false;
    if (!t.ConnectUSB(info.bus->open(info), info)) return false;
    t.connected = 1;
    return true;
}

}  // namespace

std::string calCachePath(int serial) {
    char name[32];
    std::snprintf(name, sizeof name, "zr%08d.bin", serial);
    return calFilesFolder() + name;
}

int32_t loadCalibrationUSB(DeviceInterfaceUSB& t, int serial) {
    auto info = FindUSBBySerial(serial);
    if (!info) return zrDeviceNotFoundErr;
    const bool ridge = info->productId == 10;
    const size_t size = ridge ? kRidgeImageSize : kMesaImageSize;
    const std::string cache = calCachePath(serial);

    auto cls = ClassifyUSB(*info);
    if (cls && cls->running) {
        if (cacheFilePresent(cache) && readImageFile(cache.c_str(), t.image.data(), size)) {
            if (ridge && checksumFails(t)) t.calInvalid = 1;
            if (!attach(t, *info)) return zrDeviceNotFoundErr;
            return zrNoError;
        }
        // No usable cache: flash is readable only in the boot state.
        ResetUSB(*info);
        protocolSleepMs(kResetWaitMs);
        info = FindUSBBySerial(serial);
    }
    if (!info) return zrFX3LoadErr;

    cls = ClassifyUSB(*info);
    if (cls && !cls->running) {
        if (!attach(t, *info)) return zrDeviceNotFoundErr;
        const bool fileOk = cacheFilePresent(cache) && readImageFile(cache.c_str(), t.image.data(), size);
        const uint32_t fileDate = fileOk ? imageDate(t, ridge) : 0;
        readBlocks(t, kShortBlocks);  // overwrites the head the file gave
        const uint32_t flashDate = imageDate(t, ridge);
        const bool flashHas = zrCalDoesCorrectionsExist(t.image.data());
        if (flashHas && (!fileOk || fileDate < flashDate)) readFull(t, ridge);
        if (flashHas && ridge && checksumFails(t)) t.calInvalid = 1;
        if (flashHas && (!fileOk || flashDate > fileDate)) writeImageFile(cache.c_str(), t.image.data(), size);
        t.Close();
        const int32_t booted = BootToRun(serial);
        if (booted != 0) return booted;
        info = FindUSBBySerial(serial);
    }
    if (!info) return zrFX3LoadErr;
    cls = ClassifyUSB(*info);
    if (cls && cls->running) return attach(t, *info) ? zrNoError : zrDeviceNotFoundErr;
    return zrFX3LoadErr;
}

}  // namespace zr
