// svg.cpp: the full 7 x 144 planner grid as an SVG picture.
#include <algorithm>

#include <fmt/format.h>

#include "planner_render.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

constexpr int kCellW = 5;
constexpr int kCellH = 26;
constexpr int kLeft = 96;
constexpr int kTop = 62;
constexpr int kGridW = kCellW * RSV_PLANNER_SLOTS_PER_DAY;
constexpr int kGridH = kCellH * RSV_PLANNER_DAYS;

struct Rgb {
    int r, g, b;
};

Rgb mix(Rgb a, Rgb b, double t)
{
    auto lerp = [t](int x, int y) { return static_cast<int>(x + (y - x) * t + 0.5); };
    return {lerp(a.r, b.r), lerp(a.g, b.g), lerp(a.b, b.b)};
}

// Free cells are pale grey; booked ones run from light yellow through orange
// to deep red at capacity; over capacity is purple.
std::string fillFor(int booked, int capacity)
{
    if (booked <= 0)
        return "#f2f2f2";
    if (capacity <= 0 || booked > capacity)
        return "#6a1b9a";
    double t = static_cast<double>(booked) / capacity;
    const Rgb low{255, 237, 160}, mid{253, 141, 60}, high{189, 0, 38};
    Rgb c = t < 0.5 ? mix(low, mid, t / 0.5) : mix(mid, high, (t - 0.5) / 0.5);
    return fmt::format("#{:02x}{:02x}{:02x}", c.r, c.g, c.b);
}

std::string escape(const std::string &text)
{
    std::string out;
    for (char c : text) {
        switch (c) {
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '&': out += "&amp;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

} // namespace

std::string renderSvg(const PlannerPicture &p)
{
    const int width = kLeft + kGridW + 24;
    const int height = kTop + kGridH + 86;
    std::string s = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\" "
        "font-family=\"sans-serif\" font-size=\"12\">\n",
        width, height);
    s += fmt::format("<rect width=\"{}\" height=\"{}\" fill=\"#ffffff\"/>\n", width, height);
    time_t sunday = cellStart(p.week, 0, 0), saturday = cellStart(p.week, 6, 0);
    s += fmt::format("<text x=\"{}\" y=\"22\" font-size=\"15\" font-weight=\"bold\">{}: booked slots of {}, week "
                     "{} to {}</text>\n",
                     kLeft, escape(p.host), p.capacity, formatTime(sunday).substr(4, 10),
                     formatTime(saturday).substr(4, 10));
    // Hour labels.
    for (int hour = 0; hour <= 24; hour += 2)
        s += fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"middle\" fill=\"#444\">{:02d}</text>\n",
                         kLeft + hour * 6 * kCellW, kTop - 8, hour);
    // Cells, one rectangle per run of equal cells.
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d) {
        int y = kTop + d * kCellH;
        std::string label = formatTime(cellStart(p.week, d, 0));
        s += fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"end\">{} {}</text>\n", kLeft - 8,
                         y + kCellH / 2 + 4, label.substr(0, 3), label.substr(9, 5));
        for (int slot = 0; slot < RSV_PLANNER_SLOTS_PER_DAY;) {
            int run = slot;
            while (run < RSV_PLANNER_SLOTS_PER_DAY && p.booked[d][run] == p.booked[d][slot])
                ++run;
            s += fmt::format("<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" fill=\"{}\"><title>{} {:02d}:{:02d}-"
                             "{:02d}:{:02d}: {} of {} slots</title></rect>\n",
                             kLeft + slot * kCellW, y, (run - slot) * kCellW, kCellH,
                             fillFor(p.booked[d][slot], p.capacity), label.substr(0, 3), slot / 6, slot % 6 * 10,
                             run / 6, run % 6 * 10, p.booked[d][slot], p.capacity);
            slot = run;
        }
    }
    // Hour lines over the cells: thin every hour, stronger every six.
    for (int hour = 0; hour <= 24; ++hour) {
        int x = kLeft + hour * 6 * kCellW;
        bool major = hour % 6 == 0;
        s += fmt::format("<line x1=\"{0}\" y1=\"{1}\" x2=\"{0}\" y2=\"{2}\" stroke=\"{3}\" stroke-width=\"{4}\"/>\n",
                         x, kTop, kTop + kGridH, major ? "#555" : "#bbb", major ? 1.2 : 0.5);
    }
    for (int d = 0; d <= RSV_PLANNER_DAYS; ++d)
        s += fmt::format("<line x1=\"{0}\" y1=\"{1}\" x2=\"{2}\" y2=\"{1}\" stroke=\"#555\" stroke-width=\"{3}\"/>\n",
                         kLeft, kTop + d * kCellH, kLeft + kGridW, d % 7 == 0 ? 1.2 : 0.6);
    // Colour scale.
    int scaleY = kTop + kGridH + 30;
    s += fmt::format("<text x=\"{}\" y=\"{}\">booked / capacity:</text>\n", kLeft, scaleY + 13);
    int x = kLeft + 120;
    for (int step = 0; step <= 10; ++step) {
        int booked = p.capacity > 0 ? (p.capacity * step + 9) / 10 : step;
        if (step > 0 && booked == 0)
            booked = 1;
        s += fmt::format("<rect x=\"{}\" y=\"{}\" width=\"34\" height=\"18\" fill=\"{}\" stroke=\"#999\" "
                         "stroke-width=\"0.5\"/>\n",
                         x, scaleY, step == 0 ? fillFor(0, p.capacity) : fillFor(booked, std::max(p.capacity, 1)));
        s += fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"middle\" font-size=\"10\">{}%</text>\n", x + 17,
                         scaleY + 32, step * 10);
        x += 36;
    }
    x += 12;
    s += fmt::format("<rect x=\"{}\" y=\"{}\" width=\"34\" height=\"18\" fill=\"#6a1b9a\" stroke=\"#999\" "
                     "stroke-width=\"0.5\"/>\n",
                     x, scaleY);
    s += fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"middle\" font-size=\"10\">over</text>\n", x + 17,
                     scaleY + 32);
    s += "</svg>\n";
    return s;
}

} // namespace rsvctl
