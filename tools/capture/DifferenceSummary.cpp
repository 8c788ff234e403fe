#include "tools/capture/DifferenceSummary.h"

#include "tools/program/Numbers.h"
#include "tools/report/HtmlPage.h"

#include <cmath>
#include <utility>

namespace vrx::tool {

namespace {

nlohmann::ordered_json JsonOf(const Shown& value) {
    if (value.number) return nlohmann::ordered_json::parse(value.text);
    return value.text;
}

} // namespace

void DifferenceSummary::Add(const ExchangePair& pair) {
    if (pair.a && pair.b) {
        auto difference = m_comparer.Compare(*pair.a, *pair.b);
        ++(difference ? m_different : m_same);
        const SignalDistance& signals = m_comparer.LastSignals();
        m_picture.Add(!difference             ? DifferencePicture::kSame
                      : signals.differing > 0 ? DifferencePicture::kOtherSamples
                                              : DifferencePicture::kOtherwise,
                      signals);
        if (difference) Note(pair.a->number, std::move(*difference));
        return;
    }
    const Exchange& only = pair.a ? *pair.a : *pair.b;
    m_picture.Add(DifferencePicture::kMissing, {});
    ++m_missing;
    ++(pair.a ? m_onlyA : m_onlyB);
    Shown there{RequestInWords(only)};
    Shown missing{"no such exchange"};
    if (!pair.a) std::swap(there, missing);
    Note(only.number, {"request", there, missing});
}

void DifferenceSummary::Note(std::uint64_t exchange, Difference difference) {
    if (!m_first || exchange < m_first->exchange) m_first = First{exchange, std::move(difference)};
}

std::string DifferenceSummary::FirstInWords(const std::string& a, const std::string& b) const {
    if (!m_first) return {};
    const Difference& difference = m_first->difference;
    return "exchange " + std::to_string(m_first->exchange) + ", " + difference.what + ": " +
           difference.a.text + " in " + a + ", " + difference.b.text + " in " + b;
}

nlohmann::ordered_json DifferenceSummary::Json() const {
    nlohmann::ordered_json first; // null
    if (m_first)
        first = {{"exchange", m_first->exchange},
                 {"what", m_first->difference.what},
                 {"a", JsonOf(m_first->difference.a)},
                 {"b", JsonOf(m_first->difference.b)}};
    return {{"exchanges", Exchanges()},
            {"same", m_same},
            {"different", m_different},
            {"missing", m_missing},
            {"first", first}};
}

std::vector<std::pair<const char*, std::string>> DifferenceSummary::Rows() const {
    const SignalDistance& signals = m_comparer.Signals();
    return {
        {"exchanges", std::to_string(Exchanges())},
        {"same", std::to_string(m_same)},
        {"different", std::to_string(m_different)},
        {"missing", std::to_string(m_missing)},
        {"samples", std::to_string(signals.samples)},
        {"samples that differ", std::to_string(signals.differing)},
        {"largest distance",
         signals.largest > 0 ? Fixed(20 * std::log10(signals.largest), 1) + " dB" : "none"},
    };
}

std::string DifferenceSummary::Table() const {
    std::string table;
    for (const auto& [name, value] : Rows()) {
        std::string line(name);
        line.resize(22, ' ');
        line.append(value.size() < 12 ? 12 - value.size() : 0, ' ').append(value).append("\n");
        table += line;
    }
    return table;
}

std::string DifferenceSummary::Page(const std::string& a, const std::string& b) const {
    ReportTexts texts;
    texts.title = "Differences: " + a + " and " + b;
    texts.good = Same();
    texts.verdict = Same() ? "Both hold the same " + Counted(Exchanges(), "exchange") + "."
                           : "They differ, first in " + FirstInWords(a, b) + ".";
    for (const auto& [name, value] : Rows()) texts.figures.push_back({name, value});
    texts.about = "The comparison";
    texts.facts = {
        {"A", a},
        {"B", b},
        {"Tolerance", m_tolerance ? Brief(*m_tolerance) + " dB of full scale" : "none: each sample counts"},
        {"Farthest apart", m_picture.Farthest() > 0
                               ? "at place " + std::to_string(m_picture.Farthest()) + " of the pictures"
                               : "no samples differ"}};
    return HtmlPage(texts, m_picture.Figures(m_tolerance));
}

} // namespace vrx::tool
