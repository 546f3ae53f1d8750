// Coded slice NAL units: the header, or its first two elements.
#include <algorithm>
#include <cstdint>
#include <new>

#include "h264d/slice_header.h"
#include "h264d/syntax_reader.h"
#include "heap_area.h"

namespace {

// How much of a unit is de-encapsulated at first, in bytes: enough for nearly every header.
constexpr unsigned int kFirstBytes = 256;
// By how much more each time a header runs on.
constexpr unsigned int kGrowth = 8;

// The beginning of a slice's payload in a work area of its own, extended as its reader runs on. What it cannot get
// memory for it reports by std::bad_alloc.
class SlicePayload final : public PartialPayload {
public:
    // Bytes of the work area that holds a unit of this length whole.
    static unsigned int full_size(int buffer_len) { return limit(buffer_len) + kSpareBytes; }

    explicit SlicePayload(int buffer_len) : limit_(limit(buffer_len)) {
        // With byte traces on, the sizes that are reported are those of the whole unit.
        allocate(h264::is_emitted(h264::kByteTraceLevel) ? limit_ : std::min(limit_, kFirstBytes));
    }

    unsigned char* area() { return area_.get(); }

    // Takes the unit from its header byte on and de-encapsulates its beginning. The length of that, or -1.
    int start(const unsigned char* unit, unsigned int unit_len) {
        unit_ = unit;
        unit_len_ = unit_len;
        return deencapsulate();
    }

    bool extend(bitbuffer_t& bits) override {
        if (taken_ == unit_len_) return false;
        allocate(static_cast<unsigned int>(std::min<std::uint64_t>(std::uint64_t{capacity_} * kGrowth, limit_)));
        const int length = deencapsulate();
        bits.bit_buffer = area_.get();
        bits.num_bits = static_cast<unsigned int>(bits_in(length));
        return true;
    }

private:
    static constexpr unsigned int kSpareBytes = 32;

    static unsigned int limit(int buffer_len) { return static_cast<unsigned int>(std::max(buffer_len, 0)); }

    void allocate(unsigned int capacity) {
        capacity_ = capacity;
        area_ = h264::allocate_area(std::size_t{capacity} + kSpareBytes);
        if (area_ == nullptr) throw std::bad_alloc();
    }
    // The payload of the first bytes of a unit is the beginning of the unit's payload.
    int deencapsulate() {
        taken_ = std::min(unit_len_, capacity_);
        return SODB_deencapsulation_from_NAL(unit_, taken_, area_.get(), capacity_ + kSpareBytes);
    }

    unsigned int limit_;         // bytes of the caller's buffer
    unsigned int capacity_ = 0;  // bytes of the unit that the area can take
    h264::HeapArea area_;
    const unsigned char* unit_ = nullptr;
    unsigned int unit_len_ = 0;
    unsigned int taken_ = 0;  // bytes of the unit that are in the area
};

}  // namespace

int parse_slice_header_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps, const pps_t* pps,
                           slice_header_t* pSh) try {
    if (buffer == nullptr || pSh == nullptr) {
        LOG(3, "buffer:%p or slice header:%p are NULL. This should not happen!", static_cast<const void*>(buffer),
            static_cast<void*>(pSh));
        return 0;
    }
    SlicePayload payload(buffer_len);
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
} catch (const std::bad_alloc&) {
    LOG(3, "Failed to allocate memory for nal_sodb_buffer. Size requested:%d.",
        static_cast<int>(SlicePayload::full_size(buffer_len)));
    return 0;
}

int parse_slice_type_only_nal(const unsigned char* buffer, int buffer_len, const sps_t* sps, slice_header_t* pSh) try {
    if (buffer == nullptr || pSh == nullptr) {
        LOG(3, "buffer:%p or slice header:%p are NULL. This should not happen.", static_cast<const void*>(buffer),
            static_cast<void*>(pSh));
        return 0;
    }
    SlicePayload payload(buffer_len);
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
} catch (const std::bad_alloc&) {
    LOG(3, "Failed to allocate memory for nal_sodb_buffer. Size requested:%d.",
        static_cast<int>(SlicePayload::full_size(buffer_len)));
    return 0;
}
