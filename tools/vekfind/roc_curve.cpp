#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "vekfind/operating_points.h"

namespace calibration {
namespace {

constexpr double LEFT = 70, RIGHT = 570, TOP = 30, BOTTOM = 350;
constexpr double LEAST_RATE = 1e-5;

double x_of(double false_rate) {
    const double decades = std::log10(false_rate / LEAST_RATE);
    return LEFT + (RIGHT - LEFT) * decades / -std::log10(LEAST_RATE);
}
double y_of(double true_rate) {
    return BOTTOM + (TOP - BOTTOM) * true_rate;
}

[[gnu::format(printf, 2, 3)]] void append(std::string& text, const char* format, ...) {
    char line[400];
    va_list values;
    va_start(values, format);
    std::vsnprintf(line, sizeof(line), format, values);
    va_end(values);
    text += line;
}

void append_text(std::string& svg, double x, double y, const char* anchor, const char* text) {
    append(svg, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\" fill=\"#222222\">%s</text>\n", x, y,
           anchor, text);
}

void append_line(std::string& svg, double x1, double y1, double x2, double y2) {
    append(svg, "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#dddddd\"/>\n", x1,
           y1, x2, y2);
}

void append_axes(std::string& svg) {
    char label[32];
    for (int power = -5; power <= 0; ++power) {
        const double rate = std::pow(10, power);
        append_line(svg, x_of(rate), TOP, x_of(rate), BOTTOM);
        std::snprintf(label, sizeof(label), "%g", rate);
        append_text(svg, x_of(rate), BOTTOM + 20, "middle", label);
    }
    for (int fifth = 0; fifth <= 5; ++fifth) {
        const double rate = fifth / 5.0;
        append_line(svg, LEFT, y_of(rate), RIGHT, y_of(rate));
        std::snprintf(label, sizeof(label), "%.1f", rate);
        append_text(svg, LEFT - 8, y_of(rate) + 4, "end", label);
    }
    append_text(svg, (LEFT + RIGHT) / 2, BOTTOM + 42, "middle", "false accept rate");
    append(svg, "<g transform=\"rotate(-90 20 %.1f)\">\n", (TOP + BOTTOM) / 2);
    append_text(svg, 20, (TOP + BOTTOM) / 2, "middle", "true accept rate");
    svg += "</g>\n";
}

}  // namespace

std::string draw_roc_curve(const Pairs& pairs, const std::vector<OperatingPoint>& points) {
    constexpr int PLACES = 250;  // of the curve, two units wide each
    std::string svg =
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 600 410\" width=\"600\" "
        "height=\"410\" font-family=\"sans-serif\" font-size=\"13\">\n"
        "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    append_axes(svg);
    svg += "<polyline fill=\"none\" stroke=\"#0072b2\" stroke-width=\"2\" points=\"";
    const auto nr_other = static_cast<double>(pairs.other.size());
    const auto nr_same = static_cast<double>(pairs.same.size());
    for (int place = 0; place <= PLACES; ++place) {
        const double rate = std::pow(LEAST_RATE, 1 - place / double{PLACES});
        const auto nr_false = static_cast<size_t>(rate * nr_other);
        if (nr_false == 0)
            continue;  // nothing was measured here
        const auto end =
            std::upper_bound(pairs.same.begin(), pairs.same.end(), pairs.other[nr_false - 1]);
        append(svg, "%.1f,%.1f ", x_of(rate),
               y_of(static_cast<double>(end - pairs.same.begin()) / nr_same));
    }
    svg += "\"/>\n";
    for (const OperatingPoint& point : points) {
        if (point.has_threshold())
            append(svg,
                   "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"4\" fill=\"#d55e00\">"
                   "<title>threshold %.9g</title></circle>\n",
                   x_of(point.rate()), y_of(point.true_rate), double{point.threshold});
    }
    return svg + "</svg>\n";
}

}  // namespace calibration
