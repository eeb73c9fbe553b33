#include "spectra_plot.h"

#include <cmath>
#include <cstdio>

#include "drawing.h"

namespace host {
namespace {

constexpr Colour kInk{45, 50, 60};
constexpr Colour kFaint{226, 229, 234};
constexpr Colour kTruth{176, 182, 192};
constexpr Colour kBefore{226, 125, 34};
constexpr Colour kAfter{24, 98, 196};

constexpr double kChartWidth = 400;
constexpr double kChartHeight = 290;
constexpr double kHead = 74;
constexpr double kText = 10.5;

// A round step that cuts the range into at most the given number of parts.
double roundStep(double range, int parts) {
  double const rough = range / parts;
  double const power = std::pow(10, std::floor(std::log10(rough)));
  for (double const factor : {1.0, 2.0, 2.5, 5.0}) {
    if (factor * power >= rough) return factor * power;
  }
  return 10 * power;
}

std::string numberText(double value, double step) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", step >= 1 ? 0 : (step >= 0.1 ? 1 : 2), value);
  return text;
}

void drawSeries(Picture& picture, std::vector<Point> const& line, Colour colour, bool dashed, double thickness) {
  if (dashed) {
    drawDashes(picture, line, thickness, 7, 4, colour);
  } else {
    drawPolyline(picture, line, thickness, colour);
  }
}

void drawMarkers(Picture& picture, std::vector<Point> const& line, Colour colour) {
  if (line.size() > 40) return;
  for (Point const& point : line) drawLine(picture, point, point, 6.5, colour);
}

void drawChart(Picture& picture, double left, double top, PointSpectra const& point, std::size_t number,
               std::vector<double> const& wavelengths) {
  double highest = 0.05;
  for (auto const* series : {&point.truth, &point.before, &point.after}) {
    for (double const value : *series) highest = std::max(highest, value);
  }
  double const step = roundStep(highest * 1.06, 4);
  highest = std::ceil(highest * 1.06 / step) * step;
  double const x0 = left + 52;
  double const x1 = left + kChartWidth - 16;
  double const y0 = top + kChartHeight - 44;
  double const y1 = top + 30;
  double const low = wavelengths.front();
  double const range = std::max(wavelengths.back() - low, 1.0);
  auto const toX = [=](double nm) { return x0 + 8 + (nm - low) / range * (x1 - x0 - 16); };
  auto const toY = [=](double value) { return y0 - value / highest * (y0 - y1); };

  drawText(picture, {x0, top + 18}, 12.5, std::to_string(number) + "  " + point.name, kInk, 1.7);
  for (double value = 0; value <= highest * 1.001; value += step) {
    drawLine(picture, {x0, toY(value)}, {x1, toY(value)}, 1, value == 0 ? kInk : kFaint);
    std::string const label = numberText(value, step);
    drawText(picture, {x0 - 8 - textWidth(label, kText), toY(value) + kText / 2}, kText, label, kInk);
  }
  double const tick = roundStep(range, 5);
  for (double nm = std::ceil(low / tick) * tick; nm <= low + range; nm += tick) {
    drawLine(picture, {toX(nm), y0}, {toX(nm), y0 + 5}, 1, kInk);
    std::string const label = numberText(nm, 1);
    drawText(picture, {toX(nm) - textWidth(label, kText) / 2, y0 + 9 + kText}, kText, label, kInk);
  }

  auto const line = [&](std::vector<double> const& values) {
    std::vector<Point> points;
    for (std::size_t k = 0; k < values.size(); ++k) points.push_back({toX(wavelengths[k]), toY(values[k])});
    return points;
  };
  drawSeries(picture, line(point.truth), kTruth, false, 6);
  drawSeries(picture, line(point.before), kBefore, true, 1.8);
  drawSeries(picture, line(point.after), kAfter, false, 2.2);
  drawMarkers(picture, line(point.after), kAfter);
}

void drawLegendEntry(Picture& picture, double& right, double y, std::string const& label, Colour colour, bool dashed,
                     double thickness) {
  right -= textWidth(label, kText);
  drawText(picture, {right, y + kText / 2}, kText, label, kInk);
  std::vector<Point> const sample{{right - 42, y}, {right - 10, y}};
  drawSeries(picture, sample, colour, dashed, thickness);
  right -= 66;
}

}  // namespace

Picture plotSpectra(std::vector<PointSpectra> const& points, std::vector<double> const& wavelengths,
                    std::string const& title, std::string const& axes) {
  std::size_t const columns = std::min<std::size_t>(3, points.size());
  std::size_t const rows = (points.size() + columns - 1) / columns;
  Picture picture(static_cast<unsigned long>(kChartWidth) * columns + 16,
                  static_cast<unsigned long>(kHead + kChartHeight * static_cast<double>(rows)));
  double right = static_cast<double>(picture.width()) - 20;
  drawText(picture, {22, 34}, 16, title, kInk, 2);
  if (!points.front().after.empty()) drawLegendEntry(picture, right, 52, "corrected", kAfter, false, 2.2);
  drawLegendEntry(picture, right, 52, "before correction", kBefore, true, 1.8);
  if (!points.front().truth.empty()) drawLegendEntry(picture, right, 52, "truth", kTruth, false, 6);
  drawText(picture, {22, 57}, kText, axes, kInk);
  for (std::size_t k = 0; k < points.size(); ++k) {
    drawChart(picture, kChartWidth * static_cast<double>(k % columns),
              kHead + kChartHeight * static_cast<double>(k / columns), points[k], k + 1, wavelengths);
  }
  return picture;
}

void markPoint(Picture& picture, double x, double y, unsigned long number) {
  Point const centre{x * static_cast<double>(picture.width()), y * static_cast<double>(picture.height())};
  std::string const label = std::to_string(number);
  drawRing(picture, centre, 6, 4, {20, 20, 20});
  drawRing(picture, centre, 6, 2, {255, 255, 255});
  Point const place{centre.x + 11, centre.y + 5};
  drawText(picture, place, 12, label, {20, 20, 20}, 4);
  drawText(picture, place, 12, label, {255, 255, 255}, 1.8);
}

}  // namespace host
