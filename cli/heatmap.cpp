// heatmap.cpp: the terminal picture of a host's week.
#include <algorithm>

#include <fmt/format.h>

#include "planner_render.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

constexpr char kShadeChars[] = {'.', '-', '+', '*', '#', '@', '!'};
// Background colours of the 256-colour palette, from free to over capacity.
constexpr int kShadeColours[] = {0, 151, 186, 221, 208, 196, 129};
constexpr int kColumns = 48;  // 30 minutes each

std::string weekTitle(const PlannerPicture &p)
{
    time_t sunday = cellStart(p.week, 0, 0), saturday = cellStart(p.week, 6, 0);
    return fmt::format("{}: {} slots, week {} to {}", p.host, p.capacity, formatTime(sunday).substr(0, 14),
                       formatTime(saturday).substr(0, 14));
}

} // namespace

int shadeLevel(int booked, int capacity)
{
    if (booked <= 0)
        return 0;
    if (capacity <= 0 || booked > capacity)
        return 6;
    if (booked == capacity)
        return 5;
    // Quarters, rounded up: any booking shows.
    return std::clamp((booked * 4 + capacity - 1) / capacity, 1, 4);
}

std::string renderHeatMap(const PlannerPicture &p, bool colour)
{
    std::string out = weekTitle(p) + "\n";
    const std::string pad(11, ' ');
    std::string ruler = pad, ticks = pad;
    for (int col = 0; col < kColumns; ++col) {
        int hour = col / 2;
        bool mark = col % 6 == 0;
        ticks += mark ? '|' : ' ';
        if (mark) {
            std::string label = std::to_string(hour);
            ruler += label;
            col += static_cast<int>(label.size()) - 1;
            ticks += std::string(label.size() - 1, ' ');
        } else {
            ruler += ' ';
        }
    }
    auto trimmed = [](std::string line) { return line.erase(line.find_last_not_of(' ') + 1); };
    out += trimmed(ruler) + "\n" + trimmed(ticks) + "\n";
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d) {
        time_t day = cellStart(p.week, d, 0);
        std::string label = formatTime(day);  // "Sun 2026-11-22 00:00"
        out += fmt::format("{} {}  ", label.substr(0, 3), label.substr(9, 5));
        int lastLevel = -1;
        for (int col = 0; col < kColumns; ++col) {
            int busiest = 0;
            for (int s = col * 3; s < col * 3 + 3; ++s)
                busiest = std::max(busiest, p.booked[d][s]);
            int level = shadeLevel(busiest, p.capacity);
            if (colour && level != lastLevel) {
                out += level == 0 ? "\x1b[0m\x1b[90m" : fmt::format("\x1b[0m\x1b[30;48;5;{}m", kShadeColours[level]);
                lastLevel = level;
            }
            out += kShadeChars[level];
        }
        if (colour)
            out += "\x1b[0m";
        out += "\n";
    }
    std::string legend = "legend: ";
    const char *words[] = {"free", "<=25%", "<=50%", "<=75%", "<100%", "full", "over"};
    for (int level = 0; level < 7; ++level) {
        if (colour && level > 0)
            legend += fmt::format("\x1b[30;48;5;{}m{}\x1b[0m", kShadeColours[level], kShadeChars[level]);
        else
            legend += kShadeChars[level];
        legend += fmt::format(" {}{}", words[level], level < 6 ? "  " : "");
    }
    out += legend + "   (30 min per column)\n";
    return out;
}

} // namespace rsvctl
