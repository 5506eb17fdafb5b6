// Calibration images as plain data: inquiries, the neutral image, single
// temperature propagation, checksum, the timebase cache record and file I/O.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/error_log.h"
#include "zr_correction_def.h"

namespace zr {

namespace {

// Byte-pointer inquiries may receive any address (a buffer inside a larger
// one), so fields are read by copy rather than through a cast.
template <class T>
T loadAt(const uint8_t* image, size_t offset) {
    T v;
    std::memcpy(&v, image + offset, sizeof v);
    return v;
}

uint32_t correctionCalDateAt(const uint8_t* image, size_t valueOffset, size_t dateOffset) {
    uint64_t latest = loadAt<uint32_t>(image, kCalDateOffset);
    for (int i = 0; i < kTimebaseEntries; ++i) {
        if (loadAt<uint16_t>(image, valueOffset + 2 * i) == kNoTimebaseValue) break;
        latest = std::max(latest, loadAt<uint64_t>(image, dateOffset + 8 * i));
    }
    return static_cast<uint32_t>(latest);
}

bool anyWritten(const uint8_t* p, size_t n) {
    return std::any_of(p, p + n, [](uint8_t b) { return b != 0xFF; });
}

constexpr float kDummyLowFreq[14] = {0.4f, 0.31f, 0.25f, 0.2f, 0.17f, 0.14f, 0.13f,
                                     0.12f, 0.11f, 0.1f, 0.08f, 0.06f, 0.04f, 0.02f};

// The part of the neutral image that both records share field by field.
template <class Image>
void buildDummyCommon(Image& im) {
    std::memset(&im, 0xFF, sizeof im);
    im.calDate = kNoCalDate;
    for (int i = 0; i < kCalTemps; ++i) {
        im.temperature[i] = static_cast<float>(i * 11.0 - 44.0);
        im.timebaseTempOffset[i] = 0;
    }
    // timebaseValue and timebaseDate stay all ones: an empty history.
    std::fill(std::begin(im.gainCode), std::end(im.gainCode), uint8_t{0});
    std::fill(std::begin(im.lowFreqCorrection), std::end(im.lowFreqCorrection), 0.0f);
    std::copy(std::begin(kDummyLowFreq), std::end(kDummyLowFreq), im.lowFreqCorrection);
    std::fill_n(&im.gain[0][0][0], sizeof im.gain / sizeof(float), 0.0f);
    std::fill_n(&im.ifRatio[0][0][0], sizeof im.ifRatio / sizeof(float), 1.0f);
    std::fill_n(&im.ifPhase[0][0][0], sizeof im.ifPhase / sizeof(float), 0.0f);
    std::fill_n(&im.ifFlatness[0][0][0], sizeof im.ifFlatness / sizeof(float), 1.0f);
    std::fill_n(&im.preselect[0][0][0], sizeof im.preselect / sizeof(float), 0.0f);
}

template <class Table>
void copyRow(Table& table, int from, int to) {
    std::memcpy(&table[to], &table[from], sizeof table[0]);
}

template <class Image>
bool propagateCommon(Image& im, int from, int to) {
    if (from < 0 || from >= kCalTemps || to < 0 || to >= kCalTemps) return false;
    im.temperature[to] = im.temperature[from] + static_cast<float>((to - from) * 11);
    copyRow(im.gain, from, to);
    copyRow(im.ifRatio, from, to);
    copyRow(im.ifPhase, from, to);
    copyRow(im.ifFlatness, from, to);
    copyRow(im.preselect, from, to);
    return true;
}

const PreselectFilter kFilterTable[kPreselectFilters] = {
    {1e5, 5e7},       {1.9e7, 3.1e7},   {2.38e7, 3.9e7}, {3.3e7, 5.2e7},
    {4.2e7, 6.8e7},   {5.9e7, 1e8},     {8.5e7, 1.39e8}, {1.33e8, 2.14e8},
    {1.85e8, 3.03e8}, {2.71e8, 4.33e8}, {4.01e8, 6.444e8},
};

}  // namespace

uint32_t ridgeChecksum(const RidgeCalData& image) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&image);
    constexpr size_t kExcluded[][2] = {
        {offsetof(RidgeCalData, timebaseValue), sizeof(RidgeCalData::timebaseValue)},
        {offsetof(RidgeCalData, timebaseDate), sizeof(RidgeCalData::timebaseDate)},
        {offsetof(RidgeCalData, checksum), sizeof(RidgeCalData::checksum)},
    };
    // Summing the whole image and then swapping the excluded words for
    // all-ones gives the sum of the masked copy without making the copy.
    uint32_t sum = 0;
    for (size_t off = 0; off < sizeof image; off += 4) sum += loadAt<uint32_t>(bytes, off);
    for (const auto& range : kExcluded) {
        for (size_t off = range[0]; off < range[0] + range[1]; off += 4) {
            sum -= loadAt<uint32_t>(bytes, off);
            sum += 0xFFFFFFFFu;
        }
    }
    return sum;
}

void encodeTimebaseCache(const TimebaseCacheRecord& record, uint8_t out[TimebaseCacheRecord::kSize]) {
    std::memset(out, 0, TimebaseCacheRecord::kSize);
    const uint32_t magic = TimebaseCacheRecord::kMagic, version = TimebaseCacheRecord::kVersion;
    std::memcpy(out + 0, &magic, 4);
    std::memcpy(out + 4, &version, 4);
    std::memcpy(out + 8, &record.date, 8);
    std::memcpy(out + 16, &record.value, 2);
    std::memcpy(out + 20, &record.serial, 4);
}

bool decodeTimebaseCache(const uint8_t* bytes, size_t size, TimebaseCacheRecord& record) {
    if (!bytes || size != TimebaseCacheRecord::kSize) return false;
    if (loadAt<uint32_t>(bytes, 0) != TimebaseCacheRecord::kMagic) return false;
    if (loadAt<uint32_t>(bytes, 4) != TimebaseCacheRecord::kVersion) return false;
    record.date = loadAt<uint64_t>(bytes, 8);
    record.value = loadAt<uint16_t>(bytes, 16);
    record.serial = loadAt<uint32_t>(bytes, 20);
    return true;
}

const PreselectFilter& preselectFilter(int filter) {
    return kFilterTable[std::clamp(filter, 0, kPreselectFilters - 1)];
}

bool readImageFile(const char* path, void* image, size_t size) {
    if (!path || !image) return false;
    // Never blocks and never reads a device: a FIFO, a link to /dev/zero or
    // a file of another size is no image of ours, whatever it holds.
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        if (errno != ENOENT) logError("Error: %s cannot open %s (errno %d)\n", __func__, path, errno);
        return false;
    }
    struct stat st;
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size == static_cast<off_t>(size);
    if (!ok) logError("Error: %s ignored %s: not a regular file of %zu bytes\n", __func__, path, size);
    size_t got = 0;
    while (ok && got < size) {
        const ssize_t n = ::read(fd, static_cast<uint8_t*>(image) + got, size - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) ok = false;
        else got += static_cast<size_t>(n);
    }
    ::close(fd);
    return ok;
}

bool writeImageFile(const char* path, const void* image, size_t size) {
    if (!path || !image) return false;
    // Written beside and renamed over: whatever stood at the path (a
    // truncated file, a FIFO, a link) is replaced whole, and a reader never
    // sees half an image.
    const std::string tmp = std::string(path) + ".tmp";
    ::unlink(tmp.c_str());
    const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    size_t put = 0;
    while (put < size) {
        const ssize_t n = ::write(fd, static_cast<const uint8_t*>(image) + put, size - put);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        put += static_cast<size_t>(n);
    }
    const bool closed = ::close(fd) == 0;
    if (put != size || !closed || ::rename(tmp.c_str(), path) != 0) {
        ::unlink(tmp.c_str());
        return false;
    }
    return true;
}

void buildDummyCorrections(MesaCalData& image) {
    buildDummyCommon(image);
    std::memset(image.loConfig, 3, sizeof image.loConfig);
}

void buildDummyCorrections(RidgeCalData& image) {
    buildDummyCommon(image);
    image.loGateBiasDefault = -1.5f;
    std::fill(std::begin(image.loGateBias), std::end(image.loGateBias), -1.5f);
    std::fill(std::begin(image.vva), std::end(image.vva), 25.0f);
    std::fill(std::begin(image.band5Gain), std::end(image.band5Gain), 0u);
    std::fill_n(&image.band6Balance[0][0], sizeof image.band6Balance / 4, 0u);
    std::fill_n(&image.band6Gain[0][0], sizeof image.band6Gain / 4, 0u);
}

void propagateSingleTempCal(MesaCalData& image, int from, int to) {
    if (propagateCommon(image, from, to)) copyRow(image.loConfig, from, to);
}

void propagateSingleTempCal(RidgeCalData& image, int from, int to) {
    if (!propagateCommon(image, from, to)) return;
    image.loGateBias[to] = image.loGateBias[from];
    copyRow(image.band6Balance, from, to);
    copyRow(image.band6Gain, from, to);
}

uint32_t correctionCalDate(const MesaCalData& image) {
    return correctionCalDateAt(reinterpret_cast<const uint8_t*>(&image), offsetof(MesaCalData, timebaseValue),
                               offsetof(MesaCalData, timebaseDate));
}

uint32_t correctionCalDate(const RidgeCalData& image) {
    return correctionCalDateAt(reinterpret_cast<const uint8_t*>(&image), offsetof(RidgeCalData, timebaseValue),
                               offsetof(RidgeCalData, timebaseDate));
}

}  // namespace zr

using namespace zr;

extern "C" {

ZR_EXPORT double zrCalGetTempFromIndex(int index) {
    return std::clamp(index, 0, kCalTemps - 1) * 11.0 - 44.0;
}

ZR_EXPORT int zrCalGetCalSizeUsed(bool ridge) { return ridge ? kRidgeSizeUsed : kMesaSizeUsed; }

ZR_EXPORT uint32_t zrCalGetCorrectionCalDate(const uint8_t* image, bool ridge) {
    if (!image) return kNoCalDate;
    return ridge ? correctionCalDateAt(image, offsetof(RidgeCalData, timebaseValue), offsetof(RidgeCalData, timebaseDate))
                 : correctionCalDateAt(image, offsetof(MesaCalData, timebaseValue), offsetof(MesaCalData, timebaseDate));
}

ZR_EXPORT uint32_t zrCalGetCorrectionCalDateMesa(const MesaCalData* image) {
    return zrCalGetCorrectionCalDate(reinterpret_cast<const uint8_t*>(image), false);
}

ZR_EXPORT uint32_t zrCalGetCorrectionCalDateRidge(const RidgeCalData* image) {
    return zrCalGetCorrectionCalDate(reinterpret_cast<const uint8_t*>(image), true);
}

ZR_EXPORT uint32_t zrCalGetCalVersion(const uint8_t* image) {
    return image ? loadAt<uint32_t>(image, kCalVersionOffset) : 0xFFFFFFFFu;
}

ZR_EXPORT bool zrCalDoesFlashHeaderExist(const MesaCalData* image) {
    return image && anyWritten(image->flashHeader, sizeof image->flashHeader);
}

ZR_EXPORT bool zrCalDoesPretestDataExist(const uint8_t* image) { return image && anyWritten(image + 1024, 1024); }

ZR_EXPORT bool zrCalDoesCBBDataExist(const RidgeCalData* image) {
    return image && (anyWritten(image->cbbCore, sizeof image->cbbCore) ||
                     anyWritten(image->cbbBand, sizeof image->cbbBand) ||
                     anyWritten(image->cbbBias, sizeof image->cbbBias));
}

ZR_EXPORT bool zrCalDoesLOFTDataExist(const RidgeCalData* image) {
    if (!image) return false;
    const auto* b = reinterpret_cast<const uint8_t*>(image);
    return loadAt<uint32_t>(b, offsetof(RidgeCalData, loGateBiasDefault)) != 0xFFFFFFFFu ||
           loadAt<uint32_t>(b, offsetof(RidgeCalData, vva)) != 0xFFFFFFFFu ||
           static_cast<uint16_t>(image->loftI[0]) != 0xFFFF;
}

ZR_EXPORT bool zrCalDoesOptIFDataExist(const RidgeCalData* image) {
    return image && image->ifOutBalance[0] != 0xFFFFFFFFu && image->ifOutGain[0] != 0xFFFFFFFFu;
}

ZR_EXPORT bool zrCalDoesCorrectionsExist(const uint8_t* image) {
    return image && loadAt<uint32_t>(image, kCalDateOffset) != kNoCalDate;
}

ZR_EXPORT bool zrCalCorrectionLoadFromFileMesa(const char* path, MesaCalData* image) {
    return readImageFile(path, image, sizeof(MesaCalData));
}

ZR_EXPORT bool zrCalCorrectionLoadFromFileRidge(const char* path, RidgeCalData* image) {
    return readImageFile(path, image, sizeof(RidgeCalData));
}

ZR_EXPORT void zrCalBuildDummyCorrectionsMesa(MesaCalData* image) {
    if (image) buildDummyCorrections(*image);
}

ZR_EXPORT void zrCalBuildDummyCorrectionsRidge(RidgeCalData* image) {
    if (image) buildDummyCorrections(*image);
}

ZR_EXPORT void zrCalPropagateSingleTempCalMesa(MesaCalData* image, int from, int to) {
    if (image) propagateSingleTempCal(*image, from, to);
}

ZR_EXPORT void zrCalPropagateSingleTempCalRidge(RidgeCalData* image, int from, int to) {
    if (image) propagateSingleTempCal(*image, from, to);
}

ZR_EXPORT void zrCalGetPreselectFilterInfo(int filter, double* start, double* stop, double* step) {
    if (filter < 0 || filter >= kPreselectFilters) return;
    const PreselectFilter& f = kFilterTable[filter];
    if (start) *start = f.start;
    if (stop) *stop = f.stop;
    if (step) *step = f.step();
}

}  // extern "C"
