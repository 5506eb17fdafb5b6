#pragma once
// What the harnesses share: patch lists laid over a sound base (so the
// fuzzer spends its time on values rather than on re-growing whole
// images), and a status block the simulator renders.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace zr::fuzz {

// Patches: a 32-bit offset (taken modulo the base's size), a length byte,
// then that many bytes; a patch running past the end is cut there.
inline void applyPatches(uint8_t* base, size_t size, const uint8_t* data, size_t n) {
    while (n >= 5) {
        uint32_t offset;
        std::memcpy(&offset, data, 4);
        size_t len = data[4];
        data += 5;
        n -= 5;
        len = std::min(len, n);
        const size_t at = offset % size;
        std::memcpy(base + at, data, std::min(len, size - at));
        data += len;
        n -= len;
    }
}

// One patch record, for seeds.
inline void appendPatch(std::vector<uint8_t>& out, uint32_t offset, const void* bytes, uint8_t len) {
    const size_t at = out.size();
    out.resize(at + 5 + len);
    std::memcpy(out.data() + at, &offset, 4);
    out[at + 4] = len;
    std::memcpy(out.data() + at + 5, bytes, len);
}

}  // namespace zr::fuzz
