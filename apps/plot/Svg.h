// A picture in the making: a few shapes, written as an SVG file. Lengths in pixels.
#pragma once

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace velmora_plot {

struct Point {
    double x = 0, y = 0;
};

class Svg {
public:
    Svg(double width, double height)
        : text_("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + number(width) +
                "\" height=\"" + number(height) +
                "\" font-family=\"sans-serif\" font-size=\"11\">\n"
                "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n") {}
    // `more`: further attributes, with a blank in front.
    void line(double x1, double y1, double x2, double y2, const char* colour,
              const char* more = "") {
        text_ += "<line x1=\"" + number(x1) + "\" y1=\"" + number(y1) + "\" x2=\"" + number(x2) +
                 "\" y2=\"" + number(y2) + "\" stroke=\"" + colour + "\"" + more + "/>\n";
    }
    void circle(double x, double y, const char* colour, double radius = 4) {
        text_ += "<circle cx=\"" + number(x) + "\" cy=\"" + number(y) + "\" r=\"" + number(radius) +
                 "\" fill=\"" + colour + "\"/>\n";
    }
    void path(const std::vector<Point>& points, const char* colour) {
        text_ += "<polyline fill=\"none\" stroke-width=\"1.5\" stroke=\"" + std::string(colour) +
                 "\" points=\"";
        for (const Point& p : points) text_ += number(p.x) + "," + number(p.y) + " ";
        text_ += "\"/>\n";
    }
    void label(double x, double y, const std::string& text, const char* colour = "black",
               const char* anchor = "start") {
        std::string safe;
        for (const char c : text) {
            if (c == '&') {
                safe += "&amp;";
            } else if (c == '<') {
                safe += "&lt;";
            } else {
                safe += c;
            }
        }
        text_ += "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" fill=\"" + colour +
                 "\" text-anchor=\"" + anchor + "\">" + safe + "</text>\n";
    }
    std::string text() const { return text_ + "</svg>\n"; }
    void write(const std::string& file) const {
        std::ofstream out(file);
        out << text();
        if (!out.flush()) throw std::runtime_error(file + " cannot be written");
    }

    static std::string number(double value) {
        char text[32];
        std::snprintf(text, sizeof text, "%.1f", value);
        return text;
    }

private:
    std::string text_;
};

}  // namespace velmora_plot
