// Calls of the rewriter of picture timing messages, compared with the model in everything they do.
#pragma once

#include "allocation_watch.h"
#include "dirty_stack.h"
#include "pic_timing_rewrite_model.h"

namespace test {

inline const Bytes kTimingSource = {0, 0, 0, 1, 6, 1, 1, 0x55, 0x80};

// One call on a unit with nothing readable behind it.
struct TimingRewrite {
    static constexpr unsigned kUntouched = 4711;

    BOOL result;
    bool stored_null = false;
    bool left_as_it_was = false;  // the pointer
    unsigned length = kUntouched;
    Bytes bytes;
    std::vector<std::size_t> allocated;
    std::size_t not_freed;

    TimingRewrite(const RewriteSps& shape, const sei_pic_timing_t& pt, const Bytes& source) {
        GuardedBuffer memory(source);
        const std::unique_ptr<sps_t> sps = shape.sps();
        unsigned char untouched = 0;
        unsigned char* unit = &untouched;
        clear();
        {
            const AllocationWatch watch;
            dirty_stack();
            result = H264Lib_Set_SEIPictiming_NAL(memory.data(), static_cast<unsigned>(source.size()), sps.get(), &pt,
                                                  &unit, &length);
            allocated = watch.sizes();
            not_freed = watch.not_freed();
        }
        stored_null = unit == nullptr;
        left_as_it_was = unit == &untouched;
        if (result == FALSE) return;
        EXPECT_FALSE(stored_null || left_as_it_was);
        EXPECT_LE(length, 32U);
        bytes.assign(unit, unit + length);
        // Either way of releasing it.
        if (source.size() % 2 == 0) {
            std::free(unit);
        } else {
            H26XLib_Release_sps_buffer(unit);
        }
    }
};

class PicTimingRewrite : public WriterTest {
protected:
    static RewrittenUnit expect_rewritten(const RewriteSps& shape, const sei_pic_timing_t& pt,
                                          const Bytes& source = kTimingSource) {
        const RewrittenUnit model(shape, pt, source);
        const TimingRewrite rewrite(shape, pt, source);
        EXPECT_EQ(rewrite.result, model.made ? TRUE : FALSE);
        EXPECT_EQ(rewrite.bytes, model.bytes);
        EXPECT_EQ(rewrite.length, model.bytes.size());
        EXPECT_EQ(rewrite.stored_null, !model.made);
        EXPECT_EQ(rewrite.allocated, std::vector<std::size_t>{32});
        EXPECT_EQ(rewrite.not_freed, model.made ? 1U : 0U);
        EXPECT_EQ(reader_lines(), model.lines);
        EXPECT_EQ(model.made && !model.has_payload, test::lines().size() == 1 && test::lines()[0][0] == '3')
            << "the encapsulation's";
        expect_dumps(source, model);
        return model;
    }

private:
    static void expect_dumps(const Bytes& source, const RewrittenUnit& model) {
        std::vector<Dump> own, areas;
        for (const Dump& dump : records().dumps) (dump.label == "Bitbuffer data" ? areas : own).push_back(dump);
        ASSERT_EQ(areas.size(), model.made ? 1U : 0U);
        if (model.made) {
            EXPECT_EQ(areas[0].bytes, model.area);
        }
        ASSERT_EQ(own.size(), model.made ? 2U : 1U);
        for (const Dump& dump : own) {
            EXPECT_EQ(dump.level, 6);
            EXPECT_EQ(dump.func, "H264Lib_Set_SEIPictiming_NAL");
            EXPECT_EQ(dump.file, "h264d.c");
        }
        EXPECT_EQ(own[0].label, "ORIGINAL SEI NAL");
        EXPECT_EQ(own[0].bytes, source);
        EXPECT_EQ(own[0].order, 0U);
        if (!model.made) return;
        EXPECT_EQ(own[1].label, "MODIFIED SEI NAL");
        EXPECT_EQ(own[1].bytes, model.bytes);
        EXPECT_EQ(own[1].order, records().messages.size() + records().dumps.size() - 1);
    }
};

}  // namespace test
