#include "tools/report/Svg.h"

#include "tools/program/Numbers.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace vrx::tool {

namespace {

constexpr int kRow = 17;        // pixels of a row of labels
constexpr int kAxis = 22;       // pixels beneath the plot for the labels of the x axis
constexpr double kUnits = 1000; // the plot's own width and height

/// How many bytes the UTF-8 character at `at` has; 0 when there is none.
std::size_t Utf8Length(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(at);
    const std::size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || first > 0xF4 || text.size() - at < length) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
    if (length < 3) return length;
    // The second byte rules out overlong forms, surrogates, and what lies beyond U+10FFFF.
    const unsigned char second = byte(at + 1);
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
    if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
    const bool noncharacter = first == 0xEF && second == 0xBF && byte(at + 2) > 0xBD; // U+FFFE, U+FFFF
    return noncharacter ? 0 : length;
}

std::string Attribute(const char* name, std::string_view value) {
    return std::string(" ") + name + "=\"" + std::string(value) + "\"";
}

// Round values are 1, 2 and 5 times a power of ten: the nearest one not above `value`, not below it.
double RoundDown(double value) {
    const double decade = std::pow(10, std::floor(std::log10(value) + 1e-9));
    for (const double factor : {5.0, 2.0})
        if (factor * decade <= value * (1 + 1e-9)) return factor * decade;
    return decade;
}

double RoundUp(double value) {
    const double decade = std::pow(10, std::floor(std::log10(value) + 1e-9));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * decade >= value * (1 - 1e-9)) return factor * decade;
    return 10 * decade;
}

std::vector<double> LogarithmicTicks(double low, double high) {
    const bool decadesOnly = high / low >= 500;
    const int last = static_cast<int>(std::floor(std::log10(high) + 1e-9));
    std::vector<double> ticks;
    for (int decade = static_cast<int>(std::floor(std::log10(low))); decade <= last; ++decade)
        for (const double factor : {1.0, 2.0, 5.0}) {
            const double at = factor * std::pow(10, decade);
            const bool inside = at >= low * (1 - 1e-9) && at <= high * (1 + 1e-9);
            if (inside && (factor < 2 || !decadesOnly)) ticks.push_back(at);
        }
    return ticks;
}

} // namespace

std::string EscapeMarkup(std::string_view text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = Utf8Length(text, at);
        const std::string_view character = text.substr(at, std::max<std::size_t>(1, length));
        const auto byte = static_cast<unsigned char>(character[0]);
        at += character.size();
        if (length == 0 || byte < 0x20 || byte == 0x7F)
            out += "\xEF\xBF\xBD"; // U+FFFD
        else if (byte == '&')
            out += "&amp;";
        else if (byte == '<')
            out += "&lt;";
        else if (byte == '>')
            out += "&gt;";
        else if (byte == '"')
            out += "&quot;";
        else
            out += character;
    }
    return out;
}

double Scale::Part(double value) const {
    if (!(value > low) || !(high > low)) return 0;
    if (value >= high) return 1;
    if (logarithmic) return std::log(value / low) / std::log(high / low);
    return (value - low) / (high - low);
}

std::vector<double> Scale::Ticks(int count) const {
    if (!(high > low)) return {};
    if (logarithmic) return LogarithmicTicks(low, high);
    std::vector<double> ticks;
    const double step = RoundUp((high - low) / count);
    const auto first = std::lround(std::ceil(low / step - 1e-9));
    const auto last = std::lround(std::floor(high / step + 1e-9));
    for (long n = first; n <= last; ++n) ticks.push_back(static_cast<double>(n) * step);
    return ticks;
}

Scale LogarithmicScale(double low, double high) {
    Scale scale{RoundDown(low), RoundUp(high), true};
    if (scale.low > low * 0.999) scale.low = RoundDown(low * 0.9); // room at both ends
    if (scale.high < high * 1.001) scale.high = RoundUp(high * 1.1);
    return scale;
}

Chart::Chart(std::string_view title, const Scale& x, const Scale& y, int height, int headRows)
    : m_title(EscapeMarkup(title)), m_x(x), m_y(y), m_height(height), m_top(6 + headRows * kRow) {}

double Chart::PlotX(double x) const {
    return m_x.Part(x) * kUnits;
}

double Chart::PlotY(double y) const {
    return (1 - m_y.Part(y)) * kUnits;
}

std::string Chart::Percent(double x) const {
    return Fixed(m_x.Part(x) * 100, 2) + "%";
}

std::string Chart::Pixel(double y) const {
    return Fixed(m_top + (1 - m_y.Part(y)) * m_height, 1);
}

void Chart::XTick(double x, std::string_view label) {
    const double part = m_x.Part(x);
    const char* anchor = part < 0.03 ? "start" : part > 0.94 ? "end" : "middle";
    m_grid += "<line" + Attribute("class", "tick") + Attribute("x1", Percent(x)) +
              Attribute("x2", Percent(x)) + Attribute("y1", std::to_string(m_top + m_height)) +
              Attribute("y2", std::to_string(m_top + m_height + 4)) + "/>";
    m_over += "<text" + Attribute("x", Percent(x)) + Attribute("y", std::to_string(m_top + m_height + 17)) +
              Attribute("text-anchor", anchor) + ">" + EscapeMarkup(label) + "</text>\n";
}

void Chart::YTick(double y, std::string_view label) {
    m_grid += "<line" + Attribute("class", "grid") + Attribute("x1", "0") + Attribute("x2", "100%") +
              Attribute("y1", Pixel(y)) + Attribute("y2", Pixel(y)) + "/>";
    m_labels += "<text x=\"-6\" text-anchor=\"end\" dy=\"4\"" + Attribute("y", Pixel(y)) + ">" +
                EscapeMarkup(label) + "</text>\n";
}

void Chart::Steps(const char* style, const std::vector<Envelope::Column>& columns, double width, double end) {
    if (columns.empty()) return;
    std::string forth;
    std::string back;
    const auto from = [&](std::size_t i) { return Fixed(PlotX(static_cast<double>(i) * width), 1); };
    const auto to = [&](std::size_t i) {
        return i + 1 < columns.size() ? from(i + 1) : Fixed(PlotX(end), 1);
    };
    for (std::size_t i = 0; i < columns.size(); ++i)
        forth += (i == 0 ? "M" + from(0) + " " : "V") + Fixed(PlotY(columns[i].high), 1) + "H" + to(i);
    for (std::size_t i = columns.size(); i-- > 0;)
        back += "V" + Fixed(PlotY(columns[i].low), 1) + "H" + from(i);
    m_shapes += "<path" + Attribute("class", style) + Attribute("d", forth + back + "Z") + "/>\n";
}

void Chart::Bar(const char* style, double from, double to, double y) {
    m_shapes += "<path" + Attribute("class", style) +
                Attribute("d", "M" + Fixed(PlotX(from), 1) + " 1000V" + Fixed(PlotY(y), 1) + "H" +
                                   Fixed(PlotX(to), 1) + "V1000Z") +
                "/>\n";
}

void Chart::Across(const char* style, double y, std::string_view label) {
    m_over += "<line" + Attribute("class", style) + Attribute("x1", "0") + Attribute("x2", "100%") +
              Attribute("y1", Pixel(y)) + Attribute("y2", Pixel(y)) + "/>";
    m_over += "<text" + Attribute("class", style) + Attribute("x", "99.5%") + Attribute("y", Pixel(y)) +
              Attribute("dy", "-4") + Attribute("text-anchor", "end") + ">" + EscapeMarkup(label) +
              "</text>\n";
}

void Chart::Upright(const char* style, double x, std::string_view label, int row) {
    const int y = kRow * (row + 1);
    const bool leftwards = m_x.Part(x) > 0.6;
    m_over += "<line" + Attribute("class", style) + Attribute("x1", Percent(x)) +
              Attribute("x2", Percent(x)) + Attribute("y1", std::to_string(y - 10)) +
              Attribute("y2", std::to_string(m_top + m_height)) + "/>";
    m_over += "<text" + Attribute("x", Percent(x)) + Attribute("dx", leftwards ? "-5" : "5") +
              Attribute("y", std::to_string(y)) + Attribute("text-anchor", leftwards ? "end" : "start") +
              ">" + EscapeMarkup(label) + "</text>\n";
}

void Chart::Dot(const char* style, double x, double y) {
    m_over += "<circle" + Attribute("class", style) + Attribute("cx", Percent(x)) +
              Attribute("cy", Pixel(y)) + Attribute("r", "3.5") + "/>\n";
}

std::string Chart::Markup() const {
    const std::string height = std::to_string(m_height);
    return "<svg class=\"chart\" role=\"img\"" +
           Attribute("height", std::to_string(m_top + m_height + kAxis)) + "><title>" + m_title +
           "</title>\n" + m_labels + m_grid + "\n<svg width=\"100%\"" +
           Attribute("y", std::to_string(m_top)) + Attribute("height", height) +
           " viewBox=\"0 0 1000 1000\" preserveAspectRatio=\"none\">\n" + m_shapes + "</svg>\n" + m_over +
           "</svg>\n";
}

} // namespace vrx::tool
