#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "support/fake_transport.h"
#include "support/temp_folder.h"

using namespace zr;
using zr::test::InstalledDevice;

TEST(StatusText, EveryKnownStatusHasItsTextAndOthersAreUnknown) {
    struct Row { int v; const char* t; };
    const Row rows[] = {
        {-1003, "Cal error"}, {-1002, "Meas error"}, {-1001, "Flash verify failed"},
        {-200, "Invalid calibration file version"}, {-101, "Invalid center frequency specified"},
        {-100, "Invalid IQ decimation specified"}, {-54, "JESD error"}, {-53, "Network error"},
        {-52, "Failed to load core FX3 program"}, {-51, "Max devices connected"},
        {-50, "Failed to boot FPGA"}, {-49, "Device unable to boot"}, {-16, "GPS not locked"},
        {-14, "Invalid API version"}, {-13, "Allocation error, failed to allocate memory"},
        {-11, "Data synchronization error"}, {-10, "Invalid sweep queue position specified"},
        {-8, "Invalid configuration error"}, {-6, "Device connection lost"},
        {-5, "Invalid parameter specified"}, {-4, "Required pointer parameter was null"},
        {-3, "Invalid device specified"}, {-2, "Device not found"}, {0, "No error"},
        {1, "Setting clamped"}, {2, "ADC overflow, Input out of range"},
        {3, "Uncal data, potential USB data loss"}, {4, "Temperature drift warning, device uncal"},
        {5, "Span limited by preselector"}, {6, "High temperature detected, set low power state"},
        {7, "Exceeded CPU resources"}, {8, "API is out of date"},
        {9, "Invalid cal data, potentially corrupted"},
    };
    for (const auto& r : rows) EXPECT_STREQ(zrGetErrorString(r.v), r.t) << r.v;
    for (int v : {-1, -7, -9, -12, -15, 10, -1004, 1 << 30, -(1 << 30)})
        EXPECT_STREQ(zrGetErrorString(v), "Unknown Error\n") << v;
}

TEST(StatusText, InitStatusTextsAndUnknownWithoutLineFeed) {
    const char* texts[] = {"No error", "Device already open", "Device not found",
                           "Invalid device specified", "Null ptr", "Device not connected",
                           "Transfer error", "File IO error"};
    for (int i = 0; i < 8; ++i) EXPECT_STREQ(zrConfigUSBGetErrorString(static_cast<ZrInitStatus>(i)), texts[i]);
    EXPECT_STREQ(zrConfigUSBGetErrorString(static_cast<ZrInitStatus>(8)), "Unknown Error");
    EXPECT_STREQ(zrConfigUSBGetErrorString(static_cast<ZrInitStatus>(-1)), "Unknown Error");
}

TEST(Frame, VersionAndProductNeedNoDevice) {
    EXPECT_STREQ(zrGetAPIVersion(), "2.2.0");
    EXPECT_STREQ(zrGetProductID(), "");
}

TEST(Frame, HandlesAreCheckedAsUnsignedAgainstTheTable) {
    for (int h : {-1, 9, 1 << 30, -(1 << 30), 3}) {
        EXPECT_EQ(zrGetDeviceInfo(h, nullptr, nullptr), zrInvalidDeviceErr) << h;
        EXPECT_EQ(zrSetCustomFreq(h, 1.0e9), zrInvalidDeviceErr) << h;
    }
    InstalledDevice d(zrDeviceTypeMesa2);
    ASSERT_EQ(d.handle(), 0);
    EXPECT_EQ(zrGetDeviceInfo(0, nullptr, nullptr), zrNoError);
    EXPECT_EQ(zrGetDeviceInfo(1, nullptr, nullptr), zrInvalidDeviceErr);
}

TEST(Frame, ClosedHandleIsInvalidAndItsNumberIsReused) {
    int first;
    {
        InstalledDevice a(zrDeviceTypeMesa2, 11111111);
        InstalledDevice b(zrDeviceTypeMesa2, 22222222);
        EXPECT_EQ(a.handle(), 0);
        EXPECT_EQ(b.handle(), 1);
        first = a.handle();
    }
    EXPECT_EQ(zrGetDeviceInfo(first, nullptr, nullptr), zrInvalidDeviceErr);
    InstalledDevice c(zrDeviceTypeRidge2, 33333333);
    EXPECT_EQ(c.handle(), 0);
    int serial = 0;
    EXPECT_EQ(zrGetDeviceInfo(c.handle(), nullptr, &serial), zrNoError);
    EXPECT_EQ(serial, 33333333);
}

TEST(Frame, TableHoldsNineDevices) {
    std::vector<std::unique_ptr<InstalledDevice>> all;
    for (int i = 0; i < 9; ++i) all.push_back(std::make_unique<InstalledDevice>(zrDeviceTypeMesa2, 10000000 + i));
    for (int i = 0; i < 9; ++i) EXPECT_EQ(all[i]->handle(), i);
    EXPECT_EQ(firstFreeHandle(), -1);
    all[4].reset();
    EXPECT_EQ(firstFreeHandle(), 4);
}

TEST(Frame, ReservedEntryPointsOnlyCheckTheHandle) {
    EXPECT_EQ(zrSetCustomRegister(9, 1, 2), zrInvalidDeviceErr);
    EXPECT_EQ(zrGetFPGABuildInfo(9), zrInvalidDeviceErr);
    EXPECT_EQ(zrIsSecondaryBuildPresent(-1, nullptr), zrInvalidDeviceErr);
    EXPECT_EQ(zrReplaceSecondaryBuild(9, "x"), zrInvalidDeviceErr);
    // Switching looks at nothing, not even the handle.
    EXPECT_EQ(zrSwitchFPGABuild(9), zrNoError);
    EXPECT_EQ(zrSwitchFPGABuild(-1, 5, nullptr), zrNoError);

    InstalledDevice d(zrDeviceTypeMesa1);
    EXPECT_EQ(zrSetCustomFreq(d.handle(), 1.0e9), zrNoError);
    EXPECT_EQ(zrSetCustomRegister(d.handle(), 0u, 0u), zrNoError);
    EXPECT_EQ(zrGetFPGABuildInfo(d.handle(), nullptr), zrNoError);
    EXPECT_EQ(zrIsSecondaryBuildPresent(d.handle()), zrNoError);
    EXPECT_EQ(zrReplaceSecondaryBuild(d.handle()), zrNoError);
    // Nothing reached the instrument.
    EXPECT_EQ(d.device().transport->status, zrNoError);
}

TEST(Frame, CustomDataChecksInOrderThenHasNoEngine) {
    char buffer[16];
    EXPECT_EQ(zrStartCustomData(9, 0, nullptr), zrInvalidDeviceErr);
    EXPECT_EQ(zrFinishCustomData(-1), zrInvalidDeviceErr);
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    EXPECT_EQ(zrStartCustomData(h, 0, nullptr), zrNullPtrErr);  // pointers before ranges
    EXPECT_EQ(zrStartCustomData(h, 0, buffer), zrInvalidParameterErr);
    EXPECT_EQ(zrStartCustomData(h, 128, buffer), zrInvalidParameterErr);
    EXPECT_EQ(zrStartCustomData(h, 1, buffer), zrInvalidConfigurationErr);
    EXPECT_EQ(zrStartCustomData(h, 127, buffer), zrInvalidConfigurationErr);
    EXPECT_EQ(zrFinishCustomData(h), zrInvalidConfigurationErr);
}

namespace {

// A transport that throws from inside the library, the way a bug or a
// failing allocation deep in a plan would.
class ThrowingTransport : public zr::test::OfflineTransport {
public:
    enum class Kind { Runtime, Allocation, Unknown };
    explicit ThrowingTransport(Kind k) : OfflineTransport(zrDeviceTypeMesa2, 12345678), kind_(k) {}
    void BeginWrite(int, const void*) override {
        switch (kind_) {
            case Kind::Runtime: throw std::runtime_error("transport fault");
            case Kind::Allocation: throw std::bad_alloc();
            case Kind::Unknown: throw 42;
        }
    }

private:
    Kind kind_;
};

}  // namespace

TEST(Frame, AnExceptionInsideAnExportBecomesAStatusAndTheDeviceStaysUsable) {
    zr::test::TempFolder folder;
    ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
    using K = ThrowingTransport::Kind;
    const struct { K kind; ZrStatus status; bool logged; } rows[] = {
        {K::Runtime, zrMeasErr, true}, {K::Allocation, zrAllocationErr, false}, {K::Unknown, zrMeasErr, true}};
    for (const auto& r : rows) {
        InstalledDevice d(std::make_unique<ThrowingTransport>(r.kind));
        // The configuration wakes the instrument first, so the throw comes
        // from the first write of the wake list.
        EXPECT_EQ(zrConfigure(d.handle(), zrModeSweeping), r.status);
        ZrMode mode = zrModeSweeping;
        EXPECT_EQ(zrGetCurrentMode(d.handle(), &mode), zrNoError);
        EXPECT_EQ(mode, zrModeIdle);
        EXPECT_EQ(d.device().engine, nullptr);
        EXPECT_EQ(zrSetPowerState(d.handle(), zrPowerStateOn), r.status);
        EXPECT_EQ(zrSetSweepCenterSpan(d.handle(), 1e9, 1e8), zrNoError);
    }
    std::ifstream log(folder.path() / "mesa_error_log.txt");
    const std::string text((std::istreambuf_iterator<char>(log)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("zrConfigure"), std::string::npos);
    EXPECT_NE(text.find("transport fault"), std::string::npos);
    EXPECT_NE(text.find("unknown type"), std::string::npos);
    EXPECT_EQ(text.find("bad_alloc"), std::string::npos);
}
