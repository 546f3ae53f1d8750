// A program that uses all of the library, as long as it is asked to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "h264.h"

namespace test {

using Bytes = std::vector<unsigned char>;

// The NAL units of a byte stream file, with their start codes.
std::vector<Bytes> read_units(const std::string& path);

// Reads, prints, rewrites and writes units, one after the other and then from the beginning again. Everything that it
// sees goes into a digest.
class Workload {
public:
    // seed: what is written differs with it.
    Workload(std::vector<Bytes> units, unsigned seed) : units_(std::move(units)), seed_(seed) {}

    // The next unit, and after it one unit of its own.
    void step();

    std::uint64_t digest() const { return digest_; }
    // Of the library, made until now.
    std::uint64_t calls() const { return calls_; }

private:
    void read(const Bytes& unit);
    void read_parameter_sets(const Bytes& unit, int type);
    void read_slice(const Bytes& unit, BYTE type, BYTE ref_idc);
    void read_sei(const Bytes& unit);
    void rewrite_sps(const Bytes& unit);
    void rewrite_pic_timing(const Bytes& unit, const sei_pic_timing_t& pic_timing);
    void write();
    void move_bits();

    void see(const void* data, std::size_t size);
    template <class Value>
    void see(const Value& value) {
        see(&value, sizeof value);
    }
    // Counts a call and sees its result.
    template <class Result>
    Result called(Result result) {
        ++calls_;
        see(result);
        return result;
    }

    std::vector<Bytes> units_;
    unsigned seed_;
    std::size_t next_ = 0;
    std::uint64_t rounds_ = 0;
    std::uint64_t calls_ = 0;
    std::uint64_t digest_ = 0xCBF29CE484222325;
    H264D_PARSE_CONTEXT context_{};
    sps_t sps_{};
    pps_t pps_{};
};

}  // namespace test
