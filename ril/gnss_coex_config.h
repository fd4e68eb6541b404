#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace tarvo {

// Radio-access type of a GNSS blanking entry, one byte on the wire.
enum VekGnssBlankingRAT : uint8_t {
    kGnssBlankingGsm = 0,
    kGnssBlankingLte = 2,
    kGnssBlankingNr = 3,
    kGnssBlankingPair = 4,
    kGnssBlankingPairWithNr = 5,
};

// RIL requests that carry the table: the header (2 bytes), then one per entry (10 bytes).
constexpr unsigned int RilGnssCoexEntryRequest = 226;
constexpr unsigned int RilGnssCoexHeaderRequest = 227;

// One step of pushing a GNSS blanking table, in file order.
struct GnssCoexItem {
    enum class Kind {
        kHeader,       // payload: the leading value, 2 bytes little-endian
        kEntry,        // payload: one 10-byte entry record
        kInvalidLine,  // fewer than two fields
        kInvalidBand,  // a band without its number, or a number without its band
    };
    Kind kind;
    std::string payload;  // for kHeader and kEntry
    std::string line;     // the line as it stands, for the invalid kinds
};

struct GnssCoexTable {
    // Fewer than two lines, empty ones included: the file is suspect but is used anyway.
    bool too_few_lines = false;
    std::vector<GnssCoexItem> items;
    // A field that holds no number ends the table: what came before it is in `items`.
    std::exception_ptr error;
};

// Parses the text of a GNSS blanking table ("gnss_blanking.csv"): the first non-empty line is the
// leading value, each further one a band entry "BAND,PARAM[,BAND,PARAM]".
GnssCoexTable ParseGnssCoexTable(const std::string& text);

// LoadGnssCoexConfig's statuses: the numbers of the daemon's RESULT_SUCCESS and RESULT_UNAVAILABLE,
// whose schema the RIL binding does not include.
constexpr int kGnssCoexConfigLoaded = 0;
constexpr int kGnssCoexConfigUnavailable = 8;

// Reads the table (the data partition's copy first, then the vendor default) and sends it to the
// RIL: kGnssCoexConfigLoaded once read and processed, kGnssCoexConfigUnavailable without a RIL
// connection or a usable file. A field that holds
// no number throws std::invalid_argument or std::out_of_range, after the lines before it went out.
int LoadGnssCoexConfig();

}  // namespace tarvo
