// SPDX-License-Identifier: MIT
//
// See nearest.h.
#include "nearest.h"

#include <algorithm>
#include <cctype>

namespace {

std::string lower(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Characters to be changed, left out, put in or swapped with their neighbour.
size_t distance(const std::string &a, const std::string &b)
{
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); i++)
        d[i][0] = i;
    for (size_t j = 0; j <= b.size(); j++)
        d[0][j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + change});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

} // namespace

// A third of the characters may be wrong. Words of very different lengths are not compared.
std::string nearest_word(const std::vector<std::string> &words, const std::string &misspelt)
{
    std::string nearest;
    size_t least = std::max<size_t>(misspelt.size() / 3, 1) + 1;
    for (const std::string &word : words) {
        if (std::max(word.size(), misspelt.size()) - std::min(word.size(), misspelt.size()) >= least) continue;
        const size_t apart = distance(lower(word), lower(misspelt));
        if (apart >= least) continue;
        least = apart;
        nearest = word;
    }
    return nearest;
}
