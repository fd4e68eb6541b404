#include "scenario/nearest_names.h"

#include <algorithm>

#include <android-base/strings.h>

namespace tarvo_emu {

size_t EditDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::vector<std::string> NearestNames(const std::string& word, std::vector<std::string> names,
                                      size_t count, size_t reach) {
    const auto distance = [&word](const std::string& name) {
        return android::base::StartsWith(name, word) && name != word ? 1 : EditDistance(word, name);
    };
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    names.erase(std::remove_if(names.begin(), names.end(),
                               [&](const std::string& name) { return distance(name) > reach; }),
                names.end());
    std::stable_sort(names.begin(), names.end(),
                     [&](const auto& a, const auto& b) { return distance(a) < distance(b); });
    if (names.size() > count) names.resize(count);
    return names;
}

}  // namespace tarvo_emu
