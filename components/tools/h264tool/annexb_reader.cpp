#include "annexb_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace h264tool {

AnnexBReader::KeptBytes AnnexBReader::all_of_every_unit() {
    KeptBytes kept_bytes;
    kept_bytes.fill(kWhole);
    return kept_bytes;
}

AnnexBReader::AnnexBReader(Source source, const KeptBytes& kept_bytes, std::size_t chunk_size)
    : source_(std::move(source)), kept_by_type_(kept_bytes), chunk_(std::max<std::size_t>(chunk_size, 1)) {}

bool AnnexBReader::next(NalUnit& unit) {
    while (fill()) {
        if (!find_start_code()) continue;
        const unsigned start_code_length = zeros_ >= 3 ? 4 : 3;
        const std::uint64_t zeros_before = zeros_ - (start_code_length - 1);
        const bool complete = in_unit_;
        if (complete) {
            unit_.trailing_zero_8bits = zeros_before;
            std::swap(unit, unit_);
        } else {
            add_prefix_zeros(zeros_before);
        }
        begin_unit(start_code_length);
        if (complete) return true;
    }
    if (!in_unit_) {
        if (!started_) add_prefix_zeros(std::exchange(zeros_, 0));
        return false;
    }
    unit_.trailing_zero_8bits = std::exchange(zeros_, 0);
    in_unit_ = false;
    std::swap(unit, unit_);
    return true;
}

// Makes sure that the chunk holds a byte that is not taken yet; false at the end of the stream.
bool AnnexBReader::fill() {
    if (next_ < filled_) return true;
    if (at_end_) return false;
    chunk_offset_ += filled_;
    next_ = 0;
    filled_ = source_(chunk_.data(), chunk_.size());
    at_end_ = filled_ == 0;
    return !at_end_;
}

// Takes the chunk's bytes up to the next start code, which it passes over and whose zero bytes stay counted in zeros_.
// False: the whole chunk was taken and no start code found.
bool AnnexBReader::find_start_code() {
    const unsigned char* const begin = chunk_.data() + next_;
    const unsigned char* const end = chunk_.data() + filled_;
    for (const unsigned char* from = begin; from != end;) {
        const void* found = std::memchr(from, 1, static_cast<std::size_t>(end - from));
        if (found == nullptr) break;
        const auto* one = static_cast<const unsigned char*>(found);
        const auto distance = one - begin;
        const bool start_code = distance >= 2   ? (one[-1] | one[-2]) == 0
                                : distance == 1 ? one[-1] == 0 && zeros_ >= 1
                                                : zeros_ >= 2;
        if (start_code) {
            take(begin, one);
            next_ = static_cast<std::size_t>(one + 1 - chunk_.data());
            return true;
        }
        from = one + 1;
    }
    take(begin, end);
    next_ = filled_;
    return false;
}

// Adds bytes to the unit, but holds back the zeros at their end, which may belong to the next start code.
void AnnexBReader::take(const unsigned char* begin, const unsigned char* end) {
    const unsigned char* content_end = end;
    while (content_end != begin && content_end[-1] == 0) --content_end;
    const auto zeros = static_cast<std::uint64_t>(end - content_end);
    if (content_end == begin) {
        zeros_ += zeros;
        return;
    }
    append(begin, content_end);
    zeros_ = zeros;
}

// Adds the zeros held back and the bytes to the unit.
void AnnexBReader::append(const unsigned char* begin, const unsigned char* end) {
    if (!in_unit_) {
        add_prefix_zeros(zeros_);
        const unsigned char* stray = stray_bytes_ > 0 ? begin : std::find_if(begin, end, [](auto b) { return b != 0; });
        leading_zeros_ += static_cast<std::uint64_t>(stray - begin);
        stray_bytes_ += static_cast<std::uint64_t>(end - stray);
        return;
    }
    const auto size = static_cast<std::uint64_t>(end - begin);
    if (unit_.length == unit_.start_code_length) {
        const unsigned char header = zeros_ > 0 ? 0 : *begin;
        const std::size_t kept = std::max<std::size_t>(kept_by_type_[header & 0x1FU], 1);
        kept_bytes_ = std::min(kept, kWhole - unit_.start_code_length) + unit_.start_code_length;
    }
    unit_.length += zeros_ + size;
    std::vector<unsigned char>& bytes = unit_.bytes;
    bytes.insert(bytes.end(), std::min<std::uint64_t>(zeros_, kept_bytes_ - bytes.size()), 0);
    bytes.insert(bytes.end(), begin, begin + std::min<std::uint64_t>(size, kept_bytes_ - bytes.size()));
}

// Accounts for zeros before the first start code.
void AnnexBReader::add_prefix_zeros(std::uint64_t zeros) {
    (stray_bytes_ == 0 ? leading_zeros_ : stray_bytes_) += zeros;
}

// Starts a unit behind a start code that has just been passed over.
void AnnexBReader::begin_unit(unsigned start_code_length) {
    started_ = true;
    in_unit_ = true;
    zeros_ = 0;
    unit_.number = ++units_;
    unit_.offset = chunk_offset_ + next_ - start_code_length;
    unit_.length = start_code_length;
    unit_.start_code_length = start_code_length;
    unit_.trailing_zero_8bits = 0;
    unit_.bytes.assign(start_code_length, 0);
    unit_.bytes.back() = 1;
}

}  // namespace h264tool
