#include "bench/Inputs.h"

#include <random>

namespace bench {
namespace {

/// A number in the range, both ends included. The engine is the same everywhere, the standard library's
/// distributions are not.
size_t Pick(std::mt19937& random, size_t lowest, size_t highest) {
    return lowest + random() % (highest - lowest + 1);
}

char PickLetter(std::mt19937& random) {
    return static_cast<char>('a' + random() % 26);
}

} // namespace

std::vector<std::string> Words(size_t count, size_t shortest, size_t longest) {
    std::mt19937 random(1);
    std::vector<std::string> words;
    while (words.size() < count) {
        std::string& word = words.emplace_back(Pick(random, shortest, longest), ' ');
        for (char& c : word) c = PickLetter(random);
    }
    return words;
}

std::vector<std::string> DistinctLines(size_t count) {
    std::vector<std::string> lines = Words(count, 8, 32);
    std::mt19937 random(2);
    for (std::string& line : lines) {
        for (char& c : line) {
            if (random() % 4 == 0) c = static_cast<char>(c - 'a' + 'A');
        }
    }
    for (size_t i = 0; i < count; ++i) lines[i] += std::to_string(i);
    return lines;
}

std::string Joined(const std::vector<std::string>& items, std::string_view separator) {
    std::string text;
    for (const std::string& item : items) {
        if (&item != &items.front()) text += separator;
        text += item;
    }
    return text;
}

std::string WordText(size_t bytes, size_t shortest, size_t longest, std::string_view separator) {
    std::mt19937 random(3);
    std::string text;
    while (text.size() < bytes) {
        if (!text.empty()) text += separator;
        for (size_t left = Pick(random, shortest, longest); left > 0; --left) text += PickLetter(random);
    }
    return text;
}

std::string TextWith(size_t bytes, std::string_view specials, unsigned percent) {
    std::mt19937 random(4);
    std::string text;
    while (text.size() < bytes) {
        const bool special = random() % 100 < percent;
        text += special ? specials[random() % specials.size()] : PickLetter(random);
    }
    return text;
}

std::string Repeated(std::string_view text, size_t times) {
    std::string all;
    for (; times > 0; --times) all += text;
    return all;
}

} // namespace bench
