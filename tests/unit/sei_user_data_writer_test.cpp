#include <climits>
#include <random>

#include "encapsulation_model.h"
#include "writer_check.h"

namespace {

using test::Bytes;
using test::Lines;
using test::text;

const Bytes kUuid = {0xDC, 0x45, 0xE9, 0xBD, 0xE6, 0xD9, 0x48, 0xB7, 0x96, 0x2C, 0xD8, 0x20, 0xD9, 0x23, 0xEE, 0xEF};
constexpr int kHeaderBytes = 23;

Bytes header_of(std::size_t payload_size, const Bytes& uuid = kUuid) {
    const Bytes type_and_size = {0x05, static_cast<unsigned char>(payload_size + 16)};
    return test::join(test::join(test::kSeiHeader, type_and_size), uuid);
}

Bytes payload_of_size(std::size_t size) {
    Bytes payload(size);
    for (std::size_t i = 0; i < size; ++i) payload[i] = static_cast<unsigned char>(0x20 + i % 200);
    return payload;
}

class UserDataWriter : public test::WriterTest {
protected:
    // Everything that a call should do, by the model of emulation prevention.
    void expect_as_modelled(const Bytes& payload, int len, const Bytes& uuid = kUuid) {
        SCOPED_TRACE(text("%zu bytes of payload, buffer of %d", payload.size(), len));
        test::GuardedBuffer input(payload);
        test::GuardedBuffer id(uuid);
        test::Output out(static_cast<std::size_t>(len));
        test::reset(3);
        const int result = format_sei_user_data_unregistered_nal(out.data(), len, id.data(), input.data(),
                                                                 static_cast<unsigned>(payload.size()));
        const Lines lines = test::lines();
        if (len < kHeaderBytes) {
            ASSERT_EQ(result, 0);
            out.written(0);
            ASSERT_EQ(lines, Lines{text("3 format_sei_user_data_unregistered_nal: SEI output buffer length:%d is too "
                                        "small!",
                                        len)});
            return;
        }
        const test::Encapsulated model =
            test::encapsulation_model(payload, static_cast<std::size_t>(len - kHeaderBytes));
        Bytes expected = test::join(header_of(payload.size(), uuid), model.bytes);
        if (model.result == 0) {
            ASSERT_EQ(result, 0);
            ASSERT_EQ(out.written(expected.size()), expected);
            ASSERT_EQ(lines.back(), "3 format_sei_user_data_unregistered_nal: SEI RBSP Encapsulation failed!");
            ASSERT_EQ(lines.size(), model.too_small || model.ran_out ? 2U : 1U);
            return;
        }
        ASSERT_EQ(result, model.result + 24);
        if (model.result + kHeaderBytes < len) {
            expected.push_back(0x80);
            ASSERT_EQ(lines, Lines{});
        } else {
            ASSERT_EQ(lines, Lines{text("3 format_sei_user_data_unregistered_nal: Ouputbuffer length:%d is too small "
                                        "for SEI NAL length:%d plus header length:23. Fail to encapsulate.",
                                        len, model.result + kHeaderBytes)});
        }
        ASSERT_EQ(out.written(expected.size()), expected);
    }
};

TEST_F(UserDataWriter, EveryByteOfAMessage) {
    const Bytes payload = {'h', 'e', 'l', 'l', 'o'};
    test::Output out(31);
    EXPECT_EQ(format_sei_user_data_unregistered_nal(out.data(), 31, kUuid.data(), payload.data(), 5), 29);
    EXPECT_EQ(out.written(29),
              (Bytes{0x00, 0x00, 0x00, 0x01, 0x06, 0x05, 0x15, 0xDC, 0x45, 0xE9, 0xBD, 0xE6, 0xD9, 0x48, 0xB7,
                     0x96, 0x2C, 0xD8, 0x20, 0xD9, 0x23, 0xEE, 0xEF, 'h',  'e',  'l',  'l',  'o',  0x80}));
    EXPECT_EQ(test::lines(), encapsulated_lines(out.data() + 23, 8, 5));
    EXPECT_TRUE(test::assertions().empty());
}

TEST_F(UserDataWriter, ABufferWithoutRoomForTheHeaderIsNotTouched) {
    const Bytes payload = payload_of_size(3);
    for (int len = 0; len <= 22; ++len) ASSERT_NO_FATAL_FAILURE(expect_as_modelled(payload, len));
    for (const int len : {-1, -23, INT_MIN}) {
        test::Output out(0);
        test::reset(3);
        EXPECT_EQ(format_sei_user_data_unregistered_nal(out.data(), len, kUuid.data(), payload.data(), 3), 0);
        EXPECT_EQ(test::lines(), Lines{text("3 format_sei_user_data_unregistered_nal: SEI output buffer length:%d is "
                                            "too small!",
                                            len)});
    }
}

TEST_F(UserDataWriter, PayloadsOfAllSizesWithEveryRoomAroundTheLimit) {
    for (const unsigned size : {0U, 1U, 2U, 3U, 4U, 12U, 237U, 238U, 239U, 240U, 300U, 1000U}) {
        const int room = kHeaderBytes + static_cast<int>((size + 2) / 3 * 4);
        for (int len = 0; len <= 32; ++len) ASSERT_NO_FATAL_FAILURE(expect_as_modelled(payload_of_size(size), len));
        for (int len = room - 3; len <= room + 3; ++len)
            ASSERT_NO_FATAL_FAILURE(expect_as_modelled(payload_of_size(size), len));
    }
}

TEST_F(UserDataWriter, ThePayloadSizeIsOneByteWhateverItIs) {
    struct Case {
        unsigned size;
        int byte;
    };
    for (const Case& c : {Case{1, 17}, {238, 254}, {239, 255}, {240, 0}, {241, 1}, {300, 60}, {1000, 248}}) {
        const Bytes payload = payload_of_size(c.size);
        Bytes buffer(2000);
        EXPECT_EQ(format_sei_user_data_unregistered_nal(buffer.data(), 2000, kUuid.data(), payload.data(), c.size),
                  static_cast<int>(c.size) + 24);
        EXPECT_EQ(buffer[6], c.byte);
        EXPECT_EQ(buffer[c.size + 23], 0x80);
    }
}

TEST_F(UserDataWriter, AnEmptyPayloadFails) {
    for (const int len : {23, 24, 64}) {
        test::Output out(static_cast<std::size_t>(len));
        unsigned char byte = 0;
        for (const unsigned char* payload :
             {static_cast<const unsigned char*>(nullptr), static_cast<const unsigned char*>(&byte)}) {
            out.fill();
            test::clear();
            EXPECT_EQ(format_sei_user_data_unregistered_nal(out.data(), len, kUuid.data(), payload, 0), 0);
            EXPECT_EQ(test::lines(), Lines{"3 format_sei_user_data_unregistered_nal: SEI RBSP Encapsulation failed!"});
            EXPECT_EQ(out.written(23), header_of(0));
        }
    }
}

// Six zeros become eight bytes.
TEST_F(UserDataWriter, APayloadThatFillsTheBufferLeavesNoStopByte) {
    const Bytes zeros(6, 0);
    const Bytes filled = test::join(header_of(6), {0, 0, 3, 0, 0, 3, 0, 0});
    test::Output out(31);
    EXPECT_EQ(format_sei_user_data_unregistered_nal(out.data(), 31, kUuid.data(), zeros.data(), 6), 32);
    EXPECT_EQ(out.written(31), filled);
    Lines expected = encapsulated_lines(out.data() + 23, 8, 8);
    expected.emplace_back(
        "3 format_sei_user_data_unregistered_nal: Ouputbuffer length:31 is too small for SEI NAL "
        "length:31 plus header length:23. Fail to encapsulate.");
    EXPECT_EQ(test::lines(), expected);

    test::Output larger(32);
    test::reset(3);
    EXPECT_EQ(format_sei_user_data_unregistered_nal(larger.data(), 32, kUuid.data(), zeros.data(), 6), 32);
    EXPECT_EQ(larger.written(32), test::join(filled, {0x80}));
    EXPECT_EQ(test::lines(), Lines{});
    for (std::size_t size = 1; size < 60; ++size)
        for (int len = 23; len < 23 + 100; ++len) ASSERT_NO_FATAL_FAILURE(expect_as_modelled(Bytes(size, 0), len));
}

TEST_F(UserDataWriter, ARefusedEscapeFails) {
    const Bytes payload = {0, 0, 1};
    test::Output out(27);
    test::set_level(7);
    EXPECT_EQ(format_sei_user_data_unregistered_nal(out.data(), 27, kUuid.data(), payload.data(), 3), 0);
    EXPECT_EQ(test::lines(),
              (Lines{text("3 RBSP_encapsulation_within_NAL: OuputBufferPtr:%p is near end of OutBufEndAddr=%p",
                          static_cast<void*>(out.data() + 25), static_cast<void*>(out.data() + 27)),
                     "3 format_sei_user_data_unregistered_nal: SEI RBSP Encapsulation failed!"}));
    EXPECT_EQ(out.written(25), test::join(header_of(3), {0, 0}));
    expect_as_modelled(payload, 28);
}

TEST_F(UserDataWriter, EmulationPreventionStartsAtThePayload) {
    Bytes uuid = kUuid;
    uuid[14] = uuid[15] = 0;
    expect_as_modelled({1, 2, 3}, 40, uuid);
    expect_as_modelled({0, 0, 1, 0}, 40, uuid);
    expect_as_modelled({3, 0, 0, 3}, 40, Bytes(16, 0));
    const Bytes payload = {0, 0, 0, 2};
    test::Output out(40);
    EXPECT_EQ(format_sei_user_data_unregistered_nal(out.data(), 40, Bytes(16, 0).data(), payload.data(), 4), 29);
    EXPECT_EQ(out.written(29), test::join(header_of(4, Bytes(16, 0)), {0, 0, 3, 0, 2, 0x80}));
}

TEST_F(UserDataWriter, RandomPayloads) {
    std::mt19937 random(77);
    for (int round = 0; round < 3000; ++round) {
        Bytes payload(random() % 300);
        const unsigned values = round % 3 == 0 ? 256 : 5;
        for (unsigned char& byte : payload) byte = static_cast<unsigned char>(random() % values * (random() % 2));
        const auto room = static_cast<int>((payload.size() + 2) / 3 * 4);
        ASSERT_NO_FATAL_FAILURE(expect_as_modelled(payload, kHeaderBytes + room + static_cast<int>(random() % 12) - 1));
    }
}

TEST_F(UserDataWriter, APayloadThatNoBufferHoldsIsNotRead) {
    test::GuardedBuffer payload(1);
    test::Output out(64);
    test::reset(3);
    EXPECT_EQ(format_sei_user_data_unregistered_nal(out.data(), 64, kUuid.data(), payload.data(), UINT_MAX), 0);
    EXPECT_EQ(out.written(23), header_of(UINT_MAX)) << "the size is written modulo 256";
    EXPECT_EQ(test::lines(), (Lines{no_room_lines(41, 1431655764, -1)[0],
                                    "3 format_sei_user_data_unregistered_nal: SEI RBSP Encapsulation failed!"}));
}

TEST_F(UserDataWriter, NullPointers) {
    const Bytes payload = payload_of_size(3);
    test::Output out(64);
    EXPECT_EQ(format_sei_user_data_unregistered_nal(nullptr, 64, kUuid.data(), payload.data(), 3), 0);
    EXPECT_EQ(format_sei_user_data_unregistered_nal(out.data(), 64, nullptr, payload.data(), 3), 0);
    EXPECT_EQ(test::assertions(), (std::vector<std::string>{"buffer != NULL", "pUuid_iso_iec_11578 != NULL"}));
    EXPECT_EQ(format_sei_user_data_unregistered_nal(out.data(), 64, kUuid.data(), nullptr, 3), 0);
    out.written(23);

    // The length comes first.
    test::reset(3);
    EXPECT_EQ(format_sei_user_data_unregistered_nal(nullptr, 22, nullptr, nullptr, 0), 0);
    EXPECT_EQ(test::lines(),
              Lines{"3 format_sei_user_data_unregistered_nal: SEI output buffer length:22 is too small!"});
    EXPECT_TRUE(test::assertions().empty());
}

}  // namespace
