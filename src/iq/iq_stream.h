#pragma once
// What every streaming engine shares: the sample queue, the data event that
// each store sets, the running flag and the sticky flags a delivery
// reports, and zrGetIQ's loop over them. An engine only has to fill the
// queue from its own threads.
#include <atomic>
#include <memory>

#include "iq/iq_interface.h"
#include "iq/iq_sample_queue.h"
#include "platform/threads.h"

namespace zr {

class IQStreamingEngine : public IQInterface {
public:
    // Sizes the queue for the plan's rate in the device's storage. Throws
    // std::bad_alloc.
    IQStreamingEngine(ZrDevice& device, const IQSettings& settings, const IQPlan& plan, IQSampleQueue::Format format);

    // Waits until the stream holds the request's samples, the engine stops
    // or the link is lost.
    ZrStatus GetIQ(IQRequest& request) override;
    // Stops deliveries: a caller waiting in GetIQ returns with what it has,
    // and no new one enters; returns once none is inside.
    void drain() override;
    bool busy() const override { return true; }

    IQSampleQueue& queue() { return queue_; }
    // Blocks (of any engine thread) that found no room and were dropped.
    uint64_t droppedBlocks() const { return droppedBlocks_.load(std::memory_order_relaxed); }

protected:
    // Called by the engine's threads.
    void stored() { dataEvent_.set(); }
    void noteOverflow() { overflowSeen_.store(true, std::memory_order_relaxed); }
    void noteLoss() { lossSeen_.store(true, std::memory_order_relaxed); }
    void noteDropped() { droppedBlocks_.fetch_add(1, std::memory_order_relaxed); }
    // First step of every destructor: no waiter stays behind.
    void stopDeliveries();
    bool running() const { return running_.load(std::memory_order_acquire); }

    ZrDevice* device_;
    DeviceInterface* transport_;

private:
    IQSampleQueue queue_;
    Event dataEvent_;
    std::atomic<bool> running_{true};
    std::atomic<int> callers_{0};
    std::atomic<bool> overflowSeen_{false};
    std::atomic<bool> lossSeen_{false};
    std::atomic<uint64_t> droppedBlocks_{0};
};

}  // namespace zr
