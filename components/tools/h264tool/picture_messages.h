// The pictures of a stream, with the SEI messages that stand before each.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "parameter_sets.h"
#include "picture_order.h"
#include "run_result.h"
#include "sei_records.h"
#include "slice_identity.h"

namespace h264tool {

// Reads a stream; what is derived from it takes what it wants. SEI units wait for their picture, by whose parameter
// sets they are read.
class PictureMessages {
public:
    // How much of a unit add() wants to see.
    static AnnexBReader::KeptBytes kept_bytes();

    virtual ~PictureMessages() = default;
    PictureMessages(const PictureMessages&) = delete;
    PictureMessages& operator=(const PictureMessages&) = delete;

    // Takes the next unit of the stream.
    void add(const NalUnit& unit);
    // The stream has ended.
    void finish();

    const PictureOrder& order() const { return order_; }
    const RunResult& result() const { return result_; }
    // What is wrong with the first units that are damaged: "unit 3 at offset 54: ..."
    const std::vector<std::string>& complaints() const { return complaints_; }

protected:
    PictureMessages() = default;

    const ParameterSets& parameter_sets() const { return sets_; }

    // A sequence or picture parameter set has been read; it is the last one of parameter_sets().
    virtual void add_set(const NalUnit&) {}
    // A picture, the last one of order(), begins with this slice; its messages come next.
    virtual void begin_picture(const NalUnit& unit, const SliceIdentity& identity) = 0;
    // A slice of the picture, the first one included.
    virtual void add_slice(const SliceIdentity&) {}
    virtual bool is_wanted(const SeiMessage&) const { return true; }
    // A message of the picture that has just begun.
    virtual void store(const SeiUnit& unit, const SeiMessage& message, const SeiRecord& record, const sps_t& sps) = 0;

private:
    std::string examine(const NalUnit& unit);
    std::string examine_slice(const NalUnit& unit);
    void start_picture(const NalUnit& unit, const SliceIdentity& identity);
    std::string read_messages(const NalUnit& unit, const sps_t& sps);
    std::vector<NalUnit> take_pending();
    void count(const NalUnit& unit, const std::string& damage);

    ParameterSets sets_{0};
    RunResult result_;
    std::vector<std::string> complaints_;
    PictureBoundaries boundaries_;
    PictureOrder order_;
    std::vector<NalUnit> pending_;  // SEI units of the picture that comes next
    std::size_t pending_bytes_ = 0;
};

}  // namespace h264tool
