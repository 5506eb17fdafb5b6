#include "calibration/load_usb.h"

#include <sys/stat.h>

#include <cstdio>
#include <algorithm>
#include <cstring>

#include "calibration/image_check.h"
#include "platform/data_folder.h"
#include "platform/error_log.h"
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

bool checksumFails(const DeviceInterfaceUSB& t);

// Why a cache file is not this instrument's calibration, or null when it
// is: it must be an image of the family's size (checked by the read), carry
// the instrument's serial (where it carries one), be of a record version
// this library reads, hold its checksum (Ridge) and hold plausible values.
// A file copied from elsewhere, damaged, or written by another family would
// otherwise give levels that look right and are not.
const char* cacheRefusal(DeviceInterfaceUSB& t, bool ridge, int serial, size_t* bad) {
    const uint8_t* image = t.image.data();
    uint32_t recorded;
    std::memcpy(&recorded, image, 4);
    if (recorded != 0xFFFFFFFFu && recorded != static_cast<uint32_t>(serial)) return "the serial in it is another";
    const uint32_t version = zrCalGetCalVersion(image);
    if (zrCalDoesCorrectionsExist(image) && version != kCalVersionRead) return "its record version is unknown here";
    if (ridge && zrCalDoesCorrectionsExist(image) && checksumFails(t)) return "its checksum fails";
    if ((*bad = checkCalibrationValues(t.image.data(), ridge, false)) > 0) return "it holds implausible values";
    return nullptr;
}

// The cache file into the image, unless it is refused (a refused file is as
// good as none: flash is read instead, and the cache rewritten from it).
bool readTrustedCache(const std::string& path, DeviceInterfaceUSB& t, bool ridge, int serial, size_t size) {
    if (!readImageFile(path.c_str(), t.image.data(), size)) return false;
    size_t bad = 0;
    if (const char* why = cacheRefusal(t, ridge, serial, &bad)) {
        logError("Error: %s ignored %s: %s (%zu implausible values)\n", __func__, path.c_str(), why, bad);
        std::fill(t.image.begin(), t.image.end(), uint8_t(0xFF));
        return false;
    }
    return true;
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
        if (cacheFilePresent(cache) && readTrustedCache(cache, t, ridge, serial, size)) {
            if (ridge && checksumFails(t)) t.calInvalid = 1;
            if (!attach(t, *info)) return zrDeviceNotFoundErr;
            checkCalibrationValues(t.image.data(), ridge, true);  // fills what was never written
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
        const bool fileOk = cacheFilePresent(cache) && readTrustedCache(cache, t, ridge, serial, size);
        const uint32_t fileDate = fileOk ? imageDate(t, ridge) : 0;
        readBlocks(t, kShortBlocks);  // overwrites the head the file gave
        const uint32_t flashDate = imageDate(t, ridge);
        const bool flashHas = zrCalDoesCorrectionsExist(t.image.data());
        if (flashHas && (!fileOk || fileDate < flashDate)) readFull(t, ridge);
        if (flashHas && ridge && checksumFails(t)) t.calInvalid = 1;
        // Implausible values in flash: the open goes on with neutral ones in
        // their place and says the calibration is damaged; such an image
        // is not worth a cache.
        const size_t bad = checkCalibrationValues(t.image.data(), ridge, true);
        if (bad > 0) {
            t.calInvalid = 1;
            logError("Error: %s calibration of %08d has %zu implausible values; neutral ones used\n", __func__,
                     serial, bad);
        } else if (flashHas && (!fileOk || flashDate > fileDate)) {
            writeImageFile(cache.c_str(), t.image.data(), size);
        }
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
