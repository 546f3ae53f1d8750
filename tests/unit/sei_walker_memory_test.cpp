// The SEI walker's memory, preconditions and levels, and the identification of user data.
#include <climits>

#include "allocation_watch.h"
#include "sei_check.h"

namespace {

using test::AllocationWatch;
using test::Bytes;
using test::GuardedBuffer;
using test::join;
using test::Lines;
using test::reader_lines;
using test::sei_unit;
using test::text;

// One call with whatever a caller may give.
struct Call {
    const unsigned char* buffer = nullptr;
    int size = 0;
    int payload_offset = 0;
    int nal_type_offset = 0;
    SEI_message_t header{77, 77, 77};
    int suid = 77;
    BOOL more = 77;
    int* payload_offset_at = &payload_offset;
    int* nal_type_offset_at = &nal_type_offset;
    SEI_message_t* header_at = &header;
    int* suid_at = &suid;
    BOOL* more_at = &more;

    explicit Call(GuardedBuffer& unit) : buffer(unit.data()), size(static_cast<int>(unit.size())) {}
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    BOOL run() {
        return DetermineSEIType(buffer, size, payload_offset_at, nal_type_offset_at, header_at, suid_at, more_at);
    }
    std::string str() {
        const BOOL result = run();
        return text("%d: %d %d, %d %u %u, %d %d", result, payload_offset, nal_type_offset, header.payload_type,
                    header.payload_size, header.payload_index, suid, more);
    }
};

// A unit of this many bytes, with messages of 200 bytes as far as they fit and a last one that fills it.
Bytes long_unit(std::size_t size) {
    Bytes rbsp;
    std::size_t left = size - 6;
    for (; left > 300; left -= 202) rbsp = join(join(rbsp, {0, 200}), Bytes(200, 0x55));
    rbsp = join(join(rbsp, {1, static_cast<unsigned char>(left / 2), 0}), Bytes(left - 3, 0x55));
    rbsp[rbsp.size() - left + 1] = 100;
    return sei_unit(join(rbsp, {0x80}));
}

std::vector<std::string> own_assertions() {
    std::vector<std::string> found;
    for (const test::Assertion& assertion : test::records().assertions) {
        if (assertion.func != "DetermineSEIType") continue;
        EXPECT_EQ(assertion.file, "h264d.c");
        EXPECT_GT(assertion.line, 0);
        found.push_back(assertion.expression);
    }
    return found;
}

std::string allocation(int size) {
    return text("5 DetermineSEIType: We needed to allocate a SODB buffer of length:%d to deencapsulate.", size);
}

class SeiWalkerMemory : public test::WriterTest {
protected:
    // What is reported of the heap area.
    Lines notes(std::size_t size) {
        GuardedBuffer unit(long_unit(size));
        test::clear();
        EXPECT_EQ(Call(unit).run(), TRUE);
        Lines found = test::up_to(5, reader_lines());
        std::erase_if(found, [](const std::string& line) { return line.find("known types") != std::string::npos; });
        return found;
    }
};

TEST_F(SeiWalkerMemory, UnitsOfUpTo1024BytesTakeNoHeap) {
    for (const std::size_t size : {7U, 200U, 1023U, 1024U}) {
        GuardedBuffer unit(size == 7 ? sei_unit({1, 0x80}) : long_unit(size));
        ASSERT_EQ(unit.size(), size);
        AllocationWatch watch;
        Call(unit).run();
        EXPECT_EQ(watch.sizes(), std::vector<std::size_t>{});
    }
    for (const std::size_t size : {1025U, 1026U, 5000U}) {
        GuardedBuffer unit(long_unit(size));
        ASSERT_EQ(unit.size(), size);
        AllocationWatch watch;
        EXPECT_EQ(Call(unit).run(), TRUE);
        EXPECT_EQ(watch.sizes(), std::vector<std::size_t>{size});
        EXPECT_EQ(watch.not_freed(), 0U);
    }
}

TEST_F(SeiWalkerMemory, TheNoteComesOnceInFiveSeconds) {
    EXPECT_EQ(notes(1024), Lines{});
    EXPECT_EQ(notes(1025), Lines{allocation(1025)});
    EXPECT_EQ(notes(1025), Lines{});
    at(5);
    EXPECT_EQ(notes(1026), Lines{});
    at(6);
    EXPECT_EQ(notes(1026), Lines{allocation(1026)});
    at(11);
    EXPECT_EQ(notes(1026), Lines{});
}

TEST_F(SeiWalkerMemory, TheTimeCountsAlsoWhenTheNoteIsNotEmitted) {
    test::set_level(4);
    EXPECT_EQ(notes(1025), Lines{});
    test::set_level(8);
    at(5);
    EXPECT_EQ(notes(1025), Lines{});
    {
        at(100);
        const test::WithoutHandle silent;
        EXPECT_EQ(notes(1025), Lines{});
    }
    at(105);
    EXPECT_EQ(notes(1025), Lines{});
    at(106);
    EXPECT_EQ(notes(1025), Lines{allocation(1025)});
}

TEST_F(SeiWalkerMemory, TheHeapAreaIsFreedBeforeEveryReturn) {
    const auto filler = [](std::size_t count) { return Bytes(count, 0x11); };
    struct Case {
        Bytes rbsp;
        int offset;
        std::string last;
        BOOL result = FALSE;
    };
    const Bytes end = {0x80};
    const std::vector<Case> cases = {
        {join(join({1, 3, 1, 2, 3}, filler(1100)), end), 0,
         "7 DetermineSEIType: OK - Found SEI payload type:1 and "
         "payload size:3, enSUID:4.",
         TRUE},
        {join(join({1, 2, 0xFF, 0xFF, 0xFF, 0xFF}, filler(1022)), end), 0,
         "7 DetermineSEIType: We are at the end of SODB, there are no more \"sei_message\".", TRUE},
        {join(join({1, 3, 0xFF, 0xFF, 0xFF, 0xFF}, filler(1022)), end), 0,
         "3 DetermineSEIType: We are out of the SODB. Payload Offset:1029 maximum value should be sei_sodb_len:1028."},
        {join(join({46, 3}, filler(1100)), end), 0,
         "7 DetermineSEIType: SEI Payload type:46 is greater than the "
         "current MAX_PAYLOAD_TYPE:45. Abort SEI decoding!"},
        {join(join({4, 3}, filler(1100)), end), 0,
         "4 DetermineSEIType: Cannot find User data registered specific SEI!"},
        {join(filler(1100), end), 1101,
         "3 DetermineSEIType: It seems that we are out of the SODB buffer! index:1101, "
         "SODB buffer length:1100."},
        {join(filler(1100), end), 1100,
         "3 DetermineSEIType: It seems that we are out of the buffer! index:1101, SODB buffer length:1100."}};
    for (const Case& c : cases) {
        GuardedBuffer unit(sei_unit(c.rbsp));
        for (const int level : {8, 3}) {
            test::reset(level);
            Call call(unit);
            call.payload_offset = c.offset;
            call.nal_type_offset = 4;
            AllocationWatch watch;
            EXPECT_EQ(call.run(), c.result);
            EXPECT_EQ(watch.sizes(), std::vector<std::size_t>{unit.size()});
            EXPECT_EQ(watch.not_freed(), 0U) << c.last;
            if (level == 8) {
                EXPECT_EQ(reader_lines().back(), c.last);
            }
        }
    }
}

TEST_F(SeiWalkerMemory, AUnitThatIsAllZerosBehindItsHeader) {
    GuardedBuffer unit(join({0, 0, 1, 6}, Bytes(2000, 0)));
    AllocationWatch watch;
    EXPECT_EQ(Call(unit).str(), "0: 0 3, 0 0 0, 77 0");
    EXPECT_EQ(watch.not_freed(), 0U);
    EXPECT_EQ(reader_lines().back(),
              "3 DetermineSEIType: It seems that we are out of the SODB buffer! index:0, SODB "
              "buffer length:-1.");
}

TEST_F(SeiWalkerMemory, Preconditions) {
    GuardedBuffer unit(sei_unit({1, 1, 0x55, 0x80}));
    const auto expect_asserted = [&](const std::function<void(Call&)>& change, const std::vector<std::string>& texts) {
        test::clear();
        Call call(unit);
        change(call);
        EXPECT_EQ(call.run(), FALSE);
        EXPECT_EQ(own_assertions(), texts);
        if (call.more_at != nullptr) {
            EXPECT_EQ(call.more, FALSE);
        }
    };
    expect_asserted([](Call& c) { c.buffer = nullptr; }, {"pBuffer != NULL"});
    expect_asserted([](Call& c) { c.payload_offset_at = nullptr; }, {"pPayloadOffset != NULL"});
    expect_asserted([](Call& c) { c.payload_offset = -1; }, {"*pPayloadOffset >= 0"});
    expect_asserted([](Call& c) { c.payload_offset = INT_MIN; }, {"*pPayloadOffset >= 0"});
    expect_asserted([](Call& c) { c.nal_type_offset_at = nullptr; }, {"pNALTypeOffset != NULL"});
    expect_asserted(
        [](Call& c) {
            c.nal_type_offset = -1;
            c.payload_offset = 1;
        },
        {"*pNALTypeOffset >= 0"});
    expect_asserted([](Call& c) { c.header_at = nullptr; }, {"pSEIMessageHeader != NULL"});
    expect_asserted([](Call& c) { c.suid_at = nullptr; }, {"enSUID != NULL"});
    expect_asserted([](Call& c) { c.more_at = nullptr; }, {"pbMoreSEIMessages != NULL"});
    expect_asserted(
        [](Call& c) {
            c.buffer = nullptr;
            c.size = 0;
            c.payload_offset = c.nal_type_offset = -5;
            c.header_at = nullptr;
            c.suid_at = nullptr;
            c.more_at = nullptr;
        },
        {"pBuffer != NULL", "BufferLen >= 7", "*pPayloadOffset >= 0", "*pNALTypeOffset >= 0",
         "pSEIMessageHeader != NULL", "enSUID != NULL", "pbMoreSEIMessages != NULL"});
}

// The first call stores it anew.
TEST_F(SeiWalkerMemory, ANegativeNalTypeOffsetIsAssertedAndReplaced) {
    GuardedBuffer unit(sei_unit({1, 1, 0x55, 0x80}));
    for (const int offset : {-1, INT_MIN}) {
        test::clear();
        Call call(unit);
        call.nal_type_offset = offset;
        EXPECT_EQ(call.str(), Call(unit).str());
        EXPECT_EQ(own_assertions(), std::vector<std::string>{"*pNALTypeOffset >= 0"});
    }
}

TEST_F(SeiWalkerMemory, ShortUnitsAreReadNoFartherThanTheyGo) {
    const Bytes whole = sei_unit({1, 1, 0x55, 0x80});
    for (std::size_t size = 0; size <= 8; ++size)
        for (const int offset : {0, 1, 3}) {
            GuardedBuffer unit(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
            test::clear();
            Call call(unit);
            call.payload_offset = offset;
            call.nal_type_offset = 4;
            const BOOL result = call.run();
            EXPECT_EQ(own_assertions(),
                      size < 7 ? std::vector<std::string>{"BufferLen >= 7"} : std::vector<std::string>{});
            if (size < 7) {
                EXPECT_EQ(result, FALSE) << size;
            }
        }
    GuardedBuffer unit(whole);
    for (const int size : {-1, INT_MIN}) {
        Call call(unit);
        call.size = size;
        EXPECT_EQ(call.run(), FALSE);
    }
}

// Sizes whose sum does not fit into an int, or into 32 bits.
TEST_F(SeiWalkerMemory, SizesOfMillionsOfBytes) {
    struct Case {
        unsigned char first;
        std::size_t full;  // size bytes of 255
        std::string expected;
    };
    for (const Case& c : {Case{0, 8421505, "0: -2139062014 4, 6 2147483775 8421507, 0 0"},
                          {254, 16777215, "0: 0 4, 6 4278190079 16777217, 0 0"},
                          {1, 16843009, "1: 16843011 4, 6 0 16843011, 0 1"}}) {
        GuardedBuffer unit(sei_unit(join(join({6, c.first}, Bytes(c.full, 0xFF)), {1, 2, 3, 0x80})));
        test::reset(4);
        Call call(unit);
        EXPECT_EQ(call.str(), c.expected);
        EXPECT_EQ(reader_lines(),
                  call.more != FALSE
                      ? Lines{}
                      : Lines{text("3 DetermineSEIType: We are out of the SODB. Payload Offset:%d maximum value should "
                                   "be sei_sodb_len:%zu.",
                                   call.payload_offset, c.full + 5)});
    }
}

TEST_F(SeiWalkerMemory, LevelsChangeNothing) {
    const Bytes captions = {4, 9, 0xB5, 0, 0x31, 'G', 'A', '9', '4', 3, 0};
    for (const Bytes& unit :
         {sei_unit({1, 3, 1, 2, 3, 5, 1, 9, 0x80}), sei_unit(join(captions, {1, 1, 1, 0x80})),
          sei_unit({4, 8, 1, 2, 3, 4, 5, 6, 7, 8, 0x80}), sei_unit({46, 1, 2, 0x80}), sei_unit({1, 200, 2, 0x80}),
          sei_unit({9, 0, 0, 0x80, 0, 0}), long_unit(1300), Bytes{0, 0, 1, 7, 1, 1, 1, 1}, Bytes{1, 2, 3, 4, 5, 6, 7},
          Bytes{0, 0, 1, 6, 1, 1}, Bytes{}})
        for (const int offset : {-1, 0, 5, 7, 11, 12, 5000})
            for (const int nal : {3, 4, 5, -1})
                test::expect_same_at_all_levels([&] {
                    GuardedBuffer memory(unit);
                    Call call(memory);
                    call.payload_offset = offset;
                    call.nal_type_offset = nal;
                    return call.str();
                });
}

TEST_F(SeiWalkerMemory, IdentifiesUserData) {
    struct Case {
        Bytes bytes;
        BOOL result;
        int suid;
        Lines lines;
    };
    const Lines unknown = {"3 _FindSEIUserDataRegisteredSUID: Failed to determine SEI data registered type!"};
    const auto too_short = [](int length) {
        return Lines{
            text("3 _FindSEIUserDataRegisteredSUID: NALU length:%d is shorter than 7. Failed to determine SEI "
                 "type too short NALU!",
                 length)};
    };
    std::vector<Case> cases = {{{0xB5, 0, 0x31, 'G', 'A', '9', '4', 3}, TRUE, 2, {}},
                               {{0, 0xFF, 0xEE, 'G', 'A', '9', '4', 3, 9, 9}, TRUE, 2, {}},
                               {{0, 0, 0, 'G', 'A', '9', '5', 3}, FALSE, 0, unknown},
                               {{0, 0, 0, 'G', 'A', '8', '4', 3}, FALSE, 0, unknown},
                               {{0, 0, 0, 'G', 'B', '9', '4', 3}, FALSE, 0, unknown},
                               {{0, 0, 0, 'H', 'A', '9', '4', 3}, FALSE, 0, unknown},
                               {{0, 0, 0, 'D', 'T', 'G', '2', 3}, FALSE, 0, unknown},
                               {{0, 0, 0, 'D', 'T', 'H', '1', 3}, FALSE, 0, unknown},
                               {{0, 0, 0, 'D', 'U', 'G', '1', 3}, FALSE, 0, unknown},
                               {{0, 0, 0, 'E', 'T', 'G', '1', 3}, FALSE, 0, unknown},
                               {{0xB5, 0, 0x31, 'G', 'A', '9', '4'}, FALSE, 77, too_short(7)},
                               {{0xB5, 0, 0x31, 'D', 'T', 'G', '1'}, FALSE, 77, too_short(7)},
                               {{0xB5}, FALSE, 77, too_short(1)}};
    for (int last = 0; last < 256; ++last) {
        const auto byte = static_cast<unsigned char>(last);
        cases.push_back({{1, 2, 3, 'D', 'T', 'G', '1', byte}, TRUE, 3, {}});
        if (last != 3) cases.push_back({{0xB5, 0, 0x31, 'G', 'A', '9', '4', byte}, FALSE, 0, unknown});
    }
    for (const Case& c : cases) {
        GuardedBuffer memory(c.bytes);
        test::clear();
        int suid = 77;
        EXPECT_EQ(_FindSEIUserDataRegisteredSUID(memory.data(), static_cast<int>(c.bytes.size()), &suid), c.result);
        EXPECT_EQ(suid, c.suid);
        EXPECT_EQ(reader_lines(), c.lines);
    }
    const Bytes known = cases[0].bytes;
    for (const int length : {0, -1, INT_MIN}) {
        test::clear();
        int suid = 77;
        EXPECT_EQ(_FindSEIUserDataRegisteredSUID(known.data(), length, &suid), FALSE);
        EXPECT_EQ(suid, 77);
        EXPECT_EQ(reader_lines(), too_short(length));
    }
}

TEST_F(SeiWalkerMemory, UserDataThatIsNotThere) {
    const Bytes known = {0xB5, 0, 0x31, 'G', 'A', '9', '4', 3};
    int suid = 77;
    for (const unsigned char* buffer : {known.data(), static_cast<const unsigned char*>(nullptr)})
        for (int* at : {&suid, static_cast<int*>(nullptr)}) {
            if (buffer != nullptr && at != nullptr) continue;
            test::clear();
            EXPECT_EQ(_FindSEIUserDataRegisteredSUID(buffer, 8, at), FALSE);
            EXPECT_EQ(suid, 77);
            EXPECT_EQ(reader_lines(), (Lines{text("3 _FindSEIUserDataRegisteredSUID: Failed to determine SEI data "
                                                  "registered type. buffer:%p or enSUID:%p are NULL!",
                                                  static_cast<const void*>(buffer), static_cast<void*>(at))}));
        }
    EXPECT_EQ(test::assertions(), std::vector<std::string>{});
}

}  // namespace
