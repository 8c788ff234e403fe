#pragma once

#include "tools/report/Envelope.h"

#include <string>
#include <string_view>
#include <vector>

namespace vrx::tool {

/// Text fit for the content and the attributes of HTML and XML: markup characters become entities; control
/// characters and what is no UTF-8 become U+FFFD.
std::string EscapeMarkup(std::string_view text);

/// A range of values laid along one side of a chart.
struct Scale {
    double low = 0;
    double high = 1;
    bool logarithmic = false; ///< both ends above 0

    /// 0 at the low end, 1 at the high one; values outside are taken to the nearer end.
    double Part(double value) const;
    /// About `count` round values inside the range.
    std::vector<double> Ticks(int count) const;
};

/// From a decade's 1, 2 or 5 below `low` to one above `high`, both above 0.
Scale LogarithmicScale(double low, double high);

/// One chart as an inline SVG of a fixed height that is as wide as its place: only the plot stretches, texts
/// keep their size. Colours come from the page's style by class names, and so does its place
/// beside the labels of the y axis (`kStyle`). Texts are escaped here.
class Chart {
public:
    /// What the page's style must hold for the charts to lie right.
    static constexpr char kStyle[] = "svg { display: block; overflow: visible; }\n"
                                     ".chart { width: calc(100% - 64px); margin-left: 60px; }\n"
                                     "path, line { vector-effect: non-scaling-stroke; }\n";

    /// title      what a screen reader says
    /// height     of the plot, in pixels
    /// headRows   rows of labels above it
    Chart(std::string_view title, const Scale& x, const Scale& y, int height, int headRows = 0);

    void XTick(double x, std::string_view label);
    void YTick(double y, std::string_view label);
    /// The area between each column's low and high, as steps; a column begins `width` behind the one before.
    /// `end` is where the last one ends.
    void Steps(const char* style, const std::vector<Envelope::Column>& columns, double width, double end);
    /// A bar from the bottom up to `y`.
    void Bar(const char* style, double from, double to, double y);
    /// A line across the whole chart with its label at the right end, above the line.
    void Across(const char* style, double y, std::string_view label);
    /// A line from top to bottom with its label in one of the rows above, counted from 0.
    void Upright(const char* style, double x, std::string_view label, int row);
    /// A dot; where it lies outside the chart, at the nearer edge.
    void Dot(const char* style, double x, double y);

    std::string Markup() const;

private:
    double PlotX(double x) const;
    double PlotY(double y) const;
    std::string Percent(double x) const;
    std::string Pixel(double y) const;

    std::string m_title;
    Scale m_x;
    Scale m_y;
    int m_height;
    int m_top;
    std::string m_labels; // of the y axis, left of the plot
    std::string m_grid;   // beneath the plot
    std::string m_shapes; // in the plot's own coordinates
    std::string m_over;   // lines, dots and labels
};

} // namespace vrx::tool
