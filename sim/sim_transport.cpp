#include "sim_transport.h"

#include <chrono>
#include <cstring>

namespace zr::sim {

SimTransport::SimTransport(std::shared_ptr<Instrument> instrument) : instrument_(std::move(instrument)) {
    for (auto& r : reads_) r.buffer.assign(kReadBufferSize, 0);
    serial = static_cast<uint32_t>(instrument_->serial());
    deviceSerial = instrument_->serial();
    connected = 1;
    thread_ = std::thread([this] { writer(); });
}

SimTransport::~SimTransport() {
    {
        std::lock_guard lock(mu_);
        stop_ = true;
    }
    cv_.notify_all();
    thread_.join();
    // Reads still posted point into our buffers: take them back.
    for (auto& r : reads_)
        if (r.posted) instrument_->cancelRead(r.request), r.posted = false;
}

ZrDeviceType SimTransport::GetDeviceType() {
    return connected ? instrument_->type() : static_cast<ZrDeviceType>(0);
}

void SimTransport::Close() {
    connected = 0;
    deviceSerial = -1;
}

bool SimTransport::Reset() {
    if (!connected || instrument_->detached()) return false;
    instrument_->reset();
    return true;
}

void SimTransport::writer() {
    std::unique_lock lock(mu_);
    for (;;) {
        cv_.wait(lock, [this] { return stop_ || queueCount_ > 0; });
        if (queueCount_ == 0) return;  // stopping with nothing left
        const int slot = queue_[queueHead_];
        lock.unlock();
        const bool ok = instrument_->writeBlock(writes_[slot].block.data(), kWriteTimeoutMs);
        lock.lock();
        queueHead_ = (queueHead_ + 1) % queue_.size();
        --queueCount_;
        writes_[slot].ok = ok;
        writes_[slot].busy = false;
        cv_.notify_all();
    }
}

void SimTransport::BeginWrite(int slot, const void* block) {
    if (slot < 0 || slot >= kSlotCount) return;
    std::unique_lock lock(mu_);
    WriteSlot& w = writes_[slot];
    // A slot whose last write outlived its FinishWrite is still in the
    // writer's hands; that write is bounded, so this wait is too.
    cv_.wait(lock, [&] { return !w.busy; });
    std::memcpy(w.block.data(), block, kWriteBlockSize);
    w.busy = true;
    w.ok = false;
    queue_[(queueHead_ + queueCount_) % queue_.size()] = slot;
    ++queueCount_;
    cv_.notify_all();
}

TransferResult SimTransport::failedTransfer(uint32_t requested) {
    TransferResult r;
    r.failed = 1;
    r.requested = requested;
    noteResult(r);
    return r;
}

TransferResult SimTransport::FinishWrite(int slot) {
    if (slot < 0 || slot >= kSlotCount) return failedTransfer(kWriteBlockSize);
    std::unique_lock lock(mu_);
    WriteSlot& w = writes_[slot];
    const bool finished = cv_.wait_for(lock, std::chrono::milliseconds(kWriteTimeoutMs), [&] { return !w.busy; });
    TransferResult r;
    r.requested = kWriteBlockSize;
    if (finished && w.ok) {
        r.failed = 0;
        r.transferred = kWriteBlockSize;
    }
    lock.unlock();
    noteResult(r);
    return r;
}

void SimTransport::BeginRead(int slot, int size, int timeoutMs) {
    if (slot < 0 || slot >= kSlotCount) return;
    ReadSlot& r = reads_[slot];
    // Begin twice without a Finish breaks the contract; withdraw the old
    // read rather than link its request into the endpoint queue twice.
    if (r.posted) instrument_->cancelRead(r.request), r.posted = false;
    r.size = static_cast<uint32_t>(size < 0 ? 0 : size);
    r.tooLarge = size < 0 || size > kReadBufferSize;
    if (r.tooLarge) return;
    instrument_->postRead(r.request, r.buffer.data(), r.size, timeoutMs);
    r.posted = true;
}

TransferResult SimTransport::FinishRead(int slot) {
    if (slot < 0 || slot >= kSlotCount) return failedTransfer(0);
    ReadSlot& s = reads_[slot];
    if (!s.posted) return failedTransfer(s.size);
    s.posted = false;
    const ReadOutcome o = instrument_->waitRead(s.request);
    TransferResult r;
    r.requested = s.size;
    r.failed = o.failed ? 1 : 0;
    r.transferred = o.transferred;
    r.data = o.failed ? nullptr : s.buffer.data();
    noteResult(r);
    return r;
}

}  // namespace zr::sim
