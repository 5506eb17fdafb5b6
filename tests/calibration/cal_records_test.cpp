// Calibration images: layouts, the neutral image, inquiries, propagation,
// checksum and the two file formats.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "support/cal_images.h"
#include "support/temp_folder.h"
#include "zr_correction_def.h"

using namespace zr;
using namespace zr::test;

namespace {

const uint8_t* bytes(const void* p) { return static_cast<const uint8_t*>(p); }

template <class T>
T readLE(const void* image, size_t offset) {
    T v;
    std::memcpy(&v, bytes(image) + offset, sizeof v);
    return v;
}

bool allBytes(const void* p, size_t n, uint8_t value) {
    for (size_t i = 0; i < n; ++i)
        if (bytes(p)[i] != value) return false;
    return true;
}

template <class T>
bool allEqual(const T* p, size_t count, T value) {
    for (size_t i = 0; i < count; ++i)
        if (p[i] != value) return false;
    return true;
}

}  // namespace

// Fields written through the structs land where a flash dump puts them.
TEST(CalLayout, StructFieldsSitAtTheirFlashOffsets) {
    auto m = std::make_unique<MesaCalData>();
    std::memset(m.get(), 0, sizeof *m);
    m->calDate = 0x11223344;
    m->gain[2][3][100] = 1.5f;
    m->ifFlatness[10][524][27] = -2.0f;
    m->preselect[10][10][31] = 7.0f;
    m->timebaseDate[1] = 0x0102030405060708ull;
    EXPECT_EQ(readLE<uint32_t>(m.get(), 0x40000), 0x11223344u);
    EXPECT_EQ(readLE<float>(m.get(), 0x4057C + 4 * ((2 * 7 + 3) * 525 + 100)), 1.5f);
    EXPECT_EQ(readLE<float>(m.get(), 0x2418D0 - 4), -2.0f);  // last entry before loConfig
    EXPECT_EQ(readLE<float>(m.get(), 0x24C61C - 4), 7.0f);   // last entry of the tables
    EXPECT_EQ(readLE<uint64_t>(m.get(), 0x400B8 + 8), 0x0102030405060708ull);

    auto r = std::make_unique<RidgeCalData>();
    std::memset(r.get(), 0, sizeof *r);
    r->temperature[0] = 12.5f;
    r->band6Gain[3][80] = 0xCAFEu;
    r->checksum = 0xA5A5A5A5u;
    r->loftQ[454] = -7;
    EXPECT_EQ(readLE<float>(r.get(), 0x402A0), 12.5f);
    EXPECT_EQ(readLE<uint32_t>(r.get(), 0x4926A4 + 4 * (3 * 81 + 80)), 0xCAFEu);
    EXPECT_EQ(readLE<uint32_t>(r.get(), 0x7FFFF8), 0xA5A5A5A5u);
    EXPECT_EQ(readLE<int16_t>(r.get(), 6232 - 2), -7);
    EXPECT_EQ(sizeof(MesaCalData), 0x400000u);
    EXPECT_EQ(sizeof(RidgeCalData), 0x800000u);
}

TEST(CalDummy, MesaNeutralImageFieldByField) {
    auto m = std::make_unique<MesaCalData>();
    std::memset(m.get(), 0x5A, sizeof *m);  // anything the builder misses shows
    zrCalBuildDummyCorrectionsMesa(m.get());
    EXPECT_TRUE(allBytes(m.get(), 0x40000, 0xFF));  // head untouched by corrections
    EXPECT_EQ(m->calDate, 0xFFFFFFFFu);
    EXPECT_EQ(m->calVersion, 0xFFFFFFFFu);
    for (int i = 0; i < 11; ++i) {
        EXPECT_EQ(m->temperature[i], static_cast<float>(-44.0 + 11.0 * i));
        EXPECT_EQ(m->timebaseTempOffset[i], 0);
    }
    EXPECT_TRUE(allBytes(m->timebaseValue, sizeof m->timebaseValue, 0xFF));
    EXPECT_TRUE(allBytes(m->timebaseDate, sizeof m->timebaseDate, 0xFF));
    EXPECT_TRUE(allBytes(m->gainCode, sizeof m->gainCode, 0));
    const float lf[14] = {0.4f, 0.31f, 0.25f, 0.2f, 0.17f, 0.14f, 0.13f, 0.12f, 0.11f, 0.1f, 0.08f, 0.06f, 0.04f, 0.02f};
    for (int n = 0; n < 40; ++n) EXPECT_EQ(m->lowFreqCorrection[n], n < 14 ? lf[n] : 0.0f) << n;
    EXPECT_TRUE(allEqual<float>(&m->gain[0][0][0], 11 * 7 * 525, 0.0f));
    EXPECT_TRUE(allEqual<float>(&m->ifRatio[0][0][0], 11 * 525 * 28, 1.0f));
    EXPECT_TRUE(allEqual<float>(&m->ifPhase[0][0][0], 11 * 525 * 28, 0.0f));
    EXPECT_TRUE(allEqual<float>(&m->ifFlatness[0][0][0], 11 * 525 * 28, 1.0f));
    EXPECT_TRUE(allEqual<float>(&m->preselect[0][0][0], 11 * 11 * 32, 0.0f));
    EXPECT_TRUE(allBytes(m->loConfig, sizeof m->loConfig, 3));
    EXPECT_TRUE(allBytes(m->pad0, 4, 0xFF));
    EXPECT_TRUE(allBytes(m->reservedTail, sizeof m->reservedTail, 0xFF));

    EXPECT_FALSE(zrCalDoesCorrectionsExist(bytes(m.get())));
    EXPECT_FALSE(zrCalDoesFlashHeaderExist(m.get()));
    EXPECT_FALSE(zrCalDoesPretestDataExist(bytes(m.get())));
}

TEST(CalDummy, RidgeNeutralImageFieldByField) {
    auto r = std::make_unique<RidgeCalData>();
    std::memset(r.get(), 0x5A, sizeof *r);
    zrCalBuildDummyCorrectionsRidge(r.get());
    EXPECT_EQ(r->loGateBiasDefault, -1.5f);
    for (int i = 0; i < 11; ++i) {
        EXPECT_EQ(r->temperature[i], static_cast<float>(-44.0 + 11.0 * i));
        EXPECT_EQ(r->loGateBias[i], -1.5f);
        EXPECT_EQ(r->timebaseTempOffset[i], 0);
    }
    EXPECT_TRUE(allEqual<float>(r->vva, 461, 25.0f));
    EXPECT_TRUE(allEqual<uint32_t>(r->band5Gain, 435, 0u));
    EXPECT_TRUE(allEqual<uint32_t>(&r->band6Balance[0][0], 11 * 81, 0u));
    EXPECT_TRUE(allEqual<uint32_t>(&r->band6Gain[0][0], 11 * 81, 0u));
    EXPECT_TRUE(allEqual<float>(&r->gain[0][0][0], 11 * 7 * 1130, 0.0f));
    EXPECT_TRUE(allEqual<float>(&r->ifRatio[0][0][0], 11 * 1130 * 28, 1.0f));
    EXPECT_TRUE(allEqual<float>(&r->ifFlatness[0][0][0], 11 * 1130 * 28, 1.0f));
    EXPECT_TRUE(allEqual<float>(&r->ifPhase[0][0][0], 11 * 1130 * 28, 0.0f));
    EXPECT_TRUE(allBytes(r->gainCode, sizeof r->gainCode, 0));
    EXPECT_EQ(r->lowFreqCorrection[0], 0.4f);
    EXPECT_EQ(r->lowFreqCorrection[13], 0.02f);
    EXPECT_EQ(r->lowFreqCorrection[14], 0.0f);
    EXPECT_TRUE(allBytes(r->cbbCore, 3 * 513, 0xFF));
    EXPECT_TRUE(allBytes(r->loftI, sizeof r->loftI, 0xFF));
    EXPECT_EQ(r->calVersion, 0xFFFFFFFFu);
    EXPECT_EQ(r->checksum, 0xFFFFFFFFu);
    EXPECT_TRUE(allBytes(r->timebaseValue, sizeof r->timebaseValue, 0xFF));

    EXPECT_FALSE(zrCalDoesCorrectionsExist(bytes(r.get())));
    EXPECT_TRUE(zrCalDoesLOFTDataExist(r.get()));  // set by loGateBiasDefault alone
    EXPECT_FALSE(zrCalDoesCBBDataExist(r.get()));
    EXPECT_FALSE(zrCalDoesOptIFDataExist(r.get()));
    EXPECT_FALSE(zrCalDoesPretestDataExist(bytes(r.get())));
}

TEST(CalInquiry, HeadTablesAreSeenByTheirFirstWrittenByte) {
    auto r = std::make_unique<RidgeCalData>();
    std::memset(r.get(), 0xFF, sizeof *r);
    EXPECT_FALSE(zrCalDoesLOFTDataExist(r.get()));
    r->loftI[0] = 0x7FFF;
    EXPECT_TRUE(zrCalDoesLOFTDataExist(r.get()));
    r->loftI[0] = -1;
    r->vva[1] = 3.0f;  // only the first vva word counts
    EXPECT_FALSE(zrCalDoesLOFTDataExist(r.get()));
    r->vva[0] = 3.0f;
    EXPECT_TRUE(zrCalDoesLOFTDataExist(r.get()));

    r->cbbBias[512] = 0xFE;  // last byte of the third table
    EXPECT_TRUE(zrCalDoesCBBDataExist(r.get()));

    r->ifOutBalance[0] = 5;
    EXPECT_FALSE(zrCalDoesOptIFDataExist(r.get()));  // both words are needed
    r->ifOutGain[0] = 6;
    EXPECT_TRUE(zrCalDoesOptIFDataExist(r.get()));

    auto m = std::make_unique<MesaCalData>();
    std::memset(m.get(), 0xFF, sizeof *m);
    m->flashHeader[1023] = 0xFE;
    EXPECT_TRUE(zrCalDoesFlashHeaderExist(m.get()));
    EXPECT_FALSE(zrCalDoesPretestDataExist(bytes(m.get())));
    reinterpret_cast<uint8_t*>(m.get())[2047] = 0;
    EXPECT_TRUE(zrCalDoesPretestDataExist(bytes(m.get())));
    reinterpret_cast<uint8_t*>(m.get())[2047] = 0xFF;
    reinterpret_cast<uint8_t*>(m.get())[2048] = 0;  // beyond the pretest range
    EXPECT_FALSE(zrCalDoesPretestDataExist(bytes(m.get())));

    m->calVersion = 3;
    EXPECT_EQ(zrCalGetCalVersion(bytes(m.get())), 3u);
    m->calDate = 0;
    EXPECT_TRUE(zrCalDoesCorrectionsExist(bytes(m.get())));

    EXPECT_FALSE(zrCalDoesCorrectionsExist(nullptr));
    EXPECT_FALSE(zrCalDoesPretestDataExist(nullptr));
    EXPECT_FALSE(zrCalDoesLOFTDataExist(nullptr));
}

TEST(CalInquiry, TemperatureOfIndexAndSizesInUse) {
    EXPECT_EQ(zrCalGetTempFromIndex(-1), -44.0);
    EXPECT_EQ(zrCalGetTempFromIndex(0), -44.0);
    EXPECT_EQ(zrCalGetTempFromIndex(7), 33.0);
    EXPECT_EQ(zrCalGetTempFromIndex(10), 66.0);
    EXPECT_EQ(zrCalGetTempFromIndex(99), 66.0);
    EXPECT_EQ(zrCalGetCalSizeUsed(true), 4813082);
    EXPECT_EQ(zrCalGetCalSizeUsed(false), 2410016);
    // Mesa's size in use is where its tables end.
    EXPECT_EQ(static_cast<size_t>(zrCalGetCalSizeUsed(false)), offsetof(MesaCalData, reservedTail) + 4);
}

TEST(CalInquiry, PreselectFilterTable) {
    double start = -1, stop = -1, step = -1;
    zrCalGetPreselectFilterInfo(10, &start, &stop, &step);
    EXPECT_EQ(start, 4.01e8);
    EXPECT_EQ(stop, 6.444e8);
    EXPECT_DOUBLE_EQ(step * 31, 6.444e8 - 4.01e8);
    zrCalGetPreselectFilterInfo(0, &start, &stop, nullptr);
    EXPECT_EQ(start, 1e5);
    EXPECT_EQ(stop, 5e7);
    zrCalGetPreselectFilterInfo(11, &start, &stop, &step);  // untouched
    EXPECT_EQ(start, 1e5);
    double prevStart = 0;
    for (int f = 0; f <= 10; ++f) {
        zrCalGetPreselectFilterInfo(f, &start, &stop, &step);
        EXPECT_GT(start, prevStart) << f;
        EXPECT_GT(stop, start) << f;
        prevStart = start;
    }
}

TEST(CalDate, LaterOfCalDateAndTimebaseHistory) {
    auto m = std::make_unique<MesaCalData>();
    buildDummyCorrections(*m);
    EXPECT_EQ(zrCalGetCorrectionCalDateMesa(m.get()), 0xFFFFFFFFu);  // empty history, no corrections

    m->calDate = 1000;
    EXPECT_EQ(zrCalGetCorrectionCalDateMesa(m.get()), 1000u);
    m->timebaseValue[0] = 10;
    m->timebaseDate[0] = 900;
    m->timebaseValue[1] = 11;
    m->timebaseDate[1] = 1500;
    EXPECT_EQ(zrCalGetCorrectionCalDateMesa(m.get()), 1500u);
    EXPECT_EQ(zrCalGetCorrectionCalDate(bytes(m.get()), false), 1500u);

    // An entry after the terminator does not count.
    m->timebaseValue[3] = 12;
    m->timebaseDate[3] = 5000;
    EXPECT_EQ(zrCalGetCorrectionCalDateMesa(m.get()), 1500u);

    // Compared on 64 bits, answered in 32.
    m->timebaseDate[1] = 0x100000005ull;
    EXPECT_EQ(zrCalGetCorrectionCalDateMesa(m.get()), 5u);

    // A full history has no terminator and is read to its end.
    auto r = std::make_unique<RidgeCalData>();
    buildDummyCorrections(*r);
    r->calDate = 100;
    for (int i = 0; i < 64; ++i) {
        r->timebaseValue[i] = static_cast<uint16_t>(i);
        r->timebaseDate[i] = 10 + i;
    }
    r->timebaseDate[63] = 7777;
    EXPECT_EQ(zrCalGetCorrectionCalDateRidge(r.get()), 7777u);
    EXPECT_EQ(zrCalGetCorrectionCalDate(bytes(r.get()), true), 7777u);
    // Reading the Ridge bytes as Mesa looks in the wrong place.
    EXPECT_NE(zrCalGetCorrectionCalDate(bytes(r.get()), false), 7777u);
}

TEST(CalPropagate, CopiesOneTemperatureIntoAnother) {
    auto m = makeMesaImage();
    auto before = std::make_unique<MesaCalData>(*m);
    zrCalPropagateSingleTempCalMesa(m.get(), 3, 3);
    EXPECT_EQ(std::memcmp(m.get(), before.get(), sizeof *m), 0);
    zrCalPropagateSingleTempCalMesa(m.get(), 3, 11);
    zrCalPropagateSingleTempCalMesa(m.get(), -1, 3);
    EXPECT_EQ(std::memcmp(m.get(), before.get(), sizeof *m), 0);

    zrCalPropagateSingleTempCalMesa(m.get(), 3, 7);
    EXPECT_EQ(m->temperature[7], before->temperature[3] + 44.0f);
    EXPECT_EQ(std::memcmp(m->gain[7], before->gain[3], sizeof m->gain[0]), 0);
    EXPECT_EQ(std::memcmp(m->ifRatio[7], before->ifRatio[3], sizeof m->ifRatio[0]), 0);
    EXPECT_EQ(std::memcmp(m->ifPhase[7], before->ifPhase[3], sizeof m->ifPhase[0]), 0);
    EXPECT_EQ(std::memcmp(m->ifFlatness[7], before->ifFlatness[3], sizeof m->ifFlatness[0]), 0);
    EXPECT_EQ(std::memcmp(m->preselect[7], before->preselect[3], sizeof m->preselect[0]), 0);
    EXPECT_EQ(std::memcmp(m->loConfig[7], before->loConfig[3], sizeof m->loConfig[0]), 0);
    // Neighbouring rows and the per-slice tables stay.
    EXPECT_EQ(std::memcmp(m->gain[6], before->gain[6], sizeof m->gain[0]), 0);
    EXPECT_EQ(std::memcmp(m->gain[8], before->gain[8], sizeof m->gain[0]), 0);
    EXPECT_EQ(m->timebaseTempOffset[7], before->timebaseTempOffset[7]);
    EXPECT_EQ(m->temperature[8], before->temperature[8]);

    auto r = makeRidgeImage();
    auto rb = std::make_unique<RidgeCalData>(*r);
    zrCalPropagateSingleTempCalRidge(r.get(), 5, 0);
    EXPECT_EQ(r->temperature[0], rb->temperature[5] - 55.0f);
    EXPECT_EQ(r->loGateBias[0], rb->loGateBias[5]);
    EXPECT_EQ(std::memcmp(r->band6Balance[0], rb->band6Balance[5], sizeof r->band6Balance[0]), 0);
    EXPECT_EQ(std::memcmp(r->band6Gain[0], rb->band6Gain[5], sizeof r->band6Gain[0]), 0);
    EXPECT_EQ(std::memcmp(r->ifFlatness[0], rb->ifFlatness[5], sizeof r->ifFlatness[0]), 0);
    EXPECT_EQ(std::memcmp(r->band6Gain[1], rb->band6Gain[1], sizeof r->band6Gain[0]), 0);
}

TEST(CalChecksum, WordSumWithHistoryLeftOut) {
    auto r = std::make_unique<RidgeCalData>();
    std::memset(r.get(), 0xFF, sizeof *r);
    // 2^21 words of 0xFFFFFFFF sum to -2^21 modulo 2^32.
    EXPECT_EQ(ridgeChecksum(*r), 0xFFE00000u);
    reinterpret_cast<uint8_t*>(r.get())[4] = 0x01;  // word 1 becomes 0xFFFFFF01
    EXPECT_EQ(ridgeChecksum(*r), 0xFFE00000u - 0xFEu);
    // The history and the checksum word itself are counted as all ones.
    r->timebaseValue[0] = 0;
    r->timebaseDate[63] = 0;
    r->checksum = 0;
    EXPECT_EQ(ridgeChecksum(*r), 0xFFE00000u - 0xFEu);

    auto full = makeRidgeImage();
    EXPECT_EQ(ridgeChecksum(*full), referenceRidgeChecksum(*full));
    EXPECT_TRUE(ridgeChecksumValid(*full));
    full->timebaseValue[3] = 0x1234;  // a new history entry keeps the image sound
    full->timebaseDate[3] = 1800000000;
    EXPECT_TRUE(ridgeChecksumValid(*full));
    full->gain[4][2][700] += 0.5f;  // one changed table entry does not
    EXPECT_FALSE(ridgeChecksumValid(*full));
}

TEST(CalFile, ImageRoundTripsThroughTheCacheFile) {
    TempFolder dir;
    auto r = makeRidgeImage();
    const std::string path = dir.str() + "zr19000456.bin";
    ASSERT_TRUE(writeImageFile(path.c_str(), r.get(), sizeof *r));
    auto back = std::make_unique<RidgeCalData>();
    ASSERT_TRUE(zrCalCorrectionLoadFromFileRidge(path.c_str(), back.get()));
    EXPECT_EQ(std::memcmp(back.get(), r.get(), sizeof *r), 0);
    EXPECT_TRUE(ridgeChecksumValid(*back));

    // A Mesa image is half the size: a Mesa load of this file reads the
    // first 4 MiB, a Ridge load of a Mesa file fails.
    auto m = makeMesaImage();
    const std::string mpath = dir.str() + "zr18000123.bin";
    ASSERT_TRUE(writeImageFile(mpath.c_str(), m.get(), sizeof *m));
    auto mback = std::make_unique<MesaCalData>();
    ASSERT_TRUE(zrCalCorrectionLoadFromFileMesa(mpath.c_str(), mback.get()));
    EXPECT_EQ(std::memcmp(mback.get(), m.get(), sizeof *m), 0);
    EXPECT_FALSE(zrCalCorrectionLoadFromFileRidge(mpath.c_str(), back.get()));

    // A file written by hand in the flash byte order reads back as fields.
    {
        std::vector<uint8_t> raw(0x400000, 0xFF);
        const uint32_t date = 1234567890;
        std::memcpy(raw.data() + 0x40000, &date, 4);
        const float g = -3.25f;
        std::memcpy(raw.data() + 0x4057C, &g, 4);
        std::ofstream(mpath, std::ios::binary).write(reinterpret_cast<const char*>(raw.data()), raw.size());
    }
    ASSERT_TRUE(zrCalCorrectionLoadFromFileMesa(mpath.c_str(), mback.get()));
    EXPECT_EQ(mback->calDate, 1234567890u);
    EXPECT_EQ(mback->gain[0][0][0], -3.25f);
}

TEST(CalFile, LoadFailsForMissingShortOrUnreadableFiles) {
    TempFolder dir;
    auto m = std::make_unique<MesaCalData>();
    EXPECT_FALSE(zrCalCorrectionLoadFromFileMesa(nullptr, m.get()));
    EXPECT_FALSE(zrCalCorrectionLoadFromFileMesa((dir.str() + "absent.bin").c_str(), m.get()));
    EXPECT_FALSE(zrCalCorrectionLoadFromFileMesa(dir.str().c_str(), m.get()));  // a directory
    const std::string shortPath = dir.str() + "short.bin";
    {
        std::vector<char> raw(0x400000 - 1, 0);
        std::ofstream(shortPath, std::ios::binary).write(raw.data(), raw.size());
    }
    EXPECT_FALSE(zrCalCorrectionLoadFromFileMesa(shortPath.c_str(), m.get()));
}

TEST(CalFile, TimebaseCacheRecord) {
    uint8_t raw[64];
    encodeTimebaseCache({1700000123ull, 0x7A55}, raw);
    EXPECT_EQ(readLE<uint32_t>(raw, 0), 0x00677073u);
    EXPECT_EQ(readLE<uint32_t>(raw, 4), 1u);
    EXPECT_EQ(readLE<uint64_t>(raw, 8), 1700000123ull);
    EXPECT_EQ(readLE<uint16_t>(raw, 16), 0x7A55);
    EXPECT_TRUE(allBytes(raw + 18, 46, 0));

    TimebaseCacheRecord rec;
    ASSERT_TRUE(decodeTimebaseCache(raw, 64, rec));
    EXPECT_EQ(rec.date, 1700000123ull);
    EXPECT_EQ(rec.value, 0x7A55);
    EXPECT_FALSE(decodeTimebaseCache(raw, 63, rec));
    raw[4] = 2;  // version
    EXPECT_FALSE(decodeTimebaseCache(raw, 64, rec));
    raw[4] = 1;
    raw[0] ^= 1;  // magic
    EXPECT_FALSE(decodeTimebaseCache(raw, 64, rec));
}
