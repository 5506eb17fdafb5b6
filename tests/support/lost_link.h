#pragma once
// The promise every mode makes about a lost link: the reader hears
// zrConnectionLostErr within 4 s, and the close after it is prompt too.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "zr_api.h"
#include "zr_sim.h"

namespace zr::test {

// Detaches the simulated instrument after a moment, from another thread.
inline void pullCableSoon(int serial) {
    std::thread([serial] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        zrSimDetach(serial);
    }).detach();
}

// read() returns a status; it is called until it fails (ten calls at most).
template <class Read>
void expectPromptLoss(int& handle, Read read) {
    using Clock = std::chrono::steady_clock;
    auto t = Clock::now();
    ZrStatus s = zrNoError;
    for (int i = 0; i < 10 && s >= zrNoError; ++i) s = read();
    EXPECT_EQ(s, zrConnectionLostErr);
    EXPECT_LT(Clock::now() - t, std::chrono::seconds(4));
    t = Clock::now();
    EXPECT_EQ(zrCloseDevice(handle), zrNoError);
    handle = -1;
    EXPECT_LT(Clock::now() - t, std::chrono::seconds(4));
}

}  // namespace zr::test
