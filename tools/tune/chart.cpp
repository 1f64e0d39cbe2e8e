// Drawing with cairo; see the header.
#include "tools/tune/chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>

#include <cairo-svg.h>

#include "tools/common/failure.h"
#include "tools/tune/exit_codes.h"

namespace tune {
namespace {

constexpr double kFontSize = 11.0;
constexpr double kTitleSize = 13.0;
constexpr double kLeftMargin = 58.0;
constexpr double kRightMargin = 16.0;
constexpr double kTopMargin = 26.0;
constexpr double kBottomMargin = 40.0;
constexpr double kColourBarWidth = 64.0;
constexpr char kFont[] = "sans-serif";

struct Colour {
  double red, green, blue;
};

// Colours that people with colour-blindness can tell apart (M. Okabe and K. Ito, "Color Universal Design",
// 2008), each with a dash of its own for paper.
struct Style {
  Colour colour;
  double width;
  std::vector<double> dash;
};
const std::vector<Style>& Styles() {
  static const std::vector<Style> kStyles = {
      {{0.00, 0.45, 0.70}, 2.0, {}},           {{0.84, 0.37, 0.00}, 2.0, {8, 3}},
      {{0.00, 0.62, 0.45}, 2.0, {2, 2}},       {{0.80, 0.47, 0.65}, 2.0, {10, 3, 2, 3}},
      {{0.34, 0.34, 0.34}, 2.0, {5, 2, 1, 2}}, {{0.90, 0.62, 0.00}, 2.6, {1, 3}},
  };
  return kStyles;
}

const Style& StyleOf(size_t index) {
  return Styles()[index % Styles().size()];
}

void SetColour(cairo_t* cairo, const Colour& colour) {
  cairo_set_source_rgb(cairo, colour.red, colour.green, colour.blue);
}

constexpr Colour kInk{0.10, 0.10, 0.10};
constexpr Colour kGrid{0.86, 0.86, 0.86};

// Dark to bright, growing in lightness all the way so that it prints in grey; own choice of anchors.
Colour HeatColour(double share) {
  constexpr std::array<Colour, 6> kAnchors = {{{0.02, 0.02, 0.08},
                                               {0.16, 0.10, 0.38},
                                               {0.48, 0.14, 0.46},
                                               {0.82, 0.30, 0.32},
                                               {0.97, 0.62, 0.25},
                                               {0.99, 0.97, 0.72}}};
  const double at = std::clamp(share, 0.0, 1.0) * (kAnchors.size() - 1);
  const auto index = std::min(static_cast<size_t>(at), kAnchors.size() - 2);
  const double rest = at - static_cast<double>(index);
  const Colour& a = kAnchors[index];
  const Colour& b = kAnchors[index + 1];
  return {a.red + rest * (b.red - a.red), a.green + rest * (b.green - a.green),
          a.blue + rest * (b.blue - a.blue)};
}

// The value at a share of the axis, and back.
double At(const Axis& axis, double share) {
  return axis.logarithmic ? axis.low * std::pow(axis.high / axis.low, share)
                          : axis.low + share * (axis.high - axis.low);
}
double ShareOf(const Axis& axis, double value) {
  return axis.logarithmic ? std::log(std::max(value, axis.low * 1e-3) / axis.low) /
                                std::log(axis.high / axis.low)
                          : (value - axis.low) / (axis.high - axis.low);
}

// About `wanted` ticks, 1, 2 or 5 times a power of ten apart; for a logarithmic axis 1, 2 and 5 of each
// decade.
std::vector<double> Ticks(const Axis& axis, double wanted) {
  std::vector<double> ticks;
  if (axis.logarithmic) {
    const auto first = static_cast<int>(std::floor(std::log10(axis.low)));
    const auto last = static_cast<int>(std::floor(std::log10(axis.high)));
    for (int exponent = first; exponent <= last; ++exponent) {
      const double decade = std::pow(10.0, exponent);
      for (const double factor : {1.0, 2.0, 5.0}) {
        if (decade * factor >= axis.low * 0.999 && decade * factor <= axis.high * 1.001) {
          ticks.push_back(decade * factor);
        }
      }
    }
    return ticks;
  }
  const double raw = (axis.high - axis.low) / wanted;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  const double step = power * (raw / power > 5.0   ? 10.0
                               : raw / power > 2.0 ? 5.0
                               : raw / power > 1.0 ? 2.0
                                                   : 1.0);
  const long first = std::lround(std::ceil(axis.low / step - 1e-9));
  const long last = std::lround(std::floor(axis.high / step + 1e-9));
  for (long k = first; k <= last; ++k) {
    ticks.push_back(static_cast<double>(k) * step);
  }
  return ticks;
}

std::string TickText(const Axis& axis, double value) {
  char text[32];
  if (axis.logarithmic && value >= 1000.0) {
    std::snprintf(text, sizeof(text), "%gk", value / 1000.0);
  } else {
    std::snprintf(text, sizeof(text), "%g", std::abs(value) < 1e-9 ? 0.0 : value);
  }
  return text;
}

void Font(cairo_t* cairo, double size, bool bold = false) {
  cairo_select_font_face(cairo, kFont, CAIRO_FONT_SLANT_NORMAL,
                         bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cairo, size);
}

double TextWidth(cairo_t* cairo, const std::string& text) {
  cairo_text_extents_t extents;
  cairo_text_extents(cairo, text.c_str(), &extents);
  return extents.x_advance;
}

// `anchor`: 0 left, 0.5 middle, 1 right of the text at x.
void Text(cairo_t* cairo, double x, double y, const std::string& text, double anchor) {
  cairo_move_to(cairo, x - anchor * TextWidth(cairo, text), y);
  cairo_show_text(cairo, text.c_str());
}

void UprightText(cairo_t* cairo, double x, double y, const std::string& text) {
  cairo_save(cairo);
  cairo_translate(cairo, x, y);
  cairo_rotate(cairo, -M_PI / 2.0);
  Text(cairo, 0.0, 0.0, text, 0.5);
  cairo_restore(cairo);
}

void Line(cairo_t* cairo, double x0, double y0, double x1, double y1) {
  cairo_move_to(cairo, x0, y0);
  cairo_line_to(cairo, x1, y1);
  cairo_stroke(cairo);
}

// Title, grid, ticks and labels; returns the plot's own area.
Area DrawFrame(cairo_t* cairo, const Area& area, const std::string& title, const Axis& x,
               const Axis& y, bool grid) {
  const Area plot{area.x + kLeftMargin, area.y + kTopMargin,
                  area.width - kLeftMargin - kRightMargin,
                  area.height - kTopMargin - kBottomMargin};
  SetColour(cairo, kInk);
  Font(cairo, kTitleSize, true);
  Text(cairo, plot.x, area.y + 16.0, title, 0.0);
  Font(cairo, kFontSize);
  cairo_set_line_width(cairo, 0.7);
  for (const double tick : Ticks(x, plot.width / 70.0)) {
    const double at = plot.x + ShareOf(x, tick) * plot.width;
    SetColour(cairo, kGrid);
    Line(cairo, at, plot.y + (grid ? 0.0 : plot.height), at, plot.y + plot.height + 4.0);
    SetColour(cairo, kInk);
    Text(cairo, at, plot.y + plot.height + 16.0, TickText(x, tick), 0.5);
  }
  for (const double tick : Ticks(y, plot.height / 32.0)) {
    const double at = plot.y + (1.0 - ShareOf(y, tick)) * plot.height;
    SetColour(cairo, kGrid);
    Line(cairo, plot.x - 4.0, at, plot.x + (grid ? plot.width : 0.0), at);
    SetColour(cairo, kInk);
    Text(cairo, plot.x - 7.0, at + 4.0, TickText(y, tick), 1.0);
  }
  SetColour(cairo, kInk);
  Text(cairo, plot.x + plot.width / 2.0, plot.y + plot.height + 32.0, x.label, 0.5);
  UprightText(cairo, area.x + 13.0, plot.y + plot.height / 2.0, y.label);
  return plot;
}

void DrawBorder(cairo_t* cairo, const Area& plot) {
  SetColour(cairo, kInk);
  cairo_set_line_width(cairo, 1.0);
  cairo_rectangle(cairo, plot.x, plot.y, plot.width, plot.height);
  cairo_stroke(cairo);
}

void UseStyle(cairo_t* cairo, const Style& style) {
  SetColour(cairo, style.colour);
  cairo_set_line_width(cairo, style.width);
  cairo_set_dash(cairo, style.dash.data(), static_cast<int>(style.dash.size()), 0.0);
}

void DrawCurve(cairo_t* cairo, const Area& plot, const Chart& chart, const Curve& curve) {
  const auto position = [&](size_t i, double* x, double* y) {
    *x = plot.x + ShareOf(chart.x, curve.x[i]) * plot.width;
    *y = plot.y + (1.0 - ShareOf(chart.y, curve.y[i])) * plot.height;
    return std::isfinite(*y);
  };
  UseStyle(cairo, StyleOf(curve.style));
  bool pen_down = false;
  double x = 0.0;
  double y = 0.0;
  for (size_t i = 0; i < curve.x.size(); ++i) {
    const bool there = position(i, &x, &y);
    if (there && pen_down) {
      cairo_line_to(cairo, x, y);
    } else if (there) {
      cairo_move_to(cairo, x, y);
    }
    pen_down = there;
  }
  cairo_stroke(cairo);
  cairo_set_dash(cairo, nullptr, 0, 0.0);
  for (size_t i = 0; curve.markers && i < curve.x.size(); ++i) {
    if (position(i, &x, &y)) {
      cairo_rectangle(cairo, x - 2.0, y - 2.0, 4.0, 4.0);
      cairo_fill(cairo);
    }
  }
}

void LegendEntry(cairo_t* cairo, double x, double y, const Curve& curve) {
  UseStyle(cairo, StyleOf(curve.style));
  Line(cairo, x, y - 4.0, x + 30.0, y - 4.0);
  cairo_set_dash(cairo, nullptr, 0, 0.0);
  SetColour(cairo, kInk);
  Text(cairo, x + 35.0, y, curve.name, 0.0);
}

// Beside the title where there is room, else in the plot's lower left corner.
void DrawLegend(cairo_t* cairo, const Area& plot, const Chart& chart) {
  constexpr double kRow = 15.0;
  constexpr double kEntryExtra = 49.0;  // the line and the gaps
  Font(cairo, kTitleSize, true);
  const double title_width = TextWidth(cairo, chart.title);
  Font(cairo, kFontSize);
  double widest = 0.0;
  double in_a_row = 0.0;
  for (const Curve& curve : chart.curves) {
    const double width = TextWidth(cairo, curve.name) + kEntryExtra;
    widest = std::max(widest, width);
    in_a_row += width;
  }
  if (title_width + 24.0 + in_a_row <= plot.width) {
    double x = plot.x + plot.width - in_a_row + 14.0;
    for (const Curve& curve : chart.curves) {
      LegendEntry(cairo, x, plot.y - 9.0, curve);
      x += TextWidth(cairo, curve.name) + kEntryExtra;
    }
    return;
  }
  const double height = kRow * static_cast<double>(chart.curves.size());
  const double top = plot.y + plot.height - 10.0 - height;
  cairo_set_source_rgba(cairo, 1.0, 1.0, 1.0, 0.85);
  cairo_rectangle(cairo, plot.x + 8.0, top, widest, height + 4.0);
  cairo_fill(cairo);
  double y = top + 12.0;
  for (const Curve& curve : chart.curves) {
    LegendEntry(cairo, plot.x + 12.0, y, curve);
    y += kRow;
  }
}

cairo_status_t Append(void* closure, const unsigned char* data, unsigned length) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

struct DestroySurface {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct DestroyCairo {
  void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
};
using Surface = std::unique_ptr<cairo_surface_t, DestroySurface>;

void DrawOn(cairo_surface_t* surface, double scale, const Draw& draw) {
  const std::unique_ptr<cairo_t, DestroyCairo> cairo(cairo_create(surface));
  cairo_scale(cairo.get(), scale, scale);
  cairo_set_source_rgb(cairo.get(), 1.0, 1.0, 1.0);
  cairo_paint(cairo.get());
  draw(cairo.get());
  if (cairo_status(cairo.get()) != CAIRO_STATUS_SUCCESS) {
    throw tools::Failure(kIo, std::string("the picture cannot be drawn: ") +
                                  cairo_status_to_string(cairo_status(cairo.get())));
  }
}

}  // namespace

void DrawChart(cairo_t* cairo, const Area& area, const Chart& chart) {
  const Area plot = DrawFrame(cairo, area, chart.title, chart.x, chart.y, true);
  cairo_save(cairo);
  cairo_rectangle(cairo, plot.x, plot.y, plot.width, plot.height);
  cairo_clip(cairo);
  for (const Curve& curve : chart.curves) {
    DrawCurve(cairo, plot, chart, curve);
  }
  cairo_restore(cairo);
  DrawBorder(cairo, plot);
  DrawLegend(cairo, plot, chart);
}

void DrawHeatMap(cairo_t* cairo, const Area& area, const HeatMap& map) {
  Area inner = area;
  inner.width -= kColourBarWidth;
  const Area plot = DrawFrame(cairo, inner, map.title, map.x, map.y, false);
  const int columns = static_cast<int>(plot.width);
  const int rows = static_cast<int>(plot.height);
  const Surface image(cairo_image_surface_create(CAIRO_FORMAT_RGB24, columns, rows));
  unsigned char* pixels = cairo_image_surface_get_data(image.get());
  const int stride = cairo_image_surface_get_stride(image.get());
  const auto byte = [](double share) { return static_cast<uint32_t>(std::lround(share * 255.0)); };
  for (int row = 0; row < rows; ++row) {
    auto* line = reinterpret_cast<uint32_t*>(pixels + static_cast<ptrdiff_t>(row) * stride);
    const double y = At(map.y, 1.0 - (row + 0.5) / rows);
    for (int column = 0; column < columns; ++column) {
      const double value = map.value(At(map.x, (column + 0.5) / columns), y);
      const Colour colour = HeatColour(ShareOf(map.colour, value));
      line[column] = byte(colour.red) << 16 | byte(colour.green) << 8 | byte(colour.blue);
    }
  }
  cairo_surface_mark_dirty(image.get());
  cairo_set_source_surface(cairo, image.get(), plot.x, plot.y);
  cairo_rectangle(cairo, plot.x, plot.y, columns, rows);
  cairo_fill(cairo);
  DrawBorder(cairo, {plot.x, plot.y, static_cast<double>(columns), static_cast<double>(rows)});

  const double bar_x = plot.x + plot.width + 12.0;
  for (int row = 0; row < rows; ++row) {
    SetColour(cairo, HeatColour(1.0 - (row + 0.5) / rows));
    cairo_rectangle(cairo, bar_x, plot.y + row, 10.0, 1.5);
    cairo_fill(cairo);
  }
  SetColour(cairo, kInk);
  Font(cairo, kFontSize);
  for (const double tick : Ticks(map.colour, plot.height / 40.0)) {
    Text(cairo, bar_x + 14.0, plot.y + (1.0 - ShareOf(map.colour, tick)) * plot.height + 4.0,
         TickText(map.colour, tick), 0.0);
  }
  UprightText(cairo, bar_x + 50.0, plot.y + plot.height / 2.0, map.colour.label);
}

void DrawText(cairo_t* cairo, const Area& area, const std::vector<std::string>& lines) {
  SetColour(cairo, kInk);
  Font(cairo, kFontSize);
  double y = area.y + kFontSize;
  for (const std::string& line : lines) {
    Text(cairo, area.x, y, line, 0.0);
    y += kFontSize * 1.4;
  }
}

Axis AxisAround(const std::string& label, const std::vector<Curve>& curves, double least_span) {
  double low = std::numeric_limits<double>::infinity();
  double high = -low;
  for (const Curve& curve : curves) {
    for (const double value : curve.y) {
      if (std::isfinite(value)) {
        low = std::min(low, value);
        high = std::max(high, value);
      }
    }
  }
  if (low > high) {
    low = high = 0.0;
  }
  const double missing = std::max(0.0, least_span - (high - low)) / 2.0;
  const double step = 5.0;
  return {label, std::floor((low - missing) / step - 0.1) * step,
          std::ceil((high + missing) / step + 0.1) * step, false};
}

std::string RenderSvg(double width, double height, const Draw& draw) {
  std::string bytes;
  {
    const Surface surface(cairo_svg_surface_create_for_stream(Append, &bytes, width, height));
    DrawOn(surface.get(), 1.0, draw);
    cairo_surface_finish(surface.get());
  }
  return bytes;
}

std::string RenderPng(double width, double height, double scale, const Draw& draw) {
  const Surface surface(cairo_image_surface_create(
      CAIRO_FORMAT_RGB24, static_cast<int>(width * scale), static_cast<int>(height * scale)));
  DrawOn(surface.get(), scale, draw);
  std::string bytes;
  cairo_surface_write_to_png_stream(surface.get(), Append, &bytes);
  return bytes;
}

}  // namespace tune
