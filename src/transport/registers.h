#pragma once
// Every command word and register address the library writes, in one place,
// so that the builders, the plans and the services agree on the wire.
#include <cstdint>

namespace zr {

namespace cmd {
constexpr uint32_t kPad = 0x00000001;            // shortest pause
constexpr uint32_t kListHead = 0xFF530000;        // followed by six zero words
constexpr uint32_t kDataWord = 0x23000000;
constexpr uint32_t kStatusWord = 0x24000000;
constexpr uint32_t kFillerWord = 0x2F000000;
constexpr uint32_t kStreamStop = 0x13000100;
constexpr uint32_t kFlashWrite = 0xFFFE0000;      // | page, then 1024 bytes
constexpr uint32_t kFlashRead = 0xFFFD0000;       // | page
constexpr uint32_t kFlashErase = 0xFFFC0000;      // | page
constexpr uint32_t kFpgaLoad = 0xFFFB4000;
constexpr uint32_t kUnloadFx3 = 0xFFFA0000;
constexpr uint32_t kEraseStatus = 0xFFF90000;
constexpr uint32_t kBootVersion = 0xFFFF0000;
constexpr uint32_t kNetworkFlush = 0x51000000;
constexpr uint32_t kCaptureStart = 0x13000000;     // | stream control bits
constexpr uint32_t kFftStep = 0x15000000;          // one instrument FFT at the tuned step
constexpr uint32_t kFftFetch = 0x25000000;         // | block index << 16

constexpr uint32_t registerWord(uint32_t count, uint32_t address) {
    return 0x04000000u | ((count & 0xFFu) << 16) | (address & 0xFFFFu);
}
}  // namespace cmd

namespace reg {
constexpr uint32_t kCaptureLength = 0x0026;
constexpr uint32_t kCaptureControl = 0x0027;
constexpr uint32_t kCapturePreTrigger = 0x0028;
constexpr uint32_t kFanThreshold = 0x002A;
constexpr uint32_t kTimebase = 0x002E;
constexpr uint32_t kFftSize = 0x0030;
constexpr uint32_t kFftControl = 0x0034;
constexpr uint32_t kFftSweepArm = 0x00040005;  // value of kFftControl that arms the FFT sweep
constexpr uint32_t kTriggerEdge = 0x0036;      // bit 1: the other edge of the trigger input
constexpr uint32_t kIFFilter = 0x003C;
constexpr uint32_t kGpio = 0x01A0;
constexpr uint32_t kGpsMessage = 0x01C0;
constexpr uint32_t kFftWindowTable = 0x2000;
}  // namespace reg

}  // namespace zr
