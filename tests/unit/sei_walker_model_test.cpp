// The SEI walker against a plain description of what it does, over many made-up units.
#include <random>

#include "sei_check.h"

namespace {

using test::Bytes;
using test::GuardedBuffer;
using test::Lines;
using test::reader_lines;
using test::text;

// One call of the walker on a unit that begins with a start code and the header of an SEI unit.
struct Call {
    int payload_offset = 0;
    int nal_type_offset = 0;
    SEI_message_t header{77, 77, 77};
    int suid = 77;
    BOOL more = 77;
    BOOL result = 77;

    std::string str() const {
        return text("result %d, offset %d, nal %d, type %d, size %u, index %u, suid %d, more %d", result,
                    payload_offset, nal_type_offset, header.payload_type, header.payload_size, header.payload_index,
                    suid, more);
    }
};

class Model {
public:
    Lines lines;

    Model(const Bytes& unit, Call& call) : unit_(unit), call_(call) { call.result = run() ? TRUE : FALSE; }

private:
    // The data behind the header, with zeros behind its end.
    unsigned at(long i) const { return i < size() ? data_[static_cast<std::size_t>(i)] : 0U; }
    long size() const { return static_cast<long>(data_.size()); }
    bool say(int level, const std::string& line, const char* function = "DetermineSEIType") {
        lines.push_back(std::to_string(level) + " " + function + ": " + line);
        return false;
    }

    void deencapsulate(std::size_t first, std::size_t last) {
        int zeros = 0;
        for (std::size_t i = first; i < last; ++i) {
            if (zeros >= 2 && unit_[i] == 3) {
                zeros = 0;
                continue;
            }
            data_.push_back(unit_[i]);
            zeros = unit_[i] == 0 ? zeros + 1 : 0;
        }
    }

    bool run() {
        call_.more = FALSE;
        if (call_.payload_offset == 0) call_.nal_type_offset = unit_[2] == 1 ? 3 : 4;
        const auto header = static_cast<std::size_t>(call_.nal_type_offset);
        call_.header = {};
        std::size_t last = unit_.size() - 1;
        const auto attempt = [&] {
            say(7, text("Attempting to find the stop bit position for the LastByte[%zu]:%02X.", last,
                        static_cast<unsigned>(unit_[last])));
        };
        for (attempt(); unit_[last] == 0; attempt()) --last;
        int position = 1;
        while ((unit_[last] >> (position - 1) & 1) == 0) ++position;
        const std::size_t end = position == 8 ? last : last + 1;
        say(7, text("Found StopBitPos:%d for LastByte[%zu]:%02X, NALLenWoRBSPTrailingBits:%zu, NALTypeOffset:%zu, "
                    "BufferLength:%zu.",
                    position, last, static_cast<unsigned>(unit_[last]), end - header, header, unit_.size()));
        const bool too_short = end - header <= 2;
        if (!too_short) deencapsulate(header + 1, end);
        const long length = too_short ? -1 : size();
        long index = call_.payload_offset;
        say(7,
            text("CHECK - NAL type:06, Buffer_len:%zu, SODB Len:%ld, Current idx:%ld, Next SODB bytes: 0x%02X %02X "
                 "%02X %02X %02X.",
                 unit_.size(), length, index, at(index), at(index + 1), at(index + 2), at(index + 3), at(index + 4)));
        unsigned type = 0, payload_size = 0;
        do {
            if (index > length)
                return say(3, text("It seems that we are out of the SODB buffer! index:%ld, SODB buffer length:%ld.",
                                   index, length));
            type += at(index++);
            call_.header.payload_type = static_cast<unsigned char>(type % 256);
        } while (at(index) == 255);
        type %= 256;
        do {
            if (index > length)
                return say(3, text("It seems that we are out of the buffer! index:%ld, SODB buffer length:%ld.", index,
                                   length));
            payload_size += at(index++);
            call_.header.payload_size = payload_size;
        } while (at(index) == 255);
        call_.header.payload_index = static_cast<unsigned>(index);
        say(7, text("Parsing SEI message, payload index:%ld, Payload_type:%#x, Payload_size:%#x.", index, type,
                    payload_size));
        if (type > 45)
            return say(7, text("SEI Payload type:%u is greater than the current MAX_PAYLOAD_TYPE:45. Abort SEI "
                               "decoding!",
                               type));
        if (!classify(type, index, length)) return false;
        say(7, text("OK - Found SEI payload type:%u and payload size:%u, enSUID:%d.", type, payload_size, call_.suid));
        const long next = index + payload_size;
        call_.payload_offset = static_cast<int>(next);
        if (next > length)
            return say(3, text("We are out of the SODB. Payload Offset:%ld maximum value should be sei_sodb_len:%ld.",
                               next, length));
        if (next == length) say(7, "We are at the end of SODB, there are no more \"sei_message\".");
        call_.more = length - next > 2 ? TRUE : FALSE;
        return true;
    }

    bool classify(unsigned type, long index, long length) {
        if (type == 1) {
            call_.suid = 4;
            return true;
        }
        if (type != 4) {
            say(5, text("SEI Payload type was not in the known types:%u.", type));
            call_.suid = 0;
            return true;
        }
        constexpr char kFunction[] = "_FindSEIUserDataRegisteredSUID";
        std::string identifier;
        for (long i = 3; i < 7; ++i) identifier += static_cast<char>(at(index + i));
        if (length - index < 8) {
            say(3,
                text("NALU length:%ld is shorter than 7. Failed to determine SEI type too short NALU!", length - index),
                kFunction);
        } else if (identifier == "GA94" && at(index + 7) == 3) {
            call_.suid = 2;
            return true;
        } else if (identifier == "DTG1") {
            call_.suid = 3;
            return true;
        } else {
            say(3, "Failed to determine SEI data registered type!", kFunction);
            call_.suid = 0;
        }
        return say(4, "Cannot find User data registered specific SEI!");
    }

    const Bytes& unit_;
    Call& call_;
    Bytes data_;
};

class SeiWalkerModel : public test::WriterTest {
protected:
    unsigned random(unsigned below) { return static_cast<unsigned>(random_() % below); }

    // A few messages, whole or with bytes of any value, and an end of some kind.
    Bytes unit() {
        Bytes rbsp;
        const auto push = [&](unsigned value) { rbsp.push_back(static_cast<unsigned char>(value)); };
        for (unsigned messages = 1 + random(4); messages > 0; --messages) {
            constexpr unsigned kTypes[] = {0, 1, 1, 4, 4, 4, 5, 45, 46, 255};
            const unsigned type = random(8) == 0 ? random(256) : kTypes[random(10)];
            const unsigned size = random(10) == 0 ? 255 + random(300) : random(12) + (type == 4 ? 8 : 0);
            push(type);
            for (unsigned left = size;; left -= 255) {
                push(left < 255 ? left : 255);
                if (left < 255) break;
            }
            const std::size_t start = rbsp.size();
            constexpr unsigned kBytes[] = {0, 0, 0, 1, 3, 0xFF, 0x80, 0x55};
            for (unsigned i = 0; i < size; ++i) push(kBytes[random(8)]);
            const std::string identifier = random(2) == 0 ? "GA94" : "DTG1";
            for (std::size_t i = 0; type == 4 && random(9) != 0 && i < 4; ++i)
                rbsp[start + 3 + i] = static_cast<unsigned char>(identifier[i]);
            if (type == 4 && random(5) != 0) rbsp[start + 7] = 3;
        }
        if (random(8) == 0) rbsp.resize(random(static_cast<unsigned>(rbsp.size())));
        if (random(8) != 0) push(0x80);
        Bytes made = test::nal_unit(0x06, rbsp, random(2) == 0 ? 3 : 4);
        made.resize(std::max<std::size_t>(made.size() + random(3) / 2 * random(4), 7));
        return made;
    }

private:
    std::mt19937 random_{1};
};

TEST_F(SeiWalkerModel, WalksOfManyUnits) {
    int messages = 0, ends = 0, kinds[5] = {};
    for (int i = 0; i < 4000 && !HasFailure(); ++i) {
        const Bytes bytes = unit();
        if (bytes.size() > 1024) continue;  // no heap area, whose note is not modelled
        Call actual, expected;
        for (int calls = 0; calls == 0 || (calls < 8 && actual.more != FALSE && !HasFailure()); ++calls) {
            GuardedBuffer memory(bytes);
            test::clear();
            actual.result = DetermineSEIType(memory.data(), static_cast<int>(bytes.size()), &actual.payload_offset,
                                             &actual.nal_type_offset, &actual.header, &actual.suid, &actual.more);
            const Model model(bytes, expected);
            EXPECT_EQ(actual.str(), expected.str());
            EXPECT_EQ(reader_lines(), model.lines);
            if (actual.result == TRUE) {
                ++messages;
                ++kinds[actual.suid];
            } else {
                ++ends;
            }
        }
    }
    EXPECT_GT(messages, 2000);
    EXPECT_GT(ends, 500);
    for (const int kind : {0, 2, 3, 4}) EXPECT_GT(kinds[kind], 100) << kind;
}

// Offsets that a caller makes up, in and behind the data.
TEST_F(SeiWalkerModel, CallsWithAnyOffset) {
    for (int i = 0; i < 150 && !HasFailure(); ++i) {
        const Bytes bytes = unit();
        if (bytes.size() > 100) continue;
        for (int offset = 1; offset < static_cast<int>(bytes.size()) + 4; ++offset) {
            GuardedBuffer memory(bytes);
            Call actual, expected;
            actual.payload_offset = expected.payload_offset = offset;
            actual.nal_type_offset = expected.nal_type_offset = bytes[2] == 1 ? 3 : 4;
            test::clear();
            actual.result = DetermineSEIType(memory.data(), static_cast<int>(bytes.size()), &actual.payload_offset,
                                             &actual.nal_type_offset, &actual.header, &actual.suid, &actual.more);
            const Model model(bytes, expected);
            EXPECT_EQ(actual.str(), expected.str());
            EXPECT_EQ(reader_lines(), model.lines);
        }
    }
}

}  // namespace
