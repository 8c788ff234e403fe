// Splitting, looking up and sorting lists, settings maps and the rows of tables.

#include "base/BaseHelpers.h"
#include "bench/Inputs.h"
#include "bench/Rounds.h"

#include <absl/strings/str_split.h>
#include <boost/algorithm/string.hpp>
#include <boost/sort/spreadsort/string_sort.hpp>
#include <cctype>
#include <cstring>
#include <csv.h>
#include <fnmatch.h>
#include <map>
#include <string>
#include <string_view>
#include <strings.h>
#include <vector>

namespace bench {
namespace {

using Strings = std::vector<std::string>;

string_vector ListOf(const Strings& strings) {
    string_vector list;
    list.assign(strings.begin(), strings.end());
    return list;
}

const char* const kSettings =
    "server=10.0.0.5, servport=7000, clport=7001, input=In, output=Out, layout=Main";
const char* const kSettingsDelimiters = " ,=";

// Splitting. The inputs begin and end with tokens, because boost::split keeps empty tokens at the ends.

Strings SplitWithStrtok(const std::string& text, const char* delimiters) {
    std::string copy = text; // strtok_r writes into what it splits
    Strings tokens;
    char* state;
    for (char* token = ::strtok_r(copy.data(), delimiters, &state); token;
         token = ::strtok_r(nullptr, delimiters, &state))
        tokens.emplace_back(token);
    return tokens;
}

Strings SplitWithAbsl(absl::string_view text, absl::string_view delimiters) {
    return absl::StrSplit(text, absl::ByAnyChar(delimiters), absl::SkipEmpty());
}

Strings SplitWithBoost(const std::string& text, const char* delimiters) {
    Strings tokens;
    boost::split(tokens, text, boost::is_any_of(delimiters), boost::token_compress_on);
    return tokens;
}

void AddSplitRows(const std::string& input, const std::string& text, const char* delimiters) {
    const auto theirs = [&](auto&& operation, auto ours) {
        Compare(operation, input, ours, //
                Peer("absl::StrSplit", [&, delimiters] { return SplitWithAbsl(text, delimiters); }),
                Peer("boost::split", [&, delimiters] { return SplitWithBoost(text, delimiters); }),
                Peer("strtok_r loop", [&, delimiters] { return SplitWithStrtok(text, delimiters); }),
                Floor("copy of the tokens",
                      [tokens = SplitWithAbsl(text, delimiters)] { return Strings(tokens); }));
    };
    theirs("string_vector::Split", [&, delimiters]() -> Strings {
        string_vector tokens;
        tokens.Split(text.c_str(), delimiters, 0);
        return tokens;
    });
    theirs("String::Split", [&, delimiters] {
        Strings tokens;
        String::Split(tokens, text, delimiters);
        return tokens;
    });
}

void AddSplitRows() {
    static const std::string settings = kSettings;
    static const std::string shortTokens = WordText(90'000, 2, 8, " ");
    static const std::string longTokens = WordText(90'000, 100, 500, ", ");
    AddSplitRows("a settings line", settings, kSettingsDelimiters);
    AddSplitRows("90 KB of short tokens", shortTokens, kSettingsDelimiters);
    AddSplitRows("90 KB of long tokens", longTokens, kSettingsDelimiters);
}

// Settings maps.

std::map<std::string, std::string> MapWithAbsl(absl::string_view text) {
    std::map<std::string, std::string> map;
    for (const absl::string_view item : absl::StrSplit(text, ',', absl::SkipEmpty())) {
        const std::vector<absl::string_view> tokens =
            absl::StrSplit(item, absl::ByAnyChar(" \t="), absl::SkipEmpty());
        if (tokens.size() == 2) {
            map.try_emplace(std::string(tokens[0]), tokens[1]);
        } else if (const size_t equals = item.find('='); tokens.size() > 2 && equals != item.npos) {
            map.try_emplace(std::string(tokens[0]), item.substr(equals + 1));
        }
    }
    return map;
}

void AddMapRows() {
    static const std::string few = kSettings;
    static const std::string many = [] {
        Strings items = Words(1000, 4, 12);
        for (size_t i = 0; i < items.size(); ++i)
            items[i] += std::to_string(i) + "=value" + std::to_string(i);
        return Joined(items, ", ");
    }();
    const auto add = [](const char* input, const std::string& text) {
        Compare(
            "string_map::Split", input,
            [&]() -> std::map<std::string, std::string> {
                string_map map;
                map.Split(text.c_str(), 0);
                return map;
            },
            Peer("absl::StrSplit loop", [&] { return MapWithAbsl(text); }),
            Floor("copy of the map",
                  [map = MapWithAbsl(text)] { return std::map<std::string, std::string>(map); }));
    };
    add("6 keys", few);
    add("1,000 keys", many);
}

// Look-ups: the element searched for is the last one.

template <class Match>
int IndexOfFirst(const Strings& list, Match match) {
    for (size_t i = 0; i < list.size(); ++i) {
        if (match(list[i])) return static_cast<int>(i);
    }
    return -1;
}

void AddLookUpRows() {
    static const string_vector list = [] {
        string_vector lines = ListOf(DistinctLines(100'000));
        lines.back() = "The needle of this haystack";
        return lines;
    }();
    const char* const input = "100,000 lines, the last one found";

    Compare(
        "string_vector::find", input, [] { return list.find("The needle of this haystack", 0); },
        Peer("std::find", [] {
            return static_cast<int>(std::find(list.begin(), list.end(), "The needle of this haystack") -
                                    list.begin());
        }));
    Compare(
        "string_vector::findi", input, [] { return list.findi("the NEEDLE of this haystack", 0); },
        Peer("strcasecmp loop", [] {
            return IndexOfFirst(list, [](const std::string& element) {
                return ::strcasecmp(element.c_str(), "the NEEDLE of this haystack") == 0;
            });
        }));
    Compare(
        "string_vector::findwild", input, [] { return list.findwild("*needle*hay????k", 0); },
        Peer("fnmatch loop", [] {
            return IndexOfFirst(list, [](const std::string& element) {
                return ::fnmatch("*needle*hay????k", element.c_str(), 0) == 0;
            });
        }));
}

// Sorting. No two lines are alike, even without regard to case, so that the unstable peer gives the same
// order.

bool Less(const std::string& a, const std::string& b) {
    return a < b;
}
bool Greater(const std::string& a, const std::string& b) {
    return a > b;
}
bool LessAnyCase(const std::string& a, const std::string& b) {
    return ::strcasecmp(a.c_str(), b.c_str()) < 0;
}
bool GreaterAnyCase(const std::string& a, const std::string& b) {
    return ::strcasecmp(a.c_str(), b.c_str()) > 0;
}

// How the case-insensitive spreadsort sees a line.
struct FoldedByte {
    unsigned char operator()(const std::string& line, size_t at) const {
        return static_cast<unsigned char>(std::tolower(static_cast<unsigned char>(line[at])));
    }
};
struct Length {
    size_t operator()(const std::string& line) const { return line.size(); }
};

template <class SortOurs, class Order, class SortBoost>
void AddSortRow(const char* operation, const string_vector& lines, SortOurs sortOurs, Order before,
                SortBoost sortBoost) {
    const auto sorting = [&](auto sort) {
        return InPlace(
            kCacheBytes, [&lines] { return lines; }, sort);
    };
    Compare(operation, "200,000 lines", sorting(sortOurs),
            Peer("std::stable_sort", sorting([before](string_vector& list) {
                     std::stable_sort(list.begin(), list.end(), before);
                 })),
            Peer("boost string_sort", sorting(sortBoost)));
}

void AddSortRows() {
    namespace spread = boost::sort::spreadsort;
    static const string_vector lines = ListOf(DistinctLines(200'000));
    AddSortRow(
        "string_vector::sort", lines, [](string_vector& list) { list.sort(0); }, Less,
        [](string_vector& list) { spread::string_sort(list.begin(), list.end()); });
    AddSortRow(
        "string_vector::sortrev", lines, [](string_vector& list) { list.sortrev(0); }, Greater,
        [](string_vector& list) {
            spread::reverse_string_sort(list.begin(), list.end(), std::greater<std::string>());
        });
    AddSortRow(
        "string_vector::sorti", lines, [](string_vector& list) { list.sorti(0); }, LessAnyCase,
        [](string_vector& list) {
            spread::string_sort(list.begin(), list.end(), FoldedByte(), Length(), LessAnyCase);
        });
    AddSortRow(
        "string_vector::sortirev", lines, [](string_vector& list) { list.sortirev(0); }, GreaterAnyCase,
        [](string_vector& list) {
            spread::reverse_string_sort(list.begin(), list.end(), FoldedByte(), Length(), GreaterAnyCase);
        });
}

// CSV rows. No field holds a line end: what readers and writers do with those differs.

Strings Fields(size_t count, unsigned quotedPercent) {
    Strings fields = Words(count, 4, 16);
    for (size_t i = 0; i < count; ++i) {
        if (i % 100 * 7 % 100 < quotedPercent) fields[i].insert(fields[i].size() / 2, 1, i % 2 ? ',' : '"');
    }
    return fields;
}

Strings ReadWithLibcsv(const std::string& row) {
    Strings fields;
    csv_parser parser;
    csv_init(&parser, CSV_APPEND_NULL);
    const auto onField = [](void* bytes, size_t size, void* list) {
        static_cast<Strings*>(list)->emplace_back(static_cast<const char*>(bytes), size);
    };
    csv_parse(&parser, row.data(), row.size(), onField, nullptr, &fields);
    csv_fini(&parser, onField, nullptr, &fields);
    csv_free(&parser);
    return fields;
}

/// The usual parser by hand, a state for each byte.
Strings ReadByHand(const std::string& row) {
    enum { kStart, kPlain, kQuoted, kAfterQuote } state = kStart;
    Strings fields;
    std::string field;
    for (const char c : row) {
        if (state == kQuoted) {
            if (c == '"')
                state = kAfterQuote;
            else
                field += c;
        } else if (c == ',') {
            fields.push_back(field);
            field.clear();
            state = kStart;
        } else if (c == '"' && state == kStart) {
            state = kQuoted;
        } else if (c == '"' && state == kAfterQuote) {
            field += '"';
            state = kQuoted;
        } else {
            field += c;
            state = kPlain;
        }
    }
    fields.push_back(field);
    return fields;
}

bool NeedsQuotes(const std::string& field) {
    return field.find_first_of(",\"\r") != field.npos;
}

std::string WriteWithLibcsv(const Strings& fields, bool quoteAll) {
    std::string row;
    for (const std::string& field : fields) {
        if (!row.empty()) row += ',';
        if (!quoteAll && !NeedsQuotes(field)) {
            row += field;
            continue;
        }
        const size_t old = row.size();
        row.resize(old + 2 * field.size() + 2);
        row.resize(old + csv_write(row.data() + old, row.size() - old, field.data(), field.size()));
    }
    return row;
}

std::string WriteByHand(const Strings& fields, bool quoteAll) {
    std::string row;
    for (const std::string& field : fields) {
        if (!row.empty()) row += ',';
        if (!quoteAll && !NeedsQuotes(field)) {
            row += field;
            continue;
        }
        row += '"';
        for (const char c : field) {
            if (c == '\r') continue; // ours drops it
            if (c == '"') row += '"';
            row += c;
        }
        row += '"';
    }
    return row;
}

void AddCsvRows(const std::string& input, const Strings& content, bool quoteAll, double limit) {
    string_vector fields = ListOf(content);
    const std::string row = WriteByHand(fields, quoteAll);
    Compare(
        "string_vector::loadFromCSVString", input,
        [row]() -> Strings {
            string_vector list;
            list.loadFromCSVString(row.c_str(), false, ',', '"');
            return list;
        },
        Peer(
            "libcsv", [row] { return ReadWithLibcsv(row); }, limit),
        Peer(
            "state machine by hand", [row] { return ReadByHand(row); }, limit),
        Floor("copy of the fields", [content] { return Strings(content); }));
    Compare(
        "string_vector::saveToCSVString", input,
        [fields, quoteAll]() mutable { return fields.saveToCSVString(0, quoteAll, ',', '"'); },
        Peer(
            "libcsv", [fields, quoteAll] { return WriteWithLibcsv(fields, quoteAll); }, limit),
        Peer(
            "loop by hand", [fields, quoteAll] { return WriteByHand(fields, quoteAll); }, limit),
        Floor("copy of the row", [row] { return std::string(row); }));
}

void AddCsvRows() {
    AddCsvRows("10 fields, 20 % quoted", Fields(10, 20), false, 1.0);
    AddCsvRows("1,000 fields, 20 % quoted", Fields(1000, 20), false, 1.0);
    AddCsvRows("10 fields, all quoted", Fields(10, 20), true, 1.0);
    AddCsvRows("1,000 fields, all quoted", Fields(1000, 20), true, 1.05); // copying is all there is to it
}

} // namespace

void AddRows() {
    AddSplitRows();
    AddMapRows();
    AddLookUpRows();
    AddSortRows();
    AddCsvRows();
}

} // namespace bench
