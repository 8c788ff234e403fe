#include "tools/report/HtmlPage.h"

namespace vrx::tool {

namespace {

constexpr char kStyle[] = R"(
:root { color-scheme: light dark; --page: #f6f7f9; --card: #fff; --ink: #1b2027; --soft: #5a6472; --line: #dfe3e8;
  --blue: #2f6fd0; --teal: #14877d; --orange: #c25a00; --red: #c92a3a; --green: #1e7d3c; }
@media (prefers-color-scheme: dark) { :root { --page: #14171c; --card: #1d2229; --ink: #e6e9ee; --soft: #9aa5b3;
  --line: #343b45; --blue: #6ea8ff; --teal: #4fc9bb; --orange: #ffa04d; --red: #ff6b78; --green: #5fd083; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1.2rem; max-width: 62rem; background: var(--page); color: var(--ink);
  font: 15px/1.45 system-ui, sans-serif; }
h1 { margin: 0; font-size: 1.35rem; overflow-wrap: anywhere; }
h2 { margin: 0; font-size: 1rem; }
p { margin: .3rem 0 0; color: var(--soft); }
.verdict { margin: .3rem 0 1rem; font-size: 1.05rem; color: var(--red); overflow-wrap: anywhere; }
.verdict.good { color: var(--green); }
.figures { display: grid; grid-template-columns: repeat(4, 1fr); gap: .6rem; margin: 0; }
@media (max-width: 34rem) { .figures { grid-template-columns: repeat(2, 1fr); } body { padding: .7rem; } }
.figures div, figure, section { background: var(--card); border: 1px solid var(--line); border-radius: .5rem; }
.figures div { padding: .5rem .7rem; }
.figures dt { color: var(--soft); font-size: .85rem; }
.figures dd { margin: 0; font-size: 1.25rem; font-variant-numeric: tabular-nums; }
figure, section { margin: .8rem 0 0; padding: .8rem; }
figcaption { margin-bottom: .5rem; }
text { font-size: 12px; fill: var(--ink); paint-order: stroke; stroke: var(--card); stroke-width: 3px; }
.grid { stroke: var(--line); } .tick { stroke: var(--soft); }
.blue { fill: var(--blue); stroke: var(--blue); } .teal { fill: var(--teal); stroke: var(--teal); }
.orange { fill: var(--orange); stroke: var(--orange); }
.dim { fill-opacity: .35; stroke-opacity: .6; }
line.deadline { stroke: var(--red); stroke-dasharray: 6 4; stroke-width: 1.5; } text.deadline { fill: var(--red); }
.quantile { stroke: var(--soft); stroke-dasharray: 2 3; }
.failed { fill: var(--red); } .retried { fill: var(--orange); }
.pair { white-space: nowrap; }
.key { display: inline-block; width: .75em; height: .75em; margin: 0 .3em 0 .4em; border-radius: 2px; }
.key.blue { background: var(--blue); } .key.teal { background: var(--teal); }
.key.orange, .key.retried { background: var(--orange); } .key.failed { background: var(--red); }
.key.failed, .key.retried { border-radius: 50%; }
table { width: 100%; border-collapse: collapse; }
th, td { padding: .3rem .5rem .3rem 0; border-top: 1px solid var(--line); text-align: left; vertical-align: top;
  overflow-wrap: anywhere; }
tr:first-child th, tr:first-child td { border-top: 0; }
th { width: 34%; color: var(--soft); font-weight: normal; }
)";

std::string Facts(const char* element, const char* name, const char* value,
                  const std::vector<ReportFact>& facts) {
    const auto wrapped = [](const std::string& tag, const std::string& text) {
        return "<" + tag + ">" + EscapeMarkup(text) + "</" + tag + ">";
    };
    std::string rows;
    for (const ReportFact& fact : facts)
        rows += std::string("<") + element + ">" + wrapped(name, fact.name) + wrapped(value, fact.value) +
                "</" + element + ">\n";
    return rows;
}

} // namespace

std::string Key(const char* style, const char* text) {
    return std::string(" <span class=\"pair\"><span class=\"key ") + style + "\"></span>" + text + "</span>";
}

std::string Figure(const char* title, const std::string& legend, const Chart& chart) {
    return std::string("<figure><figcaption><h2>") + title + "</h2><p>" + legend + "</p></figcaption>\n" +
           chart.Markup() + "</figure>\n";
}

std::string HtmlPage(const ReportTexts& texts, const std::string& figures) {
    const std::string title = EscapeMarkup(texts.title);
    return "<!DOCTYPE html>\n<html lang=\"en\" xmlns=\"http://www.w3.org/1999/xhtml\">\n<head>\n"
           "<meta charset=\"utf-8\"/>\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
           "'unsafe-inline'\"/>\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n<title>" +
           title + "</title>\n<style>" + kStyle + Chart::kStyle + "</style>\n</head>\n<body>\n<h1>" + title +
           "</h1>\n<p class=\"verdict" + (texts.good ? " good" : "") + "\">" + EscapeMarkup(texts.verdict) +
           "</p>\n<dl class=\"figures\">\n" + Facts("div", "dt", "dd", texts.figures) + "</dl>\n" + figures +
           "<section><h2>" + EscapeMarkup(texts.about) + "</h2>\n<table>\n" +
           Facts("tr", "th", "td", texts.facts) + "</table></section>\n</body>\n</html>\n";
}

} // namespace vrx::tool
