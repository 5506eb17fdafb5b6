#include "usb_bus.h"

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>

#include "registry.h"
#include "zr_api.h"

namespace zr::sim {

namespace {

constexpr uint16_t kVendorId = 0x7A31;
constexpr int kWriteTimeoutMs = 2000;
// Reads carry no time-out of their own on USB: the host waits and cancels.
constexpr int kReadNoTimeoutMs = 24 * 3600 * 1000;

struct ProductIdentity {
    uint16_t productId;
    const char* name;
};

ProductIdentity identity(ZrDeviceType type) {
    switch (type) {
        case zrDeviceTypeMesa2: return {6, "Mesa2"};
        case zrDeviceTypeRidge2: return {10, "Ridge2"};
        default: return {4, "Mesa1"};
    }
}

class OutQueue;

// An OUT transfer: carried to the instrument by the device's writer thread,
// in submission order, as the bulk pipe would.
class SimOutTransfer : public UsbTransfer {
public:
    SimOutTransfer(OutQueue& q, const uint8_t* buffer) : queue_(q), buffer_(buffer) {}
    bool submit(uint32_t length) override;
    bool wait(uint32_t timeoutMs) override;
    void cancel() override;
    uint32_t transferred() const override;
    bool completed() const override;

private:
    friend class OutQueue;
    OutQueue& queue_;
    const uint8_t* buffer_;
    uint32_t length_ = 0;
    bool done_ = true, ok_ = false;
};

class OutQueue {
public:
    explicit OutQueue(std::shared_ptr<Instrument> inst) : inst_(std::move(inst)), thread_([this] { run(); }) {}
    ~OutQueue() {
        {
            std::lock_guard lock(m_);
            stop_ = true;
        }
        cv_.notify_all();
        thread_.join();
    }
    void push(SimOutTransfer* t) {
        {
            std::lock_guard lock(m_);
            t->done_ = false;
            t->ok_ = false;
            pending_.push_back(t);
        }
        cv_.notify_all();
    }
    bool wait(SimOutTransfer* t, uint32_t timeoutMs) {
        std::unique_lock lock(m_);
        return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return t->done_; });
    }
    void cancel(SimOutTransfer* t) {
        std::lock_guard lock(m_);
        for (auto it = pending_.begin(); it != pending_.end(); ++it)
            if (*it == t) {
                pending_.erase(it);
                t->done_ = true;
                t->ok_ = false;
                break;
            }
        cv_.notify_all();
    }
    std::mutex m_;

private:
    void run() {
        std::unique_lock lock(m_);
        for (;;) {
            cv_.wait(lock, [&] { return stop_ || !pending_.empty(); });
            if (stop_) {
                for (SimOutTransfer* t : pending_) t->done_ = true;
                pending_.clear();
                cv_.notify_all();
                return;
            }
            SimOutTransfer* t = pending_.front();
            pending_.pop_front();
            // The instrument may stall a write while its reply FIFO is full;
            // it gives up after the write time-out like the real pipe.
            lock.unlock();
            const bool ok = inst_->writeBlock(t->buffer_, kWriteTimeoutMs);
            lock.lock();
            t->ok_ = ok;
            t->done_ = true;
            cv_.notify_all();
        }
    }

    std::shared_ptr<Instrument> inst_;
    std::condition_variable cv_;
    std::deque<SimOutTransfer*> pending_;
    bool stop_ = false;
    std::thread thread_;
};

bool SimOutTransfer::submit(uint32_t length) {
    length_ = length;
    queue_.push(this);
    return true;
}
bool SimOutTransfer::wait(uint32_t timeoutMs) { return queue_.wait(this, timeoutMs); }
void SimOutTransfer::cancel() { queue_.cancel(this); }
uint32_t SimOutTransfer::transferred() const {
    std::lock_guard lock(queue_.m_);
    return ok_ ? length_ : 0;
}
bool SimOutTransfer::completed() const {
    std::lock_guard lock(queue_.m_);
    return done_ && ok_;
}

class SimInTransfer : public UsbTransfer {
public:
    SimInTransfer(std::shared_ptr<Instrument> inst, uint8_t* buffer) : inst_(std::move(inst)), buffer_(buffer) {}
    ~SimInTransfer() override {
        if (posted_) inst_->cancelRead(request_);
    }
    bool submit(uint32_t length) override {
        inst_->postRead(request_, buffer_, length, kReadNoTimeoutMs);
        posted_ = true;
        return true;
    }
    bool wait(uint32_t timeoutMs) override {
        if (!posted_) return true;
        const bool done =
            inst_->waitReadUntil(request_, std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs));
        if (done) posted_ = false;
        return done;
    }
    void cancel() override {
        if (posted_) inst_->cancelRead(request_);
    }
    uint32_t transferred() const override { return request_.failed ? 0 : request_.transferred; }
    bool completed() const override { return request_.done && !request_.failed; }

private:
    std::shared_ptr<Instrument> inst_;
    uint8_t* buffer_;
    ReadRequest request_;
    bool posted_ = false;
};

class SimUsbDevice : public UsbDevice {
public:
    explicit SimUsbDevice(std::shared_ptr<Instrument> inst) : inst_(std::move(inst)), out_(inst_) {}
    bool claim() override { return !inst_->detached(); }
    std::unique_ptr<UsbTransfer> makeTransfer(UsbDirection dir, uint8_t* buffer, uint32_t) override {
        if (dir == UsbDirection::Out) return std::make_unique<SimOutTransfer>(out_, buffer);
        return std::make_unique<SimInTransfer>(inst_, buffer);
    }
    bool vendorReset() override {
        if (inst_->detached()) return false;
        inst_->reset();
        return true;
    }

private:
    std::shared_ptr<Instrument> inst_;
    OutQueue out_;
};

class SimUsbBus : public UsbBus {
public:
    std::vector<UsbDeviceInfo> enumerate() override {
        std::vector<UsbDeviceInfo> out;
        for (const auto& inst : attachedInstruments()) {
            if (inst->detached()) continue;
            const ProductIdentity id = identity(inst->type());
            char serial[16];
            std::snprintf(serial, sizeof serial, "%08d", inst->serial());
            UsbDeviceInfo info;
            info.bus = this;
            info.id = static_cast<uint64_t>(inst->serial());
            info.vendorId = kVendorId;
            info.productId = id.productId;
            info.product = inst->running() ? id.name : std::string(id.name) + " Boot";
            info.serialNumber = serial;
            out.push_back(std::move(info));
        }
        return out;
    }
    std::unique_ptr<UsbDevice> open(const UsbDeviceInfo& info) override {
        auto inst = findInstrument(static_cast<int>(info.id));
        if (!inst || inst->detached()) return nullptr;
        return std::make_unique<SimUsbDevice>(std::move(inst));
    }
};

}  // namespace

}  // namespace zr::sim

extern "C" zr::UsbBus* zrSimUSBBus(void) {
    static zr::sim::SimUsbBus bus;
    return &bus;
}
