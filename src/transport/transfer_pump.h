#pragma once
// The one loop that moves an engine's command lists to the instrument and
// its replies back. Engines push whole lists, each with a tag; the pump
// sends their 2048-byte pages, always posting the read for a page's replies
// before the page itself, keeps several reads in flight, retires write slots
// as their replies arrive, and hands every reply to the engine's sink in
// order, split by ticket into data blocks and status blocks.
//
// A failed or short transfer is a lost link: the replies after a short one
// cannot be placed, so the transport's sticky status turns to
// zrConnectionLostErr. From then on the pump sends nothing: it cancels what
// is in flight and answers every reply still owed, and every list pushed
// later, with no data at once, so every ticket completes and no caller
// waits for replies that will never come.
//
// The loop runs either on a thread of its own (streaming engines, queued
// sweeps) or on the caller's thread until everything pushed is done
// (acquisitions that happen inside a call). Nothing is allocated after
// construction.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "platform/threads.h"
#include "transport/command_list.h"
#include "transport/device_interface.h"

namespace zr {

class TransferSink {
public:
    virtual ~TransferSink() = default;
    // `count` data replies of the ticket `tag`, contiguous at `blocks`
    // (8192 bytes each); null when the read that carried them failed.
    virtual void onData(int tag, const uint8_t* blocks, int count) = 0;
    // The ticket's first status reply; null when its read failed.
    virtual void onStatus(int tag, const uint8_t* block) = 0;
    // Every reply of the ticket has arrived.
    virtual void onTicketDone(int tag) {}
};

struct PumpLimits {
    int maxReads = 10;          // reads in flight
    int maxPages = DeviceInterface::kSlotCount;  // pages written and not yet answered
    int maxReadReplies = 128;   // replies per read (1 MiB)
    int readTimeoutMs = 2000;
};

class TransferPump {
public:
    static constexpr int kReplyBytes = 8192;

    // Room for `ticketCapacity` pushed lists of at most `pageCapacity`
    // pages in all. Throws std::bad_alloc.
    TransferPump(DeviceInterface& transport, TransferSink& sink, PumpLimits limits, size_t ticketCapacity,
                 size_t pageCapacity);
    ~TransferPump();  // stops the thread, if any, after the transfers in flight
    TransferPump(const TransferPump&) = delete;
    TransferPump& operator=(const TransferPump&) = delete;

    // Starts the pump's own thread.
    void start(const char* threadName, ThreadPriority priority);
    // Queues every page of `list` under one ticket. False, with nothing
    // queued, when the ticket or page room is used up.
    bool push(int tag, const CommandList& list);
    // Runs the loop on the calling thread until everything pushed has been
    // answered. Only for a pump without a thread of its own.
    void runUntilIdle();
    // Ends a pump with a thread of its own: `last` goes out after what is
    // queued, everything in flight is answered (or failed, on a lost link),
    // and the thread ends. The sink must push nothing more.
    void finish(const CommandList& last);

private:
    struct Page {
        const uint8_t* data;
        int32_t replies;
    };
    struct Ticket {
        int32_t tag = 0;
        int32_t dataLeft = 0;
        int32_t statusLeft = 0;
        bool statusSeen = false;
    };

    void threadBody();
    // One turn of the loop; false when there is nothing to do.
    bool step();
    void finishOneRead();
    void deliver(const uint8_t* data, int replies);
    void writeTaken();
    void retireOne();
    void retireAll();
    bool queueEmpty();
    // After a loss: everything in flight cancelled, every ticket answered.
    void failEverything();

    DeviceInterface& transport_;
    TransferSink& sink_;
    const PumpLimits limits_;

    std::mutex lock_;  // the page queue and the ticket queue
    std::vector<Page> pages_;
    size_t pageHead_ = 0, pageCount_ = 0;
    std::vector<Ticket> tickets_;
    size_t ticketHead_ = 0, ticketCount_ = 0;

    // Loop state: owned by whichever thread runs the loop.
    std::vector<Page> taken_;
    int takenCount_ = 0;
    int pending_ = 0;   // replies of taken or written pages that no read covers yet
    int reads_ = 0;     // reads in flight
    int written_ = 0;   // pages written and not yet retired
    int readBegin_ = 0, readFinish_ = 0, pageWrite_ = 0, pageRetire_ = 0;
    int owed_[DeviceInterface::kSlotCount] = {};
    bool lost_ = false;

    std::atomic<bool> running_{true};
    std::atomic<bool> finishing_{false};
    Event wake_;
    NamedThread thread_;
};

// Replies a list asks for: its data words and its status words.
int listDataReplies(const CommandList& list);
int listStatusReplies(const CommandList& list);

}  // namespace zr
