#include "bench/orv-load/Plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

namespace OrvLoad {
namespace {

constexpr double kWidth = 720;
constexpr double kHeight = 420;
constexpr double kLeft = 70;
constexpr double kRight = 105;
constexpr double kTop = 20;
constexpr double kBottom = 55;
constexpr const char* kColours[] = {"#1f5fa8", "#888888", "#b8452c", "#3c8a4c"};

struct Range {
    double low = 1e300;
    double high = -1e300;
    void Hold(double value) {
        low = std::min(low, value);
        high = std::max(high, value);
    }
};

// Where values lie on the paper: the upper axis from 0 on and even, the lower one logarithmic and as wide as its
// values.
class Paper {
public:
    explicit Paper(const std::vector<Curve>& curves) {
        Range x;
        Range y;
        for (const Curve& curve : curves) {
            for (const auto& [px, py] : curve.points) {
                x.Hold(px);
                y.Hold(py);
                ticks_.insert(px);
            }
        }
        if (ticks_.empty()) x = y = {1, 10};
        low_ = x.low;
        span_ = std::log(std::max(x.high, x.low * 1.001) / x.low);
        step_ = NiceStep(y.high / kSteps);
        top_ = step_ * std::ceil(y.high * kHeadroom / step_);
    }
    double X(double value) const {
        return kLeft + kInset + std::log(value / low_) / span_ * (kWidth - kLeft - kRight - 2 * kInset);
    }
    double Y(double value) const { return kHeight - kBottom - value / top_ * (kHeight - kTop - kBottom); }
    double Step() const { return step_; }
    double Top() const { return top_; }
    // The values of the lower axis that occur.
    const std::set<double>& Ticks() const { return ticks_; }

private:
    static constexpr double kSteps = 5;
    static constexpr double kHeadroom = 1.1;  // for the labels above the highest point
    static constexpr double kInset = 25;

    // 1, 2 or 5 times a power of ten, not below `least`.
    static double NiceStep(double least) {
        const double power = std::pow(10, std::floor(std::log10(least)));
        for (const double factor : {1.0, 2.0, 5.0}) {
            if (factor * power >= least) return factor * power;
        }
        return 10 * power;
    }

    double low_ = 1;
    double span_ = 1;
    double step_ = 1;
    double top_ = 1;
    std::set<double> ticks_;
};

template <typename... Values>
std::string Format(const char* format, Values... values) {
    char text[512];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

std::string Line(double x1, double y1, double x2, double y2) {
    return Format("<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='#dddddd'/>\n", x1, y1, x2, y2);
}

std::string Label(double x, double y, const char* anchor, const std::string& text, const char* colour = "#333333") {
    return Format("<text x='%.1f' y='%.1f' text-anchor='%s' fill='%s'>", x, y, anchor, colour) + text + "</text>\n";
}

std::string GridLines(const Paper& paper) {
    std::string text;
    for (const double value : paper.Ticks()) {
        text += Line(paper.X(value), kTop, paper.X(value), kHeight - kBottom);
        text += Label(paper.X(value), kHeight - kBottom + 18, "middle", Format("%g", value));
    }
    for (double value = 0; value <= paper.Top() * 1.001; value += paper.Step()) {
        text += Line(kLeft, paper.Y(value), kWidth - kRight, paper.Y(value));
        text += Label(kLeft - 8, paper.Y(value) + 4, "end", Format("%g", value));
    }
    return text;
}

// Whether another curve has a higher point there, so that the label has to go below.
bool IsUnder(const std::vector<Curve>& curves, double x, double y) {
    for (const Curve& curve : curves) {
        for (const auto& [px, py] : curve.points) {
            if (px == x && py > y) return true;
        }
    }
    return false;
}

std::string Draw(const std::vector<Curve>& curves, std::size_t index, const Paper& paper) {
    const Curve& curve = curves[index];
    const char* const colour = kColours[index % std::size(kColours)];
    std::string points;
    std::string text;
    for (const auto& [px, py] : curve.points) {
        points += Format("%.1f,%.1f ", paper.X(px), paper.Y(py));
        text += Format("<circle cx='%.1f' cy='%.1f' r='3.5' fill='%s'/>\n", paper.X(px), paper.Y(py), colour);
        const double away = IsUnder(curves, px, py) ? 18 : -9;
        text += Label(paper.X(px), paper.Y(py) + away, "middle", Format("%.3f", py), colour);
    }
    const double legend = kTop + 16 + 18 * static_cast<double>(index);
    text += Format("<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='%s' stroke-width='2'/>\n",
                   kWidth - kRight + 14, legend - 4, kWidth - kRight + 38, legend - 4, colour);
    text += Label(kWidth - kRight + 44, legend, "start", curve.name, colour);
    return "<polyline points='" + points + "' fill='none' stroke='" + colour + "' stroke-width='2'/>\n" + text;
}

}  // namespace

std::string PlotCurves(const std::string& xTitle, const std::string& yTitle, const std::vector<Curve>& curves) {
    const Paper paper(curves);
    std::string text = Format("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 %.0f %.0f' ", kWidth, kHeight) +
                       "font-family='sans-serif' font-size='12'>\n<rect width='100%' height='100%' fill='white'/>\n";
    text += GridLines(paper);
    for (std::size_t i = 0; i < curves.size(); ++i) text += Draw(curves, i, paper);
    text += Label((kLeft + kWidth - kRight) / 2, kHeight - 12, "middle", xTitle);
    text += Format("<text x='18' y='%.1f' text-anchor='middle' fill='#333333' transform='rotate(-90 18 %.1f)'>",
                   (kTop + kHeight - kBottom) / 2, (kTop + kHeight - kBottom) / 2) +
            yTitle + "</text>\n</svg>\n";
    return text;
}

}  // namespace OrvLoad
