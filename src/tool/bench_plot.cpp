#include "tool/bench_plot.h"

#include "tool/bench_front.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace tool {
namespace {

constexpr double width = 1000;
constexpr double height = 600;

/// Colours of the methods, distinguishable with colour blindness (Okabe and Ito 2008).
constexpr std::array method_colours{"#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00"};

struct point {
    double x = 0;
    double y = 0;
};

struct box {
    double left = 0;
    double top = 0;
    double right = 0;
    double bottom = 0;

    bool overlaps(const box& other) const
    {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
    bool contains(const box& other) const
    {
        return left <= other.left && top <= other.top && right >= other.right &&
               bottom >= other.bottom;
    }
};

box around(point centre, double half_width, double half_height)
{
    return {centre.x - half_width, centre.y - half_height, centre.x + half_width,
            centre.y + half_height};
}

/// Returns a number with `digits` decimals.
std::string fixed(double value, int digits)
{
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return text.data();
}

/// Returns a number with as many digits as it needs, at most 6.
std::string shortest(double value)
{
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "%g", value);
    return text.data();
}

std::string attribute(const char* name, double value)
{
    return std::string(" ") + name + "=\"" + fixed(value, 1) + "\"";
}

/// Returns UTF-8 text for the content of an element: markup is escaped, and the two characters that
/// printable() allows but XML doesn't become question marks.
std::string escaped(std::string_view text)
{
    std::string made;
    for (size_t index = 0; index < text.size(); ++index) {
        const std::string_view rest = text.substr(index, 3);
        if (rest == "\xEF\xBF\xBE" || rest == "\xEF\xBF\xBF") {
            made += '?';
            index += 2;
        } else if (text[index] == '&') {
            made += "&amp;";
        } else if (text[index] == '<') {
            made += "&lt;";
        } else if (text[index] == '>') {
            made += "&gt;";
        } else {
            made += text[index];
        }
    }
    return made;
}

std::string text_element(point at, const std::string& attributes, std::string_view text)
{
    return "<text" + attribute("x", at.x) + attribute("y", at.y) + attributes + ">" +
           escaped(text) + "</text>\n";
}

std::string line_element(point from, point to, const char* attributes)
{
    return "<line" + attribute("x1", from.x) + attribute("y1", from.y) + attribute("x2", to.x) +
           attribute("y2", to.y) + attributes + "/>\n";
}

std::string circle_element(point centre, double radius, const char* colour)
{
    return "<circle" + attribute("cx", centre.x) + attribute("cy", centre.y) +
           attribute("r", radius) + " fill=\"" + colour + "\"";
}

/// The values that an axis shows, and the marks on it.
struct axis {
    double low = 0;
    double high = 0;
    std::vector<double> marks;
};

/// Returns a logarithmic axis for positive values, with marks at powers of 10 and, if they are few,
/// at 2 and 5 times them.
axis speed_axis(const std::vector<double>& speeds)
{
    const auto [least, most] = std::minmax_element(speeds.begin(), speeds.end());
    axis made{*least / 1.3, *most * 1.3, {}};
    const int first = static_cast<int>(std::floor(std::log10(made.low)));
    const int last = static_cast<int>(std::ceil(std::log10(made.high)));
    for (int power = first; power <= last; ++power)
        for (const double step : {1.0, 2.0, 5.0}) {
            const double mark = step * std::pow(10.0, power);
            const bool is_shown = step == 1.0 || last - first <= 4;
            if (is_shown && mark >= made.low && mark <= made.high) made.marks.push_back(mark);
        }
    return made;
}

/// Returns a linear axis with four to eleven marks.
axis ratio_axis(const std::vector<bench_result>& results)
{
    const auto is_smaller = [](const bench_result& one, const bench_result& other) {
        return one.ratio() < other.ratio();
    };
    const auto [least, most] = std::minmax_element(results.begin(), results.end(), is_smaller);
    const double margin = std::max((most->ratio() - least->ratio()) * 0.06, most->ratio() * 0.02);
    axis made{std::max(least->ratio() - margin, 0.0), most->ratio() + margin, {}};
    const double range = made.high - made.low;
    double step = std::pow(10.0, std::floor(std::log10(range)));
    if (range / step < 2)
        step /= 5;
    else if (range / step < 5)
        step /= 2;
    for (double mark = std::ceil(made.low / step) * step; mark <= made.high; mark += step)
        made.marks.push_back(mark);
    return made;
}

/// Places the labels of points so that, if there is room, they cover neither points nor each other.
class label_placer {
  public:
    label_placer(const box& frame, const std::vector<point>& points) : frame_(frame)
    {
        for (const point& each : points) taken_.push_back(around(each, 3, 3));
    }

    /// Returns the centre of the label of a point.
    point place(point at)
    {
        point best = at;
        size_t fewest = SIZE_MAX;
        for (const double distance : {1.0, 1.7, 2.5})
            for (const point& direction : directions) {
                const point centre{at.x + direction.x * distance, at.y + direction.y * distance};
                const size_t covered = count_covered(centre);
                if (covered >= fewest) continue;
                best = centre;
                fewest = covered;
            }
        taken_.push_back(label_box(best));
        return best;
    }

  private:
    static constexpr std::array directions{point{11, 0}, point{-11, 0}, point{0, -9}, point{0, 9},
                                           point{9, -7}, point{-9, -7}, point{9, 7},  point{-9, 7}};

    static box label_box(point centre) { return around(centre, 6.5, 5); }

    size_t count_covered(point centre) const
    {
        const box wanted = label_box(centre);
        const auto covers = [&](const box& other) { return wanted.overlaps(other); };
        const auto count = static_cast<size_t>(std::count_if(taken_.begin(), taken_.end(), covers));
        return frame_.contains(wanted) ? count : count + taken_.size();
    }

    box frame_;
    std::vector<box> taken_;
};

/// One direction: its speeds against ratios.
class panel {
  public:
    panel(const box& frame, const std::vector<bench_result>& results, bench_speed speed)
        : frame_(frame), results_(results), speed_(speed), ratios_(ratio_axis(results))
    {
        std::vector<double> values;
        values.reserve(results.size());
        points_.reserve(results.size());
        for (const bench_result& each : results) values.push_back((each.*speed)());
        speeds_ = speed_axis(values);
        for (const bench_result& each : results)
            points_.push_back({x_of((each.*speed)()), y_of(each.ratio())});
    }

    std::string draw(const char* title) const
    {
        return draw_axes(title) + draw_front() + draw_points() + draw_labels();
    }

  private:
    double x_of(double speed) const
    {
        const double part = std::log(speed / speeds_.low) / std::log(speeds_.high / speeds_.low);
        return frame_.left + part * (frame_.right - frame_.left);
    }

    double y_of(double ratio) const
    {
        const double part = (ratio - ratios_.low) / (ratios_.high - ratios_.low);
        return frame_.bottom - part * (frame_.bottom - frame_.top);
    }

    std::string draw_axes(const char* title) const
    {
        constexpr const char* grid = " stroke=\"#dddddd\"";
        std::string made;
        for (const double mark : speeds_.marks) {
            const double x = x_of(mark);
            made += line_element({x, frame_.top}, {x, frame_.bottom}, grid);
            made +=
                text_element({x, frame_.bottom + 16}, " text-anchor=\"middle\"", shortest(mark));
        }
        const double step = ratios_.marks.size() > 1 ? ratios_.marks[1] - ratios_.marks[0] : 1;
        const int digits = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 0.01)), 2, 9);
        for (const double mark : ratios_.marks) {
            const double y = y_of(mark);
            made += line_element({frame_.left, y}, {frame_.right, y}, grid);
            made +=
                text_element({frame_.left - 6, y + 4}, " text-anchor=\"end\"", fixed(mark, digits));
        }
        const double middle = (frame_.left + frame_.right) / 2;
        made += "<rect" + attribute("x", frame_.left) + attribute("y", frame_.top) +
                attribute("width", frame_.right - frame_.left) +
                attribute("height", frame_.bottom - frame_.top) +
                " fill=\"none\" stroke=\"#888888\"/>\n";
        return made + text_element({middle, frame_.bottom + 36}, " text-anchor=\"middle\"", title);
    }

    std::string draw_front() const
    {
        std::string made = "<polyline class=\"front\" fill=\"none\" stroke=\"#444444\" points=\"";
        for (const size_t index : front_order(results_, speed_))
            made += fixed(points_[index].x, 1) + "," + fixed(points_[index].y, 1) + " ";
        return made + "\"/>\n";
    }

    std::string draw_points() const
    {
        const std::vector<bool> on_front = front_of(results_, speed_);
        std::string made;
        for (size_t index = 0; index < results_.size(); ++index) {
            const bench_result& result = results_[index];
            const auto method = static_cast<size_t>(result.cell / 10 - 1);
            const double speed = (result.*speed_)();
            made +=
                circle_element(points_[index], on_front[index] ? 4 : 2.5, method_colours[method]) +
                "><title>" + std::to_string(result.cell) + ": ratio " + fixed(result.ratio(), 4) +
                ", " + fixed(speed, speed < 10 ? 2 : 1) + " MB/s</title></circle>\n";
        }
        return made;
    }

    /// Labels points of the front first, so that they get the best places.
    std::string draw_labels() const
    {
        const std::vector<bool> on_front = front_of(results_, speed_);
        label_placer placer(frame_, points_);
        std::string made;
        for (const bool is_front : {true, false})
            for (size_t index = 0; index < results_.size(); ++index) {
                if (on_front[index] != is_front) continue;
                const point centre = placer.place(points_[index]);
                made += text_element({centre.x, centre.y + 3.5},
                                     std::string(" font-size=\"10\" text-anchor=\"middle\"") +
                                         (is_front ? " font-weight=\"bold\"" : ""),
                                     std::to_string(results_[index].cell));
            }
        return made;
    }

    box frame_;
    const std::vector<bench_result>& results_;
    bench_speed speed_;
    axis ratios_;
    axis speeds_;
    std::vector<point> points_;
};

std::string draw_legend(double y)
{
    std::string made;
    double x = 60;
    for (size_t method = 0; method < method_colours.size(); ++method) {
        made += circle_element({x, y}, 4, method_colours[method]) + "/>\n";
        made += text_element({x + 9, y + 4}, "", "method " + std::to_string(method + 1));
        x += 95;
    }
    made += line_element({x, y}, {x + 24, y}, " stroke=\"#444444\"");
    return made +
           text_element({x + 32, y + 4}, "", "front: no other cell is both faster and smaller");
}

/// Shortens a title to fit the picture, at the boundary of a UTF-8 character.
std::string shortened(const std::string& text)
{
    constexpr size_t max_bytes = 90;
    if (text.size() <= max_bytes) return text;
    size_t end = max_bytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80) --end;
    return text.substr(0, end) + "...";
}

} // namespace

std::string bench_svg(const std::string& title, const std::vector<bench_result>& results)
{
    constexpr box left{60, 80, 490, 545};
    constexpr box right{560, 80, 990, 545};
    std::string made = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"1000\" height=\"600\""
                       " viewBox=\"0 0 1000 600\" font-family=\"sans-serif\" font-size=\"12\">\n";
    made += "<title>" + escaped(title) + "</title>\n";
    made +=
        "<rect" + attribute("width", width) + attribute("height", height) + " fill=\"#ffffff\"/>\n";
    made += text_element({60, 30}, " font-size=\"17\"", shortened(title));
    made += draw_legend(54);
    made += text_element({18, (left.top + left.bottom) / 2},
                         " text-anchor=\"middle\" transform=\"rotate(-90 18 312.5)\"",
                         "ratio (compressed / original)");
    made += panel(left, results, &bench_result::compress_mb_s).draw("compression, MB/s");
    made += panel(right, results, &bench_result::decompress_mb_s).draw("decompression, MB/s");
    return made + "</svg>\n";
}

} // namespace tool
