#include "nal_types.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using h264tool::nal_type_name;
using h264tool::NalTypeSet;
using h264tool::parse_nal_types;

NalTypeSet set_of(std::initializer_list<std::size_t> types) {
    NalTypeSet set;
    for (const std::size_t type : types) set.set(type);
    return set;
}

std::string error_of(std::string_view list) {
    try {
        parse_nal_types(list);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "accepted";
}

// ITU-T H.264 Table 7-1.
TEST(NalTypeName, IsTheContentOfTheUnit) {
    EXPECT_EQ(nal_type_name(0), "Unspecified");
    EXPECT_EQ(nal_type_name(1), "Coded slice of a non-IDR picture");
    EXPECT_EQ(nal_type_name(2), "Coded slice data partition A");
    EXPECT_EQ(nal_type_name(3), "Coded slice data partition B");
    EXPECT_EQ(nal_type_name(4), "Coded slice data partition C");
    EXPECT_EQ(nal_type_name(5), "Coded slice of an IDR picture");
    EXPECT_EQ(nal_type_name(6), "Supplemental enhancement information (SEI)");
    EXPECT_EQ(nal_type_name(7), "Sequence parameter set");
    EXPECT_EQ(nal_type_name(8), "Picture parameter set");
    EXPECT_EQ(nal_type_name(9), "Access unit delimiter");
    EXPECT_EQ(nal_type_name(10), "End of sequence");
    EXPECT_EQ(nal_type_name(11), "End of stream");
    EXPECT_EQ(nal_type_name(12), "Filler data");
    EXPECT_EQ(nal_type_name(13), "Sequence parameter set extension");
    EXPECT_EQ(nal_type_name(14), "Prefix NAL unit");
    EXPECT_EQ(nal_type_name(15), "Subset sequence parameter set");
    EXPECT_EQ(nal_type_name(16), "Depth parameter set");
    EXPECT_EQ(nal_type_name(19), "Coded slice of an auxiliary coded picture without partitioning");
    EXPECT_EQ(nal_type_name(20), "Coded slice extension");
    EXPECT_EQ(nal_type_name(21), "Coded slice extension for a depth view component or a 3D-AVC texture view component");
    for (const unsigned type : {17U, 18U, 22U, 23U}) EXPECT_EQ(nal_type_name(type), "Reserved");
    for (unsigned type = 24; type < 32; ++type) EXPECT_EQ(nal_type_name(type), "Unspecified");
}

TEST(ParseNalTypes, TakesShortNames) {
    EXPECT_EQ(parse_nal_types("slice,partition-a,partition-b,partition-c,idr,sei,sps,pps"),
              set_of({1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(parse_nal_types("aud,eoseq,eostream,filler,sps-ext,prefix,subset-sps,dps"),
              set_of({9, 10, 11, 12, 13, 14, 15, 16}));
    EXPECT_EQ(parse_nal_types("slice-aux,slice-ext,slice-ext-3d"), set_of({19, 20, 21}));
}

TEST(ParseNalTypes, TakesNamesInEitherCase) { EXPECT_EQ(parse_nal_types("SPS,Pps"), set_of({7, 8})); }

TEST(ParseNalTypes, TakesNumbersBesideNames) {
    EXPECT_EQ(parse_nal_types("0,sps,31"), set_of({0, 7, 31}));
    EXPECT_EQ(parse_nal_types("7,sps"), set_of({7}));
}

TEST(ParseNalTypes, NamesThePartThatIsNoType) {
    for (const std::string part : {"", "32", "-1", "7x", "sp", "99999999999999999999", " sps", "unspecified"}) {
        std::string expected = "'";
        expected.append(part).append("' is no NAL unit type (0 to 31, 1 slice, ");
        for (const char* before : {"", "idr,"}) {
            const std::string error = error_of(before + part);
            EXPECT_EQ(error.substr(0, expected.size()), expected) << before << part;
        }
    }
}

TEST(NalTypeShortNames, AreTheOnesThatAreTaken) {
    std::string names = h264tool::nal_type_short_names() + ", ";
    NalTypeSet all;
    while (!names.empty()) {
        const std::size_t space = names.find(' ');
        const std::size_t comma = names.find(", ");
        const std::string name = names.substr(space + 1, comma - space - 1);
        const std::size_t number = std::stoul(names.substr(0, space));
        EXPECT_EQ(parse_nal_types(name), set_of({number})) << name;
        all.set(number);
        names.erase(0, comma + 2);
    }
    EXPECT_EQ(all.count(), 19U);
}

}  // namespace
