// Pictures: line charts and heat maps, drawn with cairo for paper as much as for a screen (white ground,
// lines that differ in dash and width as well as in colour).
#ifndef TOOLS_TUNE_CHART_H_
#define TOOLS_TUNE_CHART_H_

#include <functional>
#include <string>
#include <vector>

#include <cairo.h>

namespace tune {

struct Axis {
  std::string label;
  double low = 0.0;
  double high = 1.0;
  bool logarithmic = false;  // Hz
};

struct Curve {
  std::string name;  // in the legend
  std::vector<double> x;
  std::vector<double> y;  // not a number: a gap
  size_t style = 0;       // curves of one style look alike
  bool markers = false;
};

struct Chart {
  std::string title;
  Axis x;
  Axis y;
  std::vector<Curve> curves;
};

struct HeatMap {
  std::string title;
  Axis x;
  Axis y;
  Axis colour;
  // At (x, y) in axis units.
  std::function<double(double, double)> value;
};

struct Area {
  double x, y, width, height;
};

void DrawChart(cairo_t* cairo, const Area& area, const Chart& chart);
void DrawHeatMap(cairo_t* cairo, const Area& area, const HeatMap& map);
// Lines of text from the area's top.
void DrawText(cairo_t* cairo, const Area& area, const std::vector<std::string>& lines);

// An axis that holds all values of the curves, with `margin` around them, on whole tens or so.
Axis AxisAround(const std::string& label, const std::vector<Curve>& curves, double least_span);

using Draw = std::function<void(cairo_t*)>;
// Bytes of the picture; sizes in points, `scale` pixels each.
std::string RenderSvg(double width, double height, const Draw& draw);
std::string RenderPng(double width, double height, double scale, const Draw& draw);

}  // namespace tune

#endif  // TOOLS_TUNE_CHART_H_
