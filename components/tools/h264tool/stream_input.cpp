#include "stream_input.h"

namespace h264tool {

StreamInput::StreamInput(const std::string& path, const AnnexBReader::KeptBytes& kept_bytes)
    : file_(path),
      progress_(file_.size()),
      output_(progress_),
      reader_([this](unsigned char* area, std::size_t capacity) { return read(area, capacity); }, kept_bytes) {
    file_.expect_byte_stream();
}

void StreamInput::finish() {
    output_.flush();
    progress_.hide();
}

std::size_t StreamInput::read(unsigned char* area, std::size_t capacity) {
    const std::size_t count = file_.read(area, capacity);
    progress_.advance(count);
    return count;
}

}  // namespace h264tool
