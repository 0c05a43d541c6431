#include "nearest.h"

#include <algorithm>
#include <cctype>

namespace kzclient {

namespace {

// A hyphen, an underscore and a blank are the same.
char plain(char c) {
    return c == '_' || c == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool sameLetter(char a, char b) {
    return plain(a) == plain(b);
}

bool beginsWith(const std::string& word, const std::string& start) {
    return !start.empty() && word.size() >= start.size() &&
           std::equal(start.begin(), start.end(), word.begin(), sameLetter);
}

// Edits from one word to the other, where swapping two neighbours is one edit.
size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::vector<size_t>> edits(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                edits[i][j] = i + j;
                continue;
            }
            const size_t changed = edits[i - 1][j - 1] + (sameLetter(a[i - 1], b[j - 1]) ? 0 : 1);
            edits[i][j] = std::min({edits[i - 1][j] + 1, edits[i][j - 1] + 1, changed});
            if (i > 1 && j > 1 && sameLetter(a[i - 1], b[j - 2]) && sameLetter(a[i - 2], b[j - 1])) {
                edits[i][j] = std::min(edits[i][j], edits[i - 2][j - 2] + 1);
            }
        }
    }
    return edits[a.size()][b.size()];
}

}  // namespace

std::string nearestWord(const std::string& wrong, const std::vector<std::string>& words) {
    std::string best;
    size_t fewest = wrong.size() / 3 + 2;
    for (const auto& word : words) {
        const size_t edits = beginsWith(word, wrong) ? 0 : distance(wrong, word);
        if (edits < fewest && edits < word.size()) {
            fewest = edits;
            best = word;
        }
    }
    return best;
}

std::string didYouMean(const std::string& wrong, const std::vector<std::string>& words) {
    const std::string nearest = nearestWord(wrong, words);
    return nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
}

}  // namespace kzclient
