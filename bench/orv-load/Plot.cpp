#include "bench/orv-load/Plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace OrvLoad {
namespace {

constexpr double kWidth = 720;
constexpr double kHeight = 420;
constexpr double kLeft = 70;
constexpr double kRight = 110;
constexpr double kTop = 20;
constexpr double kBottom = 55;
constexpr const char* kColours[] = {"#1f5fa8", "#888888", "#b8452c", "#3c8a4c"};

// Whole powers of ten around all values of one axis.
struct Axis {
    double low = 1e300;
    double high = 0;
    void Hold(double value) {
        low = std::min(low, value);
        high = std::max(high, value);
    }
    void Round() {
        low = std::pow(10, std::floor(std::log10(low)));
        high = std::pow(10, std::ceil(std::log10(high)));
        if (high <= low) high = low * 10;
    }
    double Share(double value) const { return std::log(value / low) / std::log(high / low); }
};

double X(const Axis& axis, double value) {
    return kLeft + axis.Share(value) * (kWidth - kLeft - kRight);
}
double Y(const Axis& axis, double value) {
    return kHeight - kBottom - axis.Share(value) * (kHeight - kTop - kBottom);
}

template <typename... Values>
std::string Format(const char* format, Values... values) {
    char text[512];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

std::string Line(double x1, double y1, double x2, double y2) {
    return Format("<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='#dddddd'/>\n", x1, y1, x2, y2);
}

std::string Label(double x, double y, const char* anchor, const std::string& text) {
    return Format("<text x='%.1f' y='%.1f' text-anchor='%s'>", x, y, anchor) + text + "</text>\n";
}

std::string Grid(const Axis& x, const Axis& y) {
    std::string text;
    for (double value = x.low; value <= x.high * 1.001; value *= 10) {
        text += Line(X(x, value), kTop, X(x, value), kHeight - kBottom);
        text += Label(X(x, value), kHeight - kBottom + 18, "middle", Format("%g", value));
    }
    for (double decade = y.low; decade <= y.high * 1.001; decade *= 10) {
        for (const double step : {1.0, 2.0, 5.0}) {
            const double value = decade * step;
            if (value > y.high * 1.001) break;
            text += Line(kLeft, Y(y, value), kWidth - kRight, Y(y, value));
            text += Label(kLeft - 8, Y(y, value) + 4, "end", Format("%g", value));
        }
    }
    return text;
}

std::string Draw(const Curve& curve, const char* colour, const Axis& x, const Axis& y) {
    std::string points;
    std::string text;
    for (const auto& [px, py] : curve.points) {
        points += Format("%.1f,%.1f ", X(x, px), Y(y, py));
        text += Format("<circle cx='%.1f' cy='%.1f' r='3.5' fill='%s'/>\n", X(x, px), Y(y, py), colour);
        text += Label(X(x, px), Y(y, py) - 8, "middle", Format("%.3g", py));
    }
    if (curve.points.empty()) return text;
    const auto& [lastX, lastY] = curve.points.back();
    text += Label(X(x, lastX) + 12, Y(y, lastY) + 4, "start", curve.name);
    return "<polyline points='" + points + "' fill='none' stroke='" + colour + "' stroke-width='2'/>\n" + text;
}

}  // namespace

std::string PlotCurves(const std::string& xTitle, const std::string& yTitle, const std::vector<Curve>& curves) {
    Axis x;
    Axis y;
    for (const Curve& curve : curves) {
        for (const auto& [px, py] : curve.points) {
            x.Hold(px);
            y.Hold(py);
        }
    }
    x.Round();
    y.Round();
    std::string text = Format("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 %.0f %.0f' ", kWidth, kHeight) +
                       "font-family='sans-serif' font-size='12'>\n<rect width='100%' height='100%' fill='white'/>\n";
    text += Grid(x, y);
    for (std::size_t i = 0; i < curves.size(); ++i) text += Draw(curves[i], kColours[i % std::size(kColours)], x, y);
    text += Label((kLeft + kWidth - kRight) / 2, kHeight - 12, "middle", xTitle);
    text += Format("<text x='18' y='%.1f' text-anchor='middle' transform='rotate(-90 18 %.1f)'>",
                   (kTop + kHeight - kBottom) / 2, (kTop + kHeight - kBottom) / 2) +
            yTitle + "</text>\n</svg>\n";
    return text;
}

}  // namespace OrvLoad
