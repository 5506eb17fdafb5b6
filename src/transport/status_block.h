#pragma once
// The 8192-byte reply to a 0x24 word, laid out exactly as it arrives, so a
// received block can be read in place (after a memcpy) on a little-endian
// host.
#include <cstddef>
#include <cstdint>

namespace zr {

struct StatusBlock {
    static constexpr uint32_t kMagic = 0x31555834;
    static constexpr size_t kSize = 8192;

    enum Flags : uint8_t {
        kFlagAdcOverload = 0x01,
        kFlagFftDataLoss = 0x02,
        kFlagSampleLoss = 0x04,
        kFlagJesdUnsynced = 0x08,
        kFlagPpsValid = 0x10,
    };

    uint32_t magic;             // 0
    uint32_t firmware;          // 4: USB revision; network: u16 revision, u16 major
    uint32_t tick;              // 8
    uint32_t ppsTick;           // 12
    uint32_t triggerWriteIndex; // 16
    uint16_t gpsHalf;           // 20: bit 8
    uint16_t gpsWordCount;      // 22
    uint32_t runningTick;       // 24
    uint8_t flags;              // 28
    uint8_t lossCounter;        // 29
    uint8_t reserved30[4];
    uint16_t timebaseTune;      // 34
    uint32_t loReadback;        // 36
    uint16_t fpgaTemperature;   // 40
    uint8_t reserved42[2];
    uint8_t gpioInput;          // 44
    uint8_t reserved45[3];
    uint8_t captureWriteIndex;  // 48
    uint8_t reserved49[3];
    uint32_t networkSerial;     // 52
    uint8_t reserved56[8];
    uint16_t supply[4];         // 64, 66, 68, 70
    uint16_t firmwareMinor;     // 72
    uint16_t firmwareMajor;     // 74
    uint16_t tempSensorA;       // 76
    uint8_t reserved78[2];
    uint16_t tempCal;           // 80
    uint16_t tempSensorC;       // 82
    uint16_t tempSensorD;       // 84
    uint16_t tempSensorE;       // 86
    uint8_t reserved88[40];
    uint16_t sfpTemperature;    // 128, 0xFFFF without a module
    uint16_t sfpVoltage;        // 130
    uint16_t sfpTxPower;        // 132
    uint16_t sfpRxPower;        // 134
    uint8_t reserved136[2048 - 136];
    uint32_t triggerRing[512];  // 2048
    uint8_t gpsText[2][1024];   // 4096, 5120
    uint8_t captureRing[256][8];// 6144
};

static_assert(sizeof(StatusBlock) == StatusBlock::kSize);
static_assert(offsetof(StatusBlock, firmware) == 4);
static_assert(offsetof(StatusBlock, tick) == 8);
static_assert(offsetof(StatusBlock, ppsTick) == 12);
static_assert(offsetof(StatusBlock, triggerWriteIndex) == 16);
static_assert(offsetof(StatusBlock, gpsHalf) == 20);
static_assert(offsetof(StatusBlock, gpsWordCount) == 22);
static_assert(offsetof(StatusBlock, runningTick) == 24);
static_assert(offsetof(StatusBlock, flags) == 28);
static_assert(offsetof(StatusBlock, lossCounter) == 29);
static_assert(offsetof(StatusBlock, timebaseTune) == 34);
static_assert(offsetof(StatusBlock, loReadback) == 36);
static_assert(offsetof(StatusBlock, fpgaTemperature) == 40);
static_assert(offsetof(StatusBlock, gpioInput) == 44);
static_assert(offsetof(StatusBlock, captureWriteIndex) == 48);
static_assert(offsetof(StatusBlock, networkSerial) == 52);
static_assert(offsetof(StatusBlock, supply) == 64);
static_assert(offsetof(StatusBlock, firmwareMinor) == 72);
static_assert(offsetof(StatusBlock, firmwareMajor) == 74);
static_assert(offsetof(StatusBlock, tempSensorA) == 76);
static_assert(offsetof(StatusBlock, tempCal) == 80);
static_assert(offsetof(StatusBlock, tempSensorC) == 82);
static_assert(offsetof(StatusBlock, tempSensorD) == 84);
static_assert(offsetof(StatusBlock, tempSensorE) == 86);
static_assert(offsetof(StatusBlock, sfpTemperature) == 128);
static_assert(offsetof(StatusBlock, sfpRxPower) == 134);
static_assert(offsetof(StatusBlock, triggerRing) == 2048);
static_assert(offsetof(StatusBlock, gpsText) == 4096);
static_assert(offsetof(StatusBlock, captureRing) == 6144);

}  // namespace zr
