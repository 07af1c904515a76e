#include "host/tiff_directory.h"

namespace smartCrop::host {

bool first_directory_value(const uint8_t* data, size_t size, uint16_t tag, uint32_t& value) {
    if (size < 8) return false;
    const bool little = data[0] == 'I' && data[1] == 'I';
    if (!little && !(data[0] == 'M' && data[1] == 'M')) return false;
    auto u16 = [&](size_t at) -> uint32_t {
        return little ? data[at] | data[at + 1] << 8 : data[at] << 8 | data[at + 1];
    };
    auto u32 = [&](size_t at) -> uint32_t {
        return little ? u16(at) | u16(at + 2) << 16 : u16(at) << 16 | u16(at + 2);
    };
    if (u16(2) != 42) return false;
    const size_t directory = u32(4);
    if (directory + 2 > size) return false;
    const size_t count = u16(directory);
    for (size_t i = 0; i < count; ++i) {
        const size_t entry = directory + 2 + 12 * i;
        if (entry + 12 > size) return false;
        if (u16(entry) != tag || u32(entry + 4) != 1) continue;
        const uint32_t type = u16(entry + 2);
        if (type == 3) {  // SHORT, left-justified in the value field
            value = u16(entry + 8);
            return true;
        }
        if (type == 4) {  // LONG
            value = u32(entry + 8);
            return true;
        }
        return false;
    }
    return false;
}

}  // namespace smartCrop::host
