#include "stream_edits.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <vector>

namespace h264tool {
namespace {

constexpr std::uint64_t kToTheEnd = std::numeric_limits<std::uint64_t>::max();

class Copier {
public:
    Copier(InputFile& input, OutputFile& output, Progress* progress)
        : input_(input), output_(output), progress_(progress), chunk_(std::size_t{256} * 1024) {
        input_.rewind();
    }

    std::uint64_t position() const { return position_; }

    // Moves on by count bytes or to the input's end, and copies what lies between.
    void copy(std::uint64_t count) {
        move(count, [this](std::span<const unsigned char> bytes) { output_.write(bytes); });
    }
    void skip(std::uint64_t count) {
        move(count, [](std::span<const unsigned char>) {});
    }

private:
    template <class Visit>
    void move(std::uint64_t count, const Visit& visit) {
        while (count > 0) {
            if (next_ == filled_ && !fill()) return;
            const std::size_t size = std::min<std::uint64_t>(count, filled_ - next_);
            visit({chunk_.data() + next_, size});
            next_ += size;
            position_ += size;
            count -= size;
        }
    }

    bool fill() {
        next_ = 0;
        filled_ = input_.read(chunk_.data(), chunk_.size());
        if (progress_ != nullptr) progress_->advance(filled_);
        return filled_ > 0;
    }

    InputFile& input_;
    OutputFile& output_;
    Progress* progress_;
    std::vector<unsigned char> chunk_;
    std::size_t next_ = 0;
    std::size_t filled_ = 0;
    std::uint64_t position_ = 0;
};

}  // namespace

void copy_with_edits(InputFile& input, OutputFile& output, const EditSource& next_edit, Progress* progress) {
    Copier copier(input, output, progress);
    for (Edit edit; next_edit(edit);) {
        if (edit.offset < copier.position()) throw std::logic_error("edits overlap");
        copier.copy(edit.offset - copier.position());
        const std::uint64_t behind = edit.offset + edit.removed;
        output.write(edit.inserted);
        copier.skip(edit.removed);
        if (copier.position() != behind)
            throw std::runtime_error(input.name() + " is shorter than it was when it was read first");
    }
    copier.copy(kToTheEnd);
}

}  // namespace h264tool
