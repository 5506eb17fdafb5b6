// Rules of the USB layer that need no bus: product names, serial strings,
// a transport without a device, and a machine without instruments.
#include <gtest/gtest.h>

#include "transport/device_interface_usb.h"

using namespace zr;

TEST(UsbNames, ClassifyAndSerialRules) {
    auto cls = [](const std::string& product) { return ClassifyUSB({nullptr, 0, kInstrumentVendorId, 6, product, "12345678"}); };
    ASSERT_TRUE(cls("Mesa2").has_value());
    EXPECT_TRUE(cls("Mesa2")->running);
    EXPECT_EQ(cls("Mesa2")->type, zrDeviceTypeMesa2);
    EXPECT_FALSE(cls("Ridge2 Boot")->running);
    EXPECT_EQ(cls("Ridge2 Boot")->type, zrDeviceTypeRidge2);
    EXPECT_EQ(cls("Mesa1")->type, zrDeviceTypeMesa1);
    EXPECT_FALSE(cls("Mesa3").has_value());      // networked models never list over USB
    EXPECT_FALSE(cls("Mesa2X").has_value());     // the whole name must match
    EXPECT_FALSE(cls("Mesa2 Boot ").has_value());
    EXPECT_EQ(parseSerial("00000042"), 42);
    EXPECT_EQ(parseSerial("1234567"), -1);
    EXPECT_EQ(parseSerial("123456789"), -1);
    EXPECT_EQ(parseSerial("1234567a"), -1);
}

TEST(UsbTransport, WithoutADeviceEveryOperationFailsQuietly) {
    DeviceInterfaceUSB t;
    t.connected = 1;
    EXPECT_EQ(t.GetDeviceType(), zrDeviceTypeMesa1);
    t.Close();  // only clears the flags
    EXPECT_EQ(t.connected, 0);
    EXPECT_EQ(t.deviceSerial, -1);
    EXPECT_EQ(t.status, zrNoError);
    EXPECT_FALSE(t.Reset());
    t.BeginRead(0, 8192, 10);
    EXPECT_EQ(t.FinishRead(0).failed, 1);
    EXPECT_EQ(t.status, zrConnectionLostErr);
}

TEST(UsbHost, EnumerationWithoutUsbFindsNothingAndNeverFails) {
    // CI machines and containers have no instrument (and often no USB at
    // all); the machine's bus must come back empty, not throw.
    for (const UsbDeviceInfo& info : hostUsbBus().enumerate()) EXPECT_EQ(info.vendorId, kInstrumentVendorId);
    EXPECT_NO_THROW(ListUSB());
}
