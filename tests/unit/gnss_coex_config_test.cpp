#include "gnss_coex_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace tarvo {

using testing::ElementsAre;
using testing::Field;
using Kind = GnssCoexItem::Kind;

namespace {

std::string Bytes(std::initializer_list<uint8_t> bytes) {
    return std::string(bytes.begin(), bytes.end());
}

// The item that one entry line of a table becomes.
GnssCoexItem EntryOf(const std::string& line) {
    const GnssCoexTable table = ParseGnssCoexTable("1\n" + line + "\n");
    EXPECT_FALSE(table.error) << line;
    EXPECT_EQ(table.items.size(), 2u) << line;
    return table.items.size() == 2 ? table.items[1] : GnssCoexItem{};
}

std::string RecordOf(const std::string& line) {
    const GnssCoexItem item = EntryOf(line);
    EXPECT_EQ(item.kind, Kind::kEntry) << line;
    return item.payload;
}

template <typename Exception>
void ExpectError(const GnssCoexTable& table) {
    ASSERT_TRUE(table.error);
    EXPECT_THROW(std::rethrow_exception(table.error), Exception);
}

}  // namespace

TEST(GnssCoexTableTest, EntryRecords) {
    // rat, flag, band1, param1, band2, param2; 16-bit fields little-endian. The scenarios show
    // each kind of line on the wire; these are the variants of each.
    EXPECT_EQ(RecordOf("b3,20"), RecordOf("B3,20"));
    EXPECT_EQ(RecordOf("N78,5"), RecordOf("n78,5"));
    // GSM bands go by their frequency; a fraction is truncated toward zero.
    EXPECT_EQ(RecordOf("1900,-7.9"),
              Bytes({0x00, 0x01, 0x02, 0x00, 0xf9, 0xff, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(RecordOf("900,1")[2], 3);
    EXPECT_EQ(RecordOf("450,1")[2], 4);
    EXPECT_EQ(RecordOf("480,1")[2], 5);
    // The bands of a pair are numbers, never GSM names; fields after the fourth are ignored.
    EXPECT_EQ(RecordOf("1850,1,1900,2"),
              Bytes({0x04, 0x01, 0x52, 0x03, 0x01, 0x00, 0x84, 0x03, 0x02, 0x00}));
    EXPECT_EQ(RecordOf("B1,10,n78,20,x,y"), RecordOf("B1,10,n78,20"));
}

TEST(GnssCoexTableTest, NumbersAsTheStandardConversionsReadThem) {
    // Leading blanks and trailing characters are harmless, a carriage return included...
    EXPECT_EQ(RecordOf("B3, 20\r"), RecordOf("B3,20"));
    EXPECT_EQ(RecordOf("B3x,20abc"), RecordOf("B3,20"));
    // ...but a GSM name must match whole.
    EXPECT_EQ(RecordOf("850\r,1")[2], 0);
    // Beyond 32 bits a parameter saturates before its low 16 bits are kept.
    EXPECT_EQ(RecordOf("B1,1e10").substr(4, 2), Bytes({0xff, 0xff}));
    EXPECT_EQ(RecordOf("B1,-1e10").substr(4, 2), Bytes({0x00, 0x00}));
    EXPECT_EQ(RecordOf("B1,70000").substr(4, 2), Bytes({0x70, 0x11}));
}

TEST(GnssCoexTableTest, Header) {
    GnssCoexTable table = ParseGnssCoexTable("300\n");
    EXPECT_FALSE(table.too_few_lines);
    EXPECT_THAT(table.items, ElementsAre(Field(&GnssCoexItem::payload, Bytes({0x2c, 0x01}))));
    EXPECT_EQ(table.items[0].kind, Kind::kHeader);
    EXPECT_EQ(ParseGnssCoexTable("70000\n").items[0].payload, Bytes({0x70, 0x11}));
    EXPECT_EQ(ParseGnssCoexTable("-1\n").items[0].payload, Bytes({0xff, 0xff}));

    // One line without its newline is suspect, and still used.
    table = ParseGnssCoexTable("300");
    EXPECT_TRUE(table.too_few_lines);
    EXPECT_THAT(table.items, ElementsAre(Field(&GnssCoexItem::payload, Bytes({0x2c, 0x01}))));
}

TEST(GnssCoexTableTest, EmptyLinesAreDroppedWhereverTheyStand) {
    const GnssCoexTable table = ParseGnssCoexTable("\n\n7\n\nB3,20\n\n\nn78,1\n\n");
    EXPECT_FALSE(table.too_few_lines);
    EXPECT_THAT(table.items, ElementsAre(Field(&GnssCoexItem::kind, Kind::kHeader),
                                         Field(&GnssCoexItem::payload, RecordOf("B3,20")),
                                         Field(&GnssCoexItem::payload, RecordOf("n78,1"))));

    EXPECT_TRUE(ParseGnssCoexTable("\n\n").items.empty());
    EXPECT_FALSE(ParseGnssCoexTable("\n\n").too_few_lines);
    EXPECT_TRUE(ParseGnssCoexTable("").items.empty());
    EXPECT_TRUE(ParseGnssCoexTable("").too_few_lines);
    EXPECT_FALSE(ParseGnssCoexTable("").error);
}

TEST(GnssCoexTableTest, MalformedLinesAreReportedInPlace) {
    const GnssCoexTable table =
        ParseGnssCoexTable("1\nB1\nB1,10,,20\nB3,20\nB1,10,n78,\n,5\nB1,\n1800,5,,\n");
    EXPECT_FALSE(table.error);
    EXPECT_THAT(table.items,
                ElementsAre(Field(&GnssCoexItem::kind, Kind::kHeader),
                            Field(&GnssCoexItem::line, "B1"),  // one field
                            Field(&GnssCoexItem::line, "B1,10,,20"),
                            Field(&GnssCoexItem::kind, Kind::kEntry),
                            Field(&GnssCoexItem::line, "B1,10,n78,"),
                            Field(&GnssCoexItem::line, ",5"), Field(&GnssCoexItem::line, "B1,"),
                            // Both parts of the second band missing: a one-band line.
                            Field(&GnssCoexItem::kind, Kind::kEntry)));
    EXPECT_EQ(table.items[1].kind, Kind::kInvalidLine);
    for (size_t i : {2, 4, 5, 6}) EXPECT_EQ(table.items[i].kind, Kind::kInvalidBand) << i;
}

TEST(GnssCoexTableTest, AFieldWithoutANumberEndsTheTable) {
    // What came before the field is kept, nothing after it.
    GnssCoexTable table = ParseGnssCoexTable("1\nB3,20\nB1,x\nB1,10\n");
    EXPECT_THAT(table.items, ElementsAre(Field(&GnssCoexItem::kind, Kind::kHeader),
                                         Field(&GnssCoexItem::payload, RecordOf("B3,20"))));
    ExpectError<std::invalid_argument>(table);

    // A band letter without a number.
    table = ParseGnssCoexTable("1\nB,10\n");
    EXPECT_EQ(table.items.size(), 1u);
    ExpectError<std::invalid_argument>(table);
    ExpectError<std::invalid_argument>(ParseGnssCoexTable("1\nB1,10,n,20\n"));
    ExpectError<std::out_of_range>(ParseGnssCoexTable("1\nB99999999999,10\n"));
    ExpectError<std::out_of_range>(ParseGnssCoexTable("1\nB1,1e999\n"));

    table = ParseGnssCoexTable("header\nB3,20\n");
    EXPECT_TRUE(table.items.empty());
    ExpectError<std::invalid_argument>(table);
}

}  // namespace tarvo
