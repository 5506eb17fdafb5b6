#pragma once
// The calibration records as the library sees them. The layouts themselves
// are the C structs of the public header (one definition); this file pins
// every field to its byte offset, so a layout slip fails the build rather
// than reading the wrong table out of an instrument's flash.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zr_api.h"

namespace zr {

// Images are used in place as read from flash or disk.
static_assert(std::endian::native == std::endian::little, "calibration images are little-endian");

constexpr int kCalTemps = ZR_CAL_TEMPERATURES;
constexpr int kCalAttens = ZR_CAL_ATTEN_STATES;
constexpr int kCalIFColumns = ZR_CAL_IF_COLUMNS;
constexpr int kMesaSlices = ZR_CAL_MESA_SLICES;
constexpr int kRidgeSlices = ZR_CAL_RIDGE_SLICES;
constexpr int kPreselectFilters = ZR_CAL_PRESELECT_FILTERS;
constexpr int kPreselectPoints = ZR_CAL_PRESELECT_POINTS;
constexpr int kTimebaseEntries = ZR_CAL_TIMEBASE_ENTRIES;
constexpr int kLowFreqPoints = ZR_CAL_LOW_FREQ_POINTS;

constexpr size_t kMesaImageSize = 0x400000;
constexpr size_t kRidgeImageSize = 0x800000;
constexpr size_t kCalHeadSize = 0x40000;  // kept when corrections are replaced
constexpr int kMesaSizeUsed = 2410016;
constexpr int kRidgeSizeUsed = 4813082;

constexpr uint32_t kNoCalDate = 0xFFFFFFFFu;
constexpr uint16_t kNoTimebaseValue = 0xFFFF;

// Offsets shared by both records, so byte-pointer inquiries need no family.
constexpr size_t kCalDateOffset = 0x40000;
constexpr size_t kCalVersionOffset = 0x40004;
// The record version this library reads; 3 and above come from newer
// calibration stations.
constexpr uint32_t kCalVersionRead = 2;

#define ZR_AT(T, f, off) static_assert(offsetof(T, f) == (off), #T "." #f)
ZR_AT(MesaCalData, flashHeader, 0);
ZR_AT(MesaCalData, loFreq, 1024);
ZR_AT(MesaCalData, reservedHead, 5120);
ZR_AT(MesaCalData, calDate, 0x40000);
ZR_AT(MesaCalData, calVersion, 0x40004);
ZR_AT(MesaCalData, temperature, 0x40008);
ZR_AT(MesaCalData, timebaseValue, 0x40034);
ZR_AT(MesaCalData, timebaseDate, 0x400B8);
ZR_AT(MesaCalData, timebaseTempOffset, 0x402B8);
ZR_AT(MesaCalData, gainCode, 0x402CE);
ZR_AT(MesaCalData, lowFreqCorrection, 0x404DC);
ZR_AT(MesaCalData, gain, 0x4057C);
ZR_AT(MesaCalData, ifRatio, 0x67D20);
ZR_AT(MesaCalData, ifPhase, 0x105BB0);
ZR_AT(MesaCalData, ifFlatness, 0x1A3A40);
ZR_AT(MesaCalData, loConfig, 0x2418D0);
ZR_AT(MesaCalData, preselect, 0x24899C);
ZR_AT(MesaCalData, reservedTail, 0x24C61C);
static_assert(sizeof(MesaCalData) == kMesaImageSize);

ZR_AT(RidgeCalData, flashHeader, 0);
ZR_AT(RidgeCalData, cbbCore, 1024);
ZR_AT(RidgeCalData, cbbBand, 1537);
ZR_AT(RidgeCalData, cbbBias, 2050);
ZR_AT(RidgeCalData, loGateBiasDefault, 2564);
ZR_AT(RidgeCalData, vva, 2568);
ZR_AT(RidgeCalData, loftI, 4412);
ZR_AT(RidgeCalData, loftQ, 5322);
ZR_AT(RidgeCalData, ifOutBalance, 6232);
ZR_AT(RidgeCalData, ifOutGain, 6392);
ZR_AT(RidgeCalData, usesLTC6947, 6552);
ZR_AT(RidgeCalData, reservedHead, 6556);
ZR_AT(RidgeCalData, calDate, 0x40000);
ZR_AT(RidgeCalData, calVersion, 0x40004);
ZR_AT(RidgeCalData, timebaseValue, 0x40008);
ZR_AT(RidgeCalData, timebaseDate, 0x40088);
ZR_AT(RidgeCalData, timebaseTempOffset, 0x40288);
ZR_AT(RidgeCalData, temperature, 0x402A0);
ZR_AT(RidgeCalData, loGateBias, 0x402CC);
ZR_AT(RidgeCalData, gainCode, 0x402F8);
ZR_AT(RidgeCalData, lowFreqCorrection, 0x40764);
ZR_AT(RidgeCalData, gain, 0x40804);
ZR_AT(RidgeCalData, ifRatio, 0x9578C);
ZR_AT(RidgeCalData, ifPhase, 0x1E95AC);
ZR_AT(RidgeCalData, ifFlatness, 0x33D3CC);
ZR_AT(RidgeCalData, band5Gain, 0x4911EC);
ZR_AT(RidgeCalData, band6Balance, 0x4918B8);
ZR_AT(RidgeCalData, band6Gain, 0x4926A4);
ZR_AT(RidgeCalData, preselect, 0x493490);
ZR_AT(RidgeCalData, reservedTail, 0x497110);
ZR_AT(RidgeCalData, checksum, 0x7FFFF8);
static_assert(sizeof(RidgeCalData) == kRidgeImageSize);
#undef ZR_AT

static_assert(offsetof(MesaCalData, calDate) == kCalDateOffset && offsetof(RidgeCalData, calDate) == kCalDateOffset);
static_assert(offsetof(MesaCalData, calVersion) == kCalVersionOffset && offsetof(RidgeCalData, calVersion) == kCalVersionOffset);

// Per-family facts for code that is written once for both records.
template <class Image> struct CalTraits;
template <> struct CalTraits<MesaCalData> {
    static constexpr int slices = kMesaSlices;
    static constexpr size_t size = kMesaImageSize;
};
template <> struct CalTraits<RidgeCalData> {
    static constexpr int slices = kRidgeSlices;
    static constexpr size_t size = kRidgeImageSize;
};

// Word sum of a Ridge image as stored in its checksum field. The checksum
// and the timebase history count as all ones, so that appending history
// entries to flash without an erase keeps the image sound.
uint32_t ridgeChecksum(const RidgeCalData& image);
inline bool ridgeChecksumValid(const RidgeCalData& image) { return ridgeChecksum(image) == image.checksum; }

// Timebase cache file "%szr%08dgps.bin": exactly 64 bytes.
struct TimebaseCacheRecord {
    static constexpr uint32_t kMagic = 0x00677073;
    static constexpr uint32_t kVersion = 1;
    static constexpr size_t kSize = 64;
    uint64_t date = 0;    // seconds since 1970
    uint16_t value = 0;   // coarse-tune value
    // At offset 20, in what the format leaves zero: the instrument the value
    // belongs to. 0 in files written before it was recorded.
    uint32_t serial = 0;
};
void encodeTimebaseCache(const TimebaseCacheRecord& record, uint8_t out[TimebaseCacheRecord::kSize]);
// False unless the bytes are exactly one record with the right magic and
// version.
bool decodeTimebaseCache(const uint8_t* bytes, size_t size, TimebaseCacheRecord& record);

// Preselector filter table: edges in Hz; the 32 points of a filter's
// `preselect` row span start to stop in 31 steps.
struct PreselectFilter {
    double start;
    double stop;
    double step() const { return (stop - start) / 31.0; }
};
// Filter 0..10; other numbers are clamped (callers never pass them).
const PreselectFilter& preselectFilter(int filter);

// Whole-file image I/O: true only when exactly `size` bytes moved.
bool readImageFile(const char* path, void* image, size_t size);
bool writeImageFile(const char* path, const void* image, size_t size);

// Internal forms of the exported builders, for code that holds references.
void buildDummyCorrections(MesaCalData& image);
void buildDummyCorrections(RidgeCalData& image);
void propagateSingleTempCal(MesaCalData& image, int from, int to);
void propagateSingleTempCal(RidgeCalData& image, int from, int to);
uint32_t correctionCalDate(const MesaCalData& image);
uint32_t correctionCalDate(const RidgeCalData& image);

}  // namespace zr
