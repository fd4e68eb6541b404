#include "gnss_coex_config.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <log/log.h>

#include "ril_request_helper.h"

namespace tarvo {

namespace {

constexpr const char* kConfigPaths[] = {
    "/data/vendor/radio/gnss_blanking.csv",
    "/vendor/etc/modem/gnss_blanking.csv",
};
// Seconds that each request may spend on a radio that is not available yet.
constexpr int kRetryBudgetSeconds = 60;
constexpr uint8_t kEntryFlag = 1;

bool IsNr(const std::string& band) { return band[0] == 'N' || band[0] == 'n'; }
bool IsLte(const std::string& band) { return band[0] == 'B' || band[0] == 'b'; }

// The band number of a designation, its letter already taken off: GSM bands are named by their
// frequency, every other band by its number.
int ConvertBand(VekGnssBlankingRAT rat, const std::string& band) {
    if (rat != kGnssBlankingGsm) return std::stoi(band);
    static const std::pair<const char*, int> kGsmBands[] = {
        {"1800", 1}, {"1900", 2}, {"900", 3}, {"450", 4}, {"480", 5}, {"850", 6},
    };
    for (const auto& [name, number] : kGsmBands) {
        if (band == name) return number;
    }
    return 0;
}

// A parameter truncated toward zero to 32 bits, saturating as the device's conversion does.
int32_t ConvertParameter(const std::string& field) {
    const double value = std::stod(field);
    if (std::isnan(value)) return 0;
    if (value <= std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
    if (value >= std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(value);
}

void AppendLittleEndian16(std::string* out, uint32_t value) {
    out->push_back(static_cast<char>(value & 0xff));
    out->push_back(static_cast<char>((value >> 8) & 0xff));
}

GnssCoexItem ParseEntry(const std::string& line) {
    const std::vector<std::string> fields = android::base::Split(line, ",");
    if (fields.size() < 2) return {GnssCoexItem::Kind::kInvalidLine, {}, line};

    std::string band1 = fields[0];
    const std::string& param1 = fields[1];
    // A third field alone does not make a second band.
    std::string band2 = fields.size() >= 4 ? fields[2] : "";
    const std::string param2 = fields.size() >= 4 ? fields[3] : "";
    if (band1.empty() || param1.empty() || band2.empty() != param2.empty()) {
        return {GnssCoexItem::Kind::kInvalidBand, {}, line};
    }

    const bool pair = !band2.empty();
    VekGnssBlankingRAT rat;
    if (!pair) {
        if (IsLte(band1)) {
            rat = kGnssBlankingLte;
            band1.erase(0, 1);
        } else if (IsNr(band1)) {
            rat = kGnssBlankingNr;
            band1.erase(0, 1);
        } else {
            rat = kGnssBlankingGsm;
        }
    } else {
        rat = IsNr(band2) || IsNr(band1) ? kGnssBlankingPairWithNr : kGnssBlankingPair;
        // Both bands of a pair lose their first character, whatever it is.
        band1.erase(0, 1);
        band2.erase(0, 1);
    }

    std::string record;
    record.push_back(static_cast<char>(rat));
    record.push_back(static_cast<char>(kEntryFlag));
    AppendLittleEndian16(&record, ConvertBand(rat, band1));
    AppendLittleEndian16(&record, ConvertParameter(param1));
    if (pair) {
        AppendLittleEndian16(&record, ConvertBand(rat, band2));
        AppendLittleEndian16(&record, ConvertParameter(param2));
    } else {
        AppendLittleEndian16(&record, 0);
        AppendLittleEndian16(&record, 0);
    }
    return {GnssCoexItem::Kind::kEntry, record, {}};
}

bool ReadConfig(std::string* text) {
    for (const char* path : kConfigPaths) {
        if (android::base::ReadFileToString(path, text)) return true;
    }
    return false;
}

int SendToRil(RilRequestHelper* ril, unsigned int request, std::string payload) {
    return ril->Send(request, payload.data(), payload.size(), kRetryBudgetSeconds);
}

}  // namespace

GnssCoexTable ParseGnssCoexTable(const std::string& text) {
    GnssCoexTable table;
    std::vector<std::string> lines = android::base::Split(text, "\n");
    table.too_few_lines = lines.size() < 2;
    lines.erase(std::remove(lines.begin(), lines.end(), ""), lines.end());
    if (lines.empty()) return table;

    try {
        std::string header;
        AppendLittleEndian16(&header, std::stoi(lines[0]));
        table.items.push_back({GnssCoexItem::Kind::kHeader, header, {}});
        for (size_t i = 1; i < lines.size(); ++i) table.items.push_back(ParseEntry(lines[i]));
    } catch (const std::exception&) {
        table.error = std::current_exception();
    }
    return table;
}

int LoadGnssCoexConfig() {
    ALOGI("Configuring GNSS coex");
    RilRequestHelper* ril = RilRequestHelper::GetInstance();
    if (ril == nullptr) {
        ALOGE("Failed to connect to RIL to send GNSS coex configuration");
        return kGnssCoexConfigUnavailable;
    }
    std::string text;
    if (!ReadConfig(&text)) {
        ALOGE("Failed to read any GNSS coex configuration file");
        return kGnssCoexConfigUnavailable;
    }

    const GnssCoexTable table = ParseGnssCoexTable(text);
    // Only a warning: the leading value of a one-line file still goes out.
    if (table.too_few_lines) ALOGE("Invalid GNSS coex configuration file");
    if (table.items.empty() && !table.error) {
        // Nothing but empty lines: there is not even a leading value to send.
        ALOGE("Invalid GNSS coex configuration file");
        return kGnssCoexConfigUnavailable;
    }
    // Each request's own result does not stop the table: the RIL gets every line it can.
    for (const GnssCoexItem& item : table.items) {
        switch (item.kind) {
            case GnssCoexItem::Kind::kHeader:
                SendToRil(ril, RilGnssCoexHeaderRequest, item.payload);
                break;
            case GnssCoexItem::Kind::kEntry:
                SendToRil(ril, RilGnssCoexEntryRequest, item.payload);
                break;
            case GnssCoexItem::Kind::kInvalidLine:
                ALOGE("Invalid GNSS coex config line - %s", item.line.c_str());
                break;
            case GnssCoexItem::Kind::kInvalidBand:
                ALOGE("Invalid band1 GNSS coex configuration - %s", item.line.c_str());
                break;
        }
    }
    if (table.error) std::rethrow_exception(table.error);
    return kGnssCoexConfigLoaded;
}

}  // namespace tarvo
