// Coded slice NAL units: the header, or its first two elements.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "h264d/slice_header.h"
#include "h264d/syntax_reader.h"
#include "heap_area.h"

namespace {

// How much of a unit is de-encapsulated at first, in bytes: enough for nearly every header.
constexpr unsigned int kFirstBytes = 256;
// How many times as much when a header runs on.
constexpr unsigned int kGrowth = 8;
// What the area has room for behind a unit, in bytes.
constexpr unsigned int kSpareBytes = 32;
// Bytes of the payload that a message shows, however many there are.
constexpr unsigned int kShownBytes = 6;

// The beginning of a slice's payload, extended as its reader runs on, in an area that has room for all of it.
class SlicePayload final : public PartialPayload {
public:
    explicit SlicePayload(int buffer_len)
        : size_(static_cast<unsigned int>(std::max(buffer_len, 0)) + kSpareBytes),
          area_(h264::allocate_raw_area(size_)) {}

    // Null when there is no memory.
    unsigned char* area() { return area_.get(); }
    // In bytes.
    int area_size() const { return static_cast<int>(size_); }

    // Takes the unit, which is part of the buffer, from its header byte on and de-encapsulates its beginning. The
    // length of that, or -1.
    int start(const unsigned char* unit, unsigned int unit_len) {
        unit_ = unit;
        unit_len_ = unit_len;
        std::memset(area_.get(), 0, kShownBytes);
        // With byte traces on, the sizes that are reported are those of the whole unit.
        return deencapsulate(h264::is_emitted(h264::kByteTraceLevel) ? unit_len : kFirstBytes);
    }

    bool extend(bitbuffer_t& bits) override {
        if (taken_ == unit_len_) return false;
        bits.num_bits = static_cast<unsigned int>(bits_in(deencapsulate(std::uint64_t{taken_} * kGrowth)));
        return true;
    }

private:
    // The payload of the first bytes of a unit is the beginning of the unit's payload.
    int deencapsulate(std::uint64_t bytes) {
        taken_ = static_cast<unsigned int>(std::min<std::uint64_t>(bytes, unit_len_));
        return SODB_deencapsulation_from_NAL(unit_, taken_, area_.get(), size_);
    }

    unsigned int size_;
    h264::HeapArea area_;
    const unsigned char* unit_ = nullptr;
    unsigned int unit_len_ = 0;
    unsigned int taken_ = 0;  // bytes of the unit that are in the area
};

}  // namespace

int parse_slice_header_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps, const pps_t* pps,
                           slice_header_t* pSh) {
    if (buffer == nullptr || pSh == nullptr) {
        LOG(3, "buffer:%p or slice header:%p are NULL. This should not happen!", static_cast<const void*>(buffer),
            static_cast<void*>(pSh));
        return 0;
    }
    SlicePayload payload(buffer_len);
    if (payload.area() == nullptr) {
        LOG(3, "Failed to allocate memory for nal_sodb_buffer. Size requested:%d.", payload.area_size());
        return 0;
    }
    int offset = 0;
    if (!_GetNALTypeOffset(buffer, buffer_len, &offset)) {
        LOG(3, "Failed to parse slice header nal! buffer:%p.", static_cast<const void*>(buffer));
        return 0;
    }
    const int sodb_len = payload.start(buffer + offset, static_cast<unsigned int>(buffer_len - offset));
    const unsigned char* const sodb = payload.area();
    const BYTE header = offset < buffer_len ? buffer[offset] : 0;
    const BYTE NALType = header & 31;
    const BYTE nal_ref_idc = header >> 5 & 3;
    LOG(6, "NALTypeOffset:%d, 0x%02X, NALType:%d, nal_ref_idc:%d.", offset, header, NALType, nal_ref_idc);
    LOG(7, "SODB buffer: [0]0x%02X [1]0x%02X [2]0x%02X [3]0x%02X [4]0x%02X [5]0x%02X.", sodb[0], sodb[1], sodb[2],
        sodb[3], sodb[4], sodb[5]);
    if (sodb_len < 1) {
        LOG(3, "Failed to parse slice header nal! buffer:%p Length=%d.", static_cast<const void*>(buffer), sodb_len);
        return 0;
    }
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, payload.area(), bits_in(sodb_len), __func__, kModuleFile, __LINE__);
    LOG(7, "SODB deencapsulation was successful NAL unit length:%d, SODB length:%d.", buffer_len, sodb_len);
    if (_parse_slice_header(&bits, sps, pps, NALType, nal_ref_idc, pSh, &payload) != 0) {
        LOG(3, "Failed to parse slice header NAL!");
        return 0;
    }
    return 1;
}

int parse_slice_type_only_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps, slice_header_t* pSh) {
    if (buffer == nullptr || pSh == nullptr) {
        LOG(3, "buffer:%p or slice header:%p are NULL. This should not happen.", static_cast<const void*>(buffer),
            static_cast<void*>(pSh));
        return 0;
    }
    SlicePayload payload(buffer_len);
    if (payload.area() == nullptr) {
        LOG(3, "Failed to allocate memory for nal_sodb_buffer. Size requested:%d.", payload.area_size());
        return 0;
    }
    int offset = 0;
    if (!_GetNALTypeOffset(buffer, buffer_len, &offset)) {
        LOG(3, "Failed to parse slice type nal! buffer:%p.", static_cast<const void*>(buffer));
        return 0;
    }
    const int sodb_len = payload.start(buffer + offset, static_cast<unsigned int>(buffer_len - offset));
    const unsigned char* const sodb = payload.area();
    LOG(7, " NALType:%d, SODB buffer:[0]0x%02X [1]0x%02X [2]0x%02X [3]0x%02X [4]0x%02X [5]0x%02X.",
        offset < buffer_len ? buffer[offset] & 31 : 0, sodb[0], sodb[1], sodb[2], sodb[3], sodb[4], sodb[5]);
    if (sodb_len < 1) {
        // The text is the header's. This is meant.
        LOG(3, "Failed to parse slice header nal! buffer:%p Length=%d.", static_cast<const void*>(buffer), sodb_len);
        return 0;
    }
    bitbuffer_t bits;
    __DoInitBitBuffer(&bits, payload.area(), bits_in(sodb_len), __func__, kModuleFile, __LINE__);
    LOG(7, "SODB deencapsulation was successful NAL unit length:%d, SODB length:%d.", buffer_len, sodb_len);
    if (_parse_slice_type(&bits, sps, pSh, &payload) != 0) {
        LOG(3, "Failed to parse slice header NAL!");
        return 0;
    }
    return 1;
}
