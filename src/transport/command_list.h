#pragma once
// A program for the instrument: 32-bit command words gathered into 2048-byte
// blocks, sent as they are. A list is a value; engines copy the lists their
// plan built and send them again and again unchanged.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "transport/registers.h"
#include "zr_api.h"

namespace zr {

class DeviceInterface;


class CommandList {
public:
    static constexpr int kBlockSize = 2048;
    static constexpr int kBlockWords = kBlockSize / 4;
    static constexpr int kTailReserve = 16;  // the last bytes of a block always stay pad

    CommandList() { Init(); }

    void Init();
    void NewBlock();

    void AppendWord(uint32_t word);
    void AppendWords(const uint32_t* words, size_t n);
    // Raw bytes as one item (a multiple of 4 long), for service payloads.
    void AppendBytes(const void* bytes, size_t n);
    void AppendRegister(uint32_t address, uint32_t value);
    void AppendDataWord();
    void AppendStatusWord();
    // Any other reply word that brings an 8192-byte block and that the
    // engines count with the data words (0x25 result blocks).
    void AppendCountedDataReply(uint32_t word);
    // The 28-byte head a list that requests data starts with.
    void AppendListHead();

    // When nonzero, a block is closed as soon as the replies it asks for
    // reach this many (the I/Q sweep list on USB uses 128).
    void setReplyLimit(uint32_t limit) { replyLimit_ = limit; }

    const std::vector<uint8_t>& buffer() const { return buffer_; }
    const uint8_t* data() const { return buffer_.data(); }
    size_t blockCount() const { return buffer_.size() / kBlockSize; }
    int32_t writePos() const { return writePos_; }
    const std::vector<uint32_t>& dataWordCounts() const { return dataWordCounts_; }
    const std::vector<uint32_t>& statusWordCounts() const { return statusWordCounts_; }
    // Word at a byte offset, for inspection.
    uint32_t wordAt(size_t byteOffset) const;

private:
    void reserve(size_t n);
    void copyIn(const void* src, size_t n);
    void afterReply();

    std::vector<uint8_t> buffer_;
    int32_t writePos_ = 0;
    std::vector<uint32_t> dataWordCounts_;
    std::vector<uint32_t> statusWordCounts_;
    uint32_t replyLimit_ = 0;
};

// ---- Builders: each appends one fixed shape of words to a list. ----

void AppendFlashWrite(CommandList& list, uint16_t page, const uint8_t* data1024);
void AppendUnloadFx3(CommandList& list);
// taps: 126 floats, 63 (a, b) pairs as the calibration gives them.
void AppendIFFilter(CommandList& list, int band, int subBand, const float* taps126, bool ridge);
// Nothing when disabled; otherwise one entry per port value and duration.
void AppendGPIOSwitching(CommandList& list, bool enabled, const uint8_t* values,
                         const uint32_t* durations, uint32_t count);
void AppendGPIOSwitchingClear(CommandList& list);
void AppendWindowTable(CommandList& list, const uint32_t* values, size_t count);
void AppendMaskTable(CommandList& list, const std::vector<int16_t>& values);
void AppendLOBias(CommandList& list, float v, float c);
void AppendLOReadback(CommandList& list);
void AppendStreamStart(CommandList& list, int decimation, uint64_t tuneValue, bool baseRate61M44);

enum class MemoryTest { None, CountingUp, CountingDown };
void AppendCapture(CommandList& list, uint32_t startPage, uint32_t pageCount, ZrTriggerType trigger,
                   uint32_t timeoutCount, uint32_t preTriggerPages,
                   MemoryTest memoryTest = MemoryTest::None);
// stage 1 to 4; taps holds the stage's full tap count (189, 79, 159, 159).
int decimationTapCount(int stage);
void AppendDecimationTaps(CommandList& list, int stage, const double* taps);
void AppendNetworkFlush(CommandList& list);

// Mesa wake and standby. The wake list ends with the synthesizer words for
// 3906.25 MHz, which the RF code appends after AppendMesaWake; the Ridge
// wake and shutdown words are the RF code's too.
void AppendMesaWake(CommandList& list);
void AppendMesaStandby(CommandList& list);

// ---- Helpers on the transport; slot 0 throughout. ----

bool SendCommandList(DeviceInterface& transport, const CommandList& list);
bool ReadStatusBlock(DeviceInterface& transport, void* buffer8192);
bool TestConnection(DeviceInterface& transport);
int32_t WriteFlashPage(DeviceInterface& transport, uint16_t page, const uint8_t* data1024);
int32_t ReadFlashBlock(DeviceInterface& transport, uint16_t page, uint8_t* out32768);
// bootVersion: as ReadBootVersion found it; version 1 cannot report erase progress.
int32_t EraseFlashPage(DeviceInterface& transport, uint16_t page, uint32_t bootVersion);
int32_t StartFPGA(DeviceInterface& transport);
int32_t ReadBootVersion(DeviceInterface& transport, uint32_t* out);
void UnloadFx3Program(DeviceInterface& transport);

}  // namespace zr
