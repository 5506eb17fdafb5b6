// The machine's USB bus through libusb. Only devices of our vendor id are
// looked at. Where no USB is visible (a container, CI) initialisation or
// enumeration fails and the bus is simply empty.
#include <libusb.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "platform/threads.h"
#include "platform/error_log.h"
#include "transport/usb_bus.h"

namespace zr {

namespace {

constexpr unsigned kEventPollMs = 100;
constexpr unsigned kControlTimeoutMs = 1000;
constexpr uint8_t kVendorResetRequest = 0xE0;

// Identity of a device across enumerations: bus number and port path.
uint64_t locationId(libusb_device* dev) {
    uint8_t ports[8] = {};
    const int n = libusb_get_port_numbers(dev, ports, 8);
    uint64_t id = libusb_get_bus_number(dev);
    for (int i = 0; i < n && i < 7; ++i) id = (id << 8) | ports[i];
    return id;
}

class LibusbBus;

class LibusbTransfer : public UsbTransfer {
public:
    LibusbTransfer(libusb_device_handle* h, unsigned char endpoint, uint8_t* buffer, uint32_t capacity)
        : handle_(h), endpoint_(endpoint), buffer_(buffer), capacity_(capacity), t_(libusb_alloc_transfer(0)) {}

    ~LibusbTransfer() override {
        if (!t_) return;
        if (inFlight()) {
            cancel();
            wait(2000);
        }
        // A transfer the stack never gave back cannot be freed safely; losing
        // its few bytes is better than a use after free.
        if (!inFlight()) libusb_free_transfer(t_);
    }

    bool submit(uint32_t length) override {
        if (!t_ || length > capacity_) return false;
        {
            std::lock_guard<std::mutex> lock(m_);
            done_ = false;
            ok_ = false;
            actual_ = 0;
        }
        libusb_fill_bulk_transfer(t_, handle_, endpoint_, buffer_, static_cast<int>(length), &LibusbTransfer::callback,
                                  this, 0);
        if (libusb_submit_transfer(t_) != 0) {
            std::lock_guard<std::mutex> lock(m_);
            done_ = true;
            return false;
        }
        inFlight_ = true;
        return true;
    }

    bool wait(uint32_t timeoutMs) override {
        std::unique_lock<std::mutex> lock(m_);
        return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return done_; });
    }

    void cancel() override {
        if (inFlight()) libusb_cancel_transfer(t_);
    }
    uint32_t transferred() const override {
        std::lock_guard<std::mutex> lock(m_);
        return actual_;
    }
    bool completed() const override {
        std::lock_guard<std::mutex> lock(m_);
        return done_ && ok_;
    }

private:
    bool inFlight() const { return inFlight_.load(); }

    static void LIBUSB_CALL callback(libusb_transfer* t) {
        auto* self = static_cast<LibusbTransfer*>(t->user_data);
        {
            std::lock_guard<std::mutex> lock(self->m_);
            self->actual_ = static_cast<uint32_t>(t->actual_length);
            self->ok_ = t->status == LIBUSB_TRANSFER_COMPLETED;
            self->done_ = true;
            self->inFlight_ = false;
        }
        self->cv_.notify_all();
    }

    libusb_device_handle* handle_;
    unsigned char endpoint_;
    uint8_t* buffer_;
    uint32_t capacity_;
    libusb_transfer* t_;
    mutable std::mutex m_;
    std::condition_variable cv_;
    bool done_ = true;
    bool ok_ = false;
    uint32_t actual_ = 0;
    std::atomic<bool> inFlight_{false};
};

class LibusbDevice : public UsbDevice {
public:
    explicit LibusbDevice(libusb_device_handle* h) : handle_(h) {}
    ~LibusbDevice() override {
        if (claimed_) libusb_release_interface(handle_, 0);
        libusb_close(handle_);
    }

    bool claim() override {
        if (libusb_claim_interface(handle_, 0) != 0) return false;
        claimed_ = true;
        libusb_set_interface_alt_setting(handle_, 0, 0);
        libusb_config_descriptor* cfg = nullptr;
        if (libusb_get_active_config_descriptor(libusb_get_device(handle_), &cfg) != 0 || !cfg) return false;
        bool found = false;
        if (cfg->bNumInterfaces > 0 && cfg->interface[0].num_altsetting > 0) {
            const libusb_interface_descriptor& alt = cfg->interface[0].altsetting[0];
            for (int i = 0; i < alt.bNumEndpoints; ++i) {
                const libusb_endpoint_descriptor& ep = alt.endpoint[i];
                if ((ep.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK) != LIBUSB_TRANSFER_TYPE_BULK) continue;
                if (ep.bEndpointAddress & LIBUSB_ENDPOINT_IN) inEp_ = ep.bEndpointAddress;
                else outEp_ = ep.bEndpointAddress;
            }
            found = inEp_ != 0 && outEp_ != 0;
        }
        libusb_free_config_descriptor(cfg);
        return found;
    }

    std::unique_ptr<UsbTransfer> makeTransfer(UsbDirection dir, uint8_t* buffer, uint32_t capacity) override {
        return std::make_unique<LibusbTransfer>(handle_, dir == UsbDirection::Out ? outEp_ : inEp_, buffer, capacity);
    }

    bool vendorReset() override {
        const uint8_t type = uint8_t(LIBUSB_REQUEST_TYPE_VENDOR) | uint8_t(LIBUSB_RECIPIENT_DEVICE) | uint8_t(LIBUSB_ENDPOINT_OUT);
        // The instrument drops off the bus while answering, so an I/O error
        // here still means the reset was taken.
        libusb_control_transfer(handle_, type, kVendorResetRequest, 0, 0, nullptr, 0, kControlTimeoutMs);
        return true;
    }

private:
    libusb_device_handle* handle_;
    bool claimed_ = false;
    unsigned char inEp_ = 0, outEp_ = 0;
};

class LibusbBus : public UsbBus {
public:
    LibusbBus() {
        if (libusb_init(&ctx_) != 0) ctx_ = nullptr;
    }
    ~LibusbBus() override {
        stop_ = true;
        if (events_.joinable()) events_.join();
        if (ctx_) libusb_exit(ctx_);
    }

    std::vector<UsbDeviceInfo> enumerate() override {
        std::vector<UsbDeviceInfo> out;
        if (!ctx_) return out;
        libusb_device** list = nullptr;
        const ssize_t n = libusb_get_device_list(ctx_, &list);
        if (n < 0) return out;
        for (ssize_t i = 0; i < n; ++i) {
            libusb_device_descriptor desc{};
            if (libusb_get_device_descriptor(list[i], &desc) != 0 || desc.idVendor != kInstrumentVendorId) continue;
            libusb_device_handle* h = nullptr;
            if (const int rc = libusb_open(list[i], &h); rc != 0) {
                if (rc == LIBUSB_ERROR_ACCESS) noteNoAccess(list[i]);
                continue;
            }
            UsbDeviceInfo info;
            info.bus = this;
            info.id = locationId(list[i]);
            info.vendorId = desc.idVendor;
            info.productId = desc.idProduct;
            unsigned char text[256];
            if (desc.iProduct && libusb_get_string_descriptor_ascii(h, desc.iProduct, text, sizeof text) > 0)
                info.product = reinterpret_cast<char*>(text);
            if (desc.iSerialNumber && libusb_get_string_descriptor_ascii(h, desc.iSerialNumber, text, sizeof text) > 0)
                info.serialNumber = reinterpret_cast<char*>(text);
            libusb_close(h);
            out.push_back(std::move(info));
        }
        libusb_free_device_list(list, 1);
        return out;
    }

    std::unique_ptr<UsbDevice> open(const UsbDeviceInfo& info) override {
        if (!ctx_) return nullptr;
        libusb_device** list = nullptr;
        const ssize_t n = libusb_get_device_list(ctx_, &list);
        if (n < 0) return nullptr;
        libusb_device_handle* h = nullptr;
        for (ssize_t i = 0; i < n && !h; ++i) {
            if (locationId(list[i]) != info.id) continue;
            if (libusb_open(list[i], &h) != 0) h = nullptr;
        }
        libusb_free_device_list(list, 1);
        if (!h) return nullptr;
        startEvents();
        return std::make_unique<LibusbDevice>(h);
    }

private:
    // A present instrument that cannot be opened is not silently absent:
    // the log says why, once per place on the bus.
    void noteNoAccess(libusb_device* d) {
        const unsigned bus = libusb_get_bus_number(d), address = libusb_get_device_address(d);
        std::lock_guard<std::mutex> lock(m_);
        if (!noAccessLogged_.insert(bus << 8 | address).second) return;
        logError("Error: %s instrument on USB bus %03u device %03u cannot be opened: permission denied; install "
                 "udev/60-zr-instruments.rules and join the plugdev group\n",
                 __func__, bus, address);
    }

    // Asynchronous completions need someone to pump libusb's events.
    void startEvents() {
        std::lock_guard<std::mutex> lock(m_);
        if (events_.joinable()) return;
        events_ = std::thread([this] {
            while (!stop_) {
                timeval tv{0, static_cast<suseconds_t>(kEventPollMs * 1000)};
                libusb_handle_events_timeout_completed(ctx_, &tv, nullptr);
            }
        });
    }

    libusb_context* ctx_ = nullptr;
    std::mutex m_;
    std::set<unsigned> noAccessLogged_;
    std::thread events_;
    std::atomic<bool> stop_{false};
};

}  // namespace

UsbBus& hostUsbBus() {
    static LibusbBus bus;
    return bus;
}

}  // namespace zr
