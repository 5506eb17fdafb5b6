#include "transport/transfer_pump.h"

#include <algorithm>
#include <numeric>

namespace zr {

namespace {
constexpr int kSlots = DeviceInterface::kSlotCount;
// Reads are sized in whole groups of four replies, the unit in which plans
// pad their lists.
constexpr int kReadGranule = 4;
}  // namespace

int listDataReplies(const CommandList& list) {
    const auto& d = list.dataWordCounts();
    return int(std::accumulate(d.begin(), d.end(), uint64_t(0)));
}

int listStatusReplies(const CommandList& list) {
    const auto& s = list.statusWordCounts();
    return int(std::accumulate(s.begin(), s.end(), uint64_t(0)));
}

TransferPump::TransferPump(DeviceInterface& transport, TransferSink& sink, PumpLimits limits, size_t ticketCapacity,
                           size_t pageCapacity)
    : transport_(transport), sink_(sink), limits_(limits) {
    pages_.resize(std::max<size_t>(pageCapacity, 1));
    tickets_.resize(std::max<size_t>(ticketCapacity, 1));
    taken_.resize(size_t(std::clamp(limits_.maxPages, 1, kSlots)));
}

TransferPump::~TransferPump() {
    running_ = false;
    wake_.set();
    if (thread_.joinable()) thread_.join();
}

void TransferPump::start(const char* threadName, ThreadPriority priority) {
    thread_ = NamedThread(threadName, priority, [this] { threadBody(); });
}

bool TransferPump::push(int tag, const CommandList& list) {
    const int data = listDataReplies(list);
    const int status = listStatusReplies(list);
    {
        std::lock_guard g(lock_);
        if (pageCount_ + list.blockCount() > pages_.size()) return false;
        if (data + status > 0) {
            if (ticketCount_ == tickets_.size()) return false;
            tickets_[(ticketHead_ + ticketCount_) % tickets_.size()] = Ticket{tag, data, status, false};
            ++ticketCount_;
        }
        const auto& d = list.dataWordCounts();
        const auto& s = list.statusWordCounts();
        for (size_t b = 0; b < list.blockCount(); ++b) {
            pages_[(pageHead_ + pageCount_) % pages_.size()] =
                Page{list.data() + b * CommandList::kBlockSize, int32_t(d[b] + s[b])};
            ++pageCount_;
        }
    }
    wake_.set();
    return true;
}

bool TransferPump::queueEmpty() {
    std::lock_guard g(lock_);
    return pageCount_ == 0;
}

void TransferPump::runUntilIdle() {
    while (step()) {
    }
}

void TransferPump::finish(const CommandList& last) {
    if (!thread_.joinable()) return;
    push(-1, last);
    finishing_ = true;
    wake_.set();
    thread_.join();
}

void TransferPump::threadBody() {
    while (running_) {
        if (step()) continue;
        if (finishing_) return;  // everything pushed is answered
        wake_.wait();
    }
    // Stopping: nothing in flight is wanted any more, and a silent
    // instrument must not hold the stop for a time-out per read.
    if (reads_ > 0) transport_.Abort();
    while (reads_ > 0) {
        transport_.FinishRead(readFinish_);
        readFinish_ = (readFinish_ + 1) % kSlots;
        --reads_;
    }
    retireAll();
}

bool TransferPump::step() {
    if (lost_ || transport_.statusNow() != zrNoError) {
        failEverything();
        return false;
    }
    if (reads_ == 0 && pending_ == 0 && takenCount_ == 0 && queueEmpty()) {
        retireAll();
        readBegin_ = readFinish_ = pageWrite_ = pageRetire_ = 0;
        return false;
    }

    // Take pages while the slots allow and less than a full read is
    // pending, so that reads go out at their full size; what a page brings
    // beyond it waits for the next read.
    bool ranDry;
    {
        std::lock_guard g(lock_);
        while (written_ + takenCount_ < limits_.maxPages && pageCount_ > 0 && pending_ < limits_.maxReadReplies) {
            taken_[size_t(takenCount_++)] = pages_[pageHead_];
            pending_ += pages_[pageHead_].replies;
            pageHead_ = (pageHead_ + 1) % pages_.size();
            --pageCount_;
        }
        ranDry = pageCount_ == 0;
    }

    if (reads_ < limits_.maxReads && pending_ > 0) {
        int n = std::min(pending_, limits_.maxReadReplies) & ~(kReadGranule - 1);
        // Less than a granule pends and nothing more can be taken (the take
        // above takes while anything is there and a slot is free): read the
        // remainder as it is rather than wait for replies that no read
        // would ever ask for.
        if (n == 0 && reads_ == 0) n = pending_;
        if (n > 0) {
            // The read goes out before the commands that cause its data.
            transport_.BeginRead(readBegin_, n * kReplyBytes, limits_.readTimeoutMs);
            readBegin_ = (readBegin_ + 1) % kSlots;
            ++reads_;
            pending_ -= n;
            writeTaken();
        }
    }
    if (pending_ == 0 && takenCount_ > 0) writeTaken();  // pages that ask for no replies

    // Pages that ask for nothing free their slots without a read.
    if (reads_ == 0)
        while (written_ > 0 && owed_[pageRetire_] == 0) retireOne();

    const bool mustWait = reads_ >= limits_.maxReads ||
                          (written_ + takenCount_ >= limits_.maxPages && reads_ >= 1) ||
                          (reads_ >= 1 && ranDry && queueEmpty());
    if (mustWait) finishOneRead();
    return true;
}

void TransferPump::finishOneRead() {
    const TransferResult r = transport_.FinishRead(readFinish_);
    transport_.noteResult(r);
    if (!r.good() && !lost_) {
        lost_ = true;
        transport_.Abort();
    }
    readFinish_ = (readFinish_ + 1) % kSlots;
    --reads_;
    int m = int(r.requested / kReplyBytes);
    deliver(r.good() ? r.data : nullptr, m);
    while (written_ > 0) {
        if (owed_[pageRetire_] > 0) {
            if (m == 0) break;
            const int pay = std::min(owed_[pageRetire_], m);
            owed_[pageRetire_] -= pay;
            m -= pay;
            if (owed_[pageRetire_] > 0) break;
        }
        retireOne();
    }
}

void TransferPump::deliver(const uint8_t* p, int m) {
    while (m > 0) {
        Ticket* t = nullptr;
        {
            std::lock_guard g(lock_);
            if (ticketCount_ > 0) t = &tickets_[ticketHead_];
        }
        if (!t) return;  // replies nobody asked for
        int k;
        if (t->dataLeft > 0) {
            k = std::min(m, int(t->dataLeft));
            sink_.onData(t->tag, p, k);
            t->dataLeft -= k;
        } else {
            k = std::min(m, int(t->statusLeft));
            if (!t->statusSeen) {
                t->statusSeen = true;
                sink_.onStatus(t->tag, p);
            }
            t->statusLeft -= k;
        }
        m -= k;
        if (p) p += size_t(k) * kReplyBytes;
        if (t->dataLeft == 0 && t->statusLeft == 0) {
            const int tag = t->tag;
            {
                std::lock_guard g(lock_);
                ticketHead_ = (ticketHead_ + 1) % tickets_.size();
                --ticketCount_;
            }
            sink_.onTicketDone(tag);
        }
    }
}

void TransferPump::writeTaken() {
    for (int i = 0; i < takenCount_; ++i) {
        transport_.BeginWrite(pageWrite_, taken_[size_t(i)].data);
        owed_[pageWrite_] = taken_[size_t(i)].replies;
        pageWrite_ = (pageWrite_ + 1) % kSlots;
        ++written_;
    }
    takenCount_ = 0;
}

void TransferPump::failEverything() {
    if (!lost_) {
        lost_ = true;
        transport_.Abort();
    }
    while (reads_ > 0) finishOneRead();
    retireAll();
    takenCount_ = 0;
    pending_ = 0;
    readBegin_ = readFinish_ = pageWrite_ = pageRetire_ = 0;
    size_t tickets;
    {
        std::lock_guard g(lock_);
        pageCount_ = 0;
        tickets = ticketCount_;
    }
    for (; tickets > 0; --tickets) {
        int owed;
        {
            std::lock_guard g(lock_);
            const Ticket& t = tickets_[ticketHead_];
            owed = t.dataLeft + t.statusLeft;
        }
        deliver(nullptr, owed);
    }
}

void TransferPump::retireOne() {
    transport_.noteResult(transport_.FinishWrite(pageRetire_));
    pageRetire_ = (pageRetire_ + 1) % kSlots;
    --written_;
}

void TransferPump::retireAll() {
    while (written_ > 0) retireOne();
}

}  // namespace zr
