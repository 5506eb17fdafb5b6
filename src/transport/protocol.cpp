// The free helpers that speak command lists over any transport. All of them
// use slot 0, the command and status slot.
#include <cstring>

#include "transport/command_list.h"
#include "transport/device_interface.h"
#include "transport/wait.h"

namespace zr {

namespace {
constexpr int kPollBytes = 32768;

CommandList singleWord(uint32_t word) {
    CommandList list;
    list.AppendWord(word);
    return list;
}

uint32_t firstWord(const TransferResult& r) {
    uint32_t w = 0;
    if (r.data != nullptr && r.transferred >= 4) std::memcpy(&w, r.data, 4);
    return w;
}
}  // namespace

bool SendCommandList(DeviceInterface& transport, const CommandList& list) {
    const uint8_t* p = list.data();
    for (size_t b = 0; b < list.blockCount(); ++b) {
        transport.BeginWrite(0, p + b * CommandList::kBlockSize);
        if (!transport.FinishWrite(0).good()) {
            transport.status = zrConnectionLostErr;
            return false;
        }
    }
    return true;
}

bool ReadStatusBlock(DeviceInterface& transport, void* buffer8192) {
    CommandList list;
    list.AppendListHead();
    for (int i = 0; i < 4; ++i) list.AppendStatusWord();
    transport.BeginRead(0, kPollBytes, 2000);
    if (!SendCommandList(transport, list)) return false;
    const TransferResult r = transport.FinishRead(0);
    if (!r.good()) {
        transport.status = zrConnectionLostErr;
        return false;
    }
    std::memcpy(buffer8192, r.data, 8192);
    return true;
}

bool TestConnection(DeviceInterface& transport) {
    const CommandList list = singleWord(cmd::kStatusWord);
    // Stale replies from an earlier session would answer for us; drain them.
    // Bounded so that an instrument that keeps streaming cannot hold us here.
    for (int i = 0; i < 4096; ++i) {
        transport.BeginRead(0, kPollBytes, 100);
        if (!transport.FinishRead(0).good()) break;
    }
    for (int attempt = 0; attempt < 16; ++attempt) {
        if (!SendCommandList(transport, list)) return false;
        transport.BeginRead(0, kPollBytes, 100);
        if (!transport.FinishRead(0).failed) {
            transport.status = zrNoError;
            return true;
        }
    }
    return false;
}

int32_t WriteFlashPage(DeviceInterface& transport, uint16_t page, const uint8_t* data1024) {
    CommandList list;
    AppendFlashWrite(list, page, data1024);
    SendCommandList(transport, list);
    protocolSleepMs(16);
    return transport.status;
}

int32_t ReadFlashBlock(DeviceInterface& transport, uint16_t page, uint8_t* out32768) {
    if (!SendCommandList(transport, singleWord(cmd::kFlashRead | page))) return transport.status;
    protocolSleepMs(100);
    transport.BeginRead(0, kPollBytes, 2000);
    const TransferResult r = transport.FinishRead(0);
    if (r.good()) std::memcpy(out32768, r.data, kPollBytes);
    return transport.status;
}

int32_t EraseFlashPage(DeviceInterface& transport, uint16_t page, uint32_t bootVersion) {
    if (!SendCommandList(transport, singleWord(cmd::kFlashErase | page))) return transport.status;
    if (bootVersion == 1) {
        protocolSleepMs(2000);
        return transport.status;
    }
    const CommandList poll = singleWord(cmd::kEraseStatus);
    for (int i = 0; i < 50; ++i) {
        if (!SendCommandList(transport, poll)) return transport.status;
        protocolSleepMs(200);
        transport.BeginRead(0, kPollBytes, 2000);
        const TransferResult r = transport.FinishRead(0);
        if (!r.good()) break;
        if ((firstWord(r) & 1u) == 0) break;
    }
    return transport.status;
}

int32_t StartFPGA(DeviceInterface& transport) {
    if (!SendCommandList(transport, singleWord(cmd::kFpgaLoad))) return transport.status;
    for (int i = 0; i < 40; ++i) {
        protocolSleepMs(750);
        transport.BeginRead(0, kPollBytes, 2000);
        const TransferResult r = transport.FinishRead(0);
        if (!r.failed) return firstWord(r) == 0 ? zrFPGABootErr : zrNoError;
    }
    // Silence here is not judged: the next step of the boot shows it.
    return zrNoError;
}

int32_t ReadBootVersion(DeviceInterface& transport, uint32_t* out) {
    if (!SendCommandList(transport, singleWord(cmd::kBootVersion))) return transport.status;
    protocolSleepMs(250);
    transport.BeginRead(0, kPollBytes, 2000);
    TransferResult r = transport.FinishRead(0);
    if (!r.good()) {
        transport.BeginRead(0, kPollBytes, 2000);
        r = transport.FinishRead(0);
    }
    if (r.good() && out != nullptr) *out = firstWord(r);
    return transport.status;
}

void UnloadFx3Program(DeviceInterface& transport) {
    CommandList list;
    AppendUnloadFx3(list);
    SendCommandList(transport, list);
    protocolSleepMs(3000);
}

}  // namespace zr
