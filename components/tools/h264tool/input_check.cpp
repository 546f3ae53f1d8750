#include "input_check.h"

#include <algorithm>
#include <string_view>

namespace h264tool {
namespace {

constexpr unsigned char kSyncByte = 0x47;
constexpr const char* kQuestion = "is this an MP4 or transport stream?";

[[noreturn]] void refuse(const std::string& name, const std::string& reason) {
    throw NoByteStream(name + ": " + reason + " convert with ffmpeg -i FILE -c copy -bsf:v h264_mp4toannexb OUT.h264");
}

}  // namespace

void InputCheck::look(std::span<const unsigned char> bytes, const std::string& name) {
    if (bytes.empty() && !found_) {
        if (only_zeros_)
            throw NoByteStream(name + ": no NAL unit found: the input is empty or holds nothing but zero bytes");
        refuse(name, std::string("no start code found: ") + kQuestion);
    }
    for (const unsigned char byte : bytes) {
        if (done_) return;
        if (position_ < beginning_.size()) beginning_[static_cast<std::size_t>(position_)] = byte;
        ++position_;
        only_zeros_ = only_zeros_ && byte == 0;
        found_ = found_ || (zeros_ == 2 && byte == 1);
        zeros_ = byte == 0 ? std::min(zeros_ + 1, 2U) : 0;
        // Other formats may hold start codes by chance, but not where they begin.
        if (position_ == beginning_.size()) look_at_beginning(name);
        done_ = found_ && (position_ <= 4 || position_ >= beginning_.size());
        if (position_ == kLimit && !found_)
            refuse(name, std::string("no start code found in the first megabyte: ") + kQuestion);
    }
}

void InputCheck::look_at_beginning(const std::string& name) const {
    const std::string_view text(reinterpret_cast<const char*>(beginning_.data()), beginning_.size());
    if (text.substr(4, 4) == "ftyp") refuse(name, "this is an MP4 or QuickTime file, no Annex B byte stream:");
    if (text.substr(0, 4) == "\x1A\x45\xDF\xA3") refuse(name, "this is a Matroska file, no Annex B byte stream:");
    if (beginning_[0] == kSyncByte && beginning_[kPacket] == kSyncByte && beginning_[2 * kPacket] == kSyncByte)
        refuse(name, "this is a transport stream, no Annex B byte stream:");
}

}  // namespace h264tool
