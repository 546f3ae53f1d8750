#include "payload_reader.h"

#include <algorithm>
#include <utility>

#include "h264.h"

namespace h264tool {

std::vector<unsigned char> payload_of(const NalUnit& unit, std::size_t max_bytes) {
    const unsigned char* const begin = unit.bytes.data() + unit.start_code_length;
    const std::size_t size = std::min(unit.bytes.size() - unit.start_code_length, max_bytes);
    // The library refuses less than three bytes, which hold no emulation prevention.
    if (size < 3) return {begin + std::min<std::size_t>(size, 1), begin + size};
    std::vector<unsigned char> payload(size);
    const int length = SODB_deencapsulation_from_NAL(begin, static_cast<unsigned int>(size), payload.data(),
                                                     static_cast<unsigned int>(size));
    payload.resize(static_cast<std::size_t>(std::max(length, 0)));
    return payload;
}

PayloadReader::PayloadReader(std::vector<unsigned char> payload, unsigned position)
    : payload_(std::move(payload)), ok_(!payload_.empty()) {
    if (!ok_) return;
    DoInitBitBuffer(&bits_, payload_.data(), static_cast<int>(payload_.size()) * NUM_BITS_IN_BYTE);
    ok_ = AdvanceBitOffset(&bits_, position) == 0;
}

std::uint64_t PayloadReader::u(unsigned count) {
    unsigned long long value = 0;
    if (count == 0 || !ok_) return 0;
    ok_ = count <= 64 && GetNextNBitsAsUint64(&bits_, count, &value) == 0;
    return ok_ ? value : 0;
}

std::uint64_t PayloadReader::ue() {
    unsigned long value = 0;
    if (!ok_) return 0;
    ok_ = GetUint32Golomb(&bits_, &value) == 0;
    return ok_ ? value : 0;
}

std::int64_t PayloadReader::se() {
    long value = 0;
    if (!ok_) return 0;
    ok_ = GetInt32Golomb(&bits_, &value) == 0;
    return ok_ ? value : 0;
}

}  // namespace h264tool
