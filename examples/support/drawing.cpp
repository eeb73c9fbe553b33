#include "drawing.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace host {
namespace {

// Each glyph is a list of strokes on a grid: x 0 to 6, y 0 (top of capitals), 3 (top of small letters), 8 (baseline)
// to 10 (written a). A stroke is a run of xy pairs; ~ rounds its corners, o closes it first.
struct Glyph {
  char character;
  char const* strokes;
};

constexpr Glyph kGlyphs[] = {
    {'A', "083068 1555"},
    {'B', "0008 ~003060643404 ~043464683808"},
    {'C', "~626030000408386866"},
    {'D', "0008 ~00306064683808"},
    {'E', "60000868 0444"},
    {'F', "600008 0444"},
    {'G', "~626030000408386865 6535"},
    {'H', "0008 6068 0464"},
    {'I', "1050 3038 1858"},
    {'J', "~505628080806"},
    {'K', "0008 6005 2368"},
    {'L', "000868"},
    {'M', "0800356068"},
    {'N', "08006860"},
    {'O', "~o3060646838080400"},
    {'P', "0008 ~003060643404"},
    {'Q', "~o3060646838080400 4669"},
    {'R', "0008 ~003060643404 3468"},
    {'S', "~62603000020434646668380806"},
    {'T', "0060 3038"},
    {'U', "~00040838686460"},
    {'V', "003860"},
    {'W', "0018325860"},
    {'X', "0068 6008"},
    {'Y', "003460 3438"},
    {'Z', "00600868"},
    {'0', "~o3060646838080400"},
    {'1', "123038 1858"},
    {'2', "~02003060633508 0868"},
    {'3', "~01003060626434 ~34646668380807"},
    {'4', "48400565"},
    {'5', "601004 ~041333636568380807"},
    {'6', "~o3363656838080503 ~50100305"},
    {'7', "006028"},
    {'8', "~o3060626434040200 ~o3464666838080604"},
    {'9', "~o3060636535050300 ~63655818"},
    {'a', "~o2353555828080503 5358"},
    {'b', "0008 ~o3353555838080503"},
    {'c', "~545323030508285857"},
    {'d', "~o2353555828080503 5058"},
    {'e', "0555 ~5553230305082858"},
    {'f', "~40202328 0343"},
    {'g', "~o2353555828080503 ~53585a2a0a"},
    {'h', "0008 ~050333535558"},
    {'i', "1318 1111"},
    {'j', "~23282a0a 2121"},
    {'k', "0008 4306 1548"},
    {'l', "1018"},
    {'m', "0308 ~0503333538 ~3533636568"},
    {'n', "0308 ~050333535558"},
    {'o', "~o2353555828080503"},
    {'p', "030a ~o3353555838080503"},
    {'q', "~o2353555828080503 535a"},
    {'r', "0308 ~05033343"},
    {'s', "~54532303055658280807"},
    {'t', "~21262848 0343"},
    {'u', "~030608385855 5358"},
    {'v', "032853"},
    {'w', "0318345863"},
    {'x', "0348 4308"},
    {'y', "0328 531a"},
    {'z', "03430848"},
    {'.', "1818"},
    {',', "1819"},
    {':', "1414 1818"},
    {'-', "1545"},
    {'+', "1555 3337"},
    {'/', "0850"},
    {'(', "~20020628"},
    {')', "~00222608"},
    {'=', "0454 0656"},
    {'%', "0860 ~o00202202 ~o46666848"},
    {'>', "024406"},
    {'_', "0969"},
};

int gridNumber(char digit) { return digit == 'a' ? 10 : digit - '0'; }

// Corner cutting: three rounds turn a control polygon into a smooth curve.
std::vector<Point> rounded(std::vector<Point> points, bool closed) {
  for (int round = 0; round < 3; ++round) {
    std::vector<Point> finer;
    if (!closed) finer.push_back(points.front());
    std::size_t const count = points.size();
    for (std::size_t k = 0; k + (closed ? 0 : 1) < count; ++k) {
      Point const a = points[k];
      Point const b = points[(k + 1) % count];
      finer.push_back({0.75 * a.x + 0.25 * b.x, 0.75 * a.y + 0.25 * b.y});
      finer.push_back({0.25 * a.x + 0.75 * b.x, 0.25 * a.y + 0.75 * b.y});
    }
    if (!closed) finer.push_back(points.back());
    points = std::move(finer);
  }
  if (closed) points.push_back(points.front());
  return points;
}

std::vector<std::vector<Point>> strokesOf(char character) {
  std::vector<std::vector<Point>> strokes;
  for (Glyph const& glyph : kGlyphs) {
    if (glyph.character != character) continue;
    char const* text = glyph.strokes;
    while (*text != '\0') {
      bool const round = *text == '~';
      if (round) ++text;
      bool const closed = *text == 'o';
      if (closed) ++text;
      std::vector<Point> points;
      for (; *text != '\0' && *text != ' '; text += 2) {
        points.push_back({static_cast<double>(gridNumber(text[0])), static_cast<double>(gridNumber(text[1]))});
      }
      if (*text == ' ') ++text;
      strokes.push_back(round ? rounded(points, closed) : points);
    }
  }
  return strokes;
}

constexpr double kGridHeight = 8;
constexpr double kGridWidthToHeight = 0.78;
constexpr double kLetterGap = 2.2;

// Advance of a glyph in grid columns; a blank is as wide as a small letter.
double advanceOf(std::vector<std::vector<Point>> const& strokes) {
  double right = strokes.empty() ? 2.0 : 0.0;
  for (auto const& stroke : strokes) {
    for (Point const& point : stroke) right = std::max(right, point.x);
  }
  return right + kLetterGap;
}

// Puts a colour over a pixel, as much as the shape covers of it.
void blend(Picture& picture, long x, long y, Colour colour, double coverage) {
  if (coverage <= 0 || x < 0 || y < 0) return;
  auto const column = static_cast<unsigned long>(x);
  auto const row = static_cast<unsigned long>(y);
  if (column >= picture.width() || row >= picture.height()) return;
  Colour& pixel = picture.at(column, row);
  double const share = std::min(coverage, 1.0);
  auto const mix = [share](std::uint8_t below, std::uint8_t above) {
    return static_cast<std::uint8_t>(std::lround(below + share * (above - below)));
  };
  pixel = {mix(pixel.red, colour.red), mix(pixel.green, colour.green), mix(pixel.blue, colour.blue)};
}

// Draws lines with round ends. Where strokes meet or overlap, a pixel takes the largest coverage once, so that many
// short pieces look like one smooth curve.
void drawStrokes(Picture& picture, std::vector<std::vector<Point>> const& strokes, double thickness, Colour colour) {
  double const reach = thickness / 2 + 1;
  auto const firstPixel = [=](double low) { return std::lround(std::floor(low - reach)); };
  auto const endPixel = [=](double high) { return std::lround(std::ceil(high + reach)); };
  Point low{1e9, 1e9};
  Point high{-1e9, -1e9};
  for (auto const& stroke : strokes) {
    for (Point const& point : stroke) {
      low = {std::min(low.x, point.x), std::min(low.y, point.y)};
      high = {std::max(high.x, point.x), std::max(high.y, point.y)};
    }
  }
  if (low.x > high.x) return;
  long const left = firstPixel(low.x);
  long const top = firstPixel(low.y);
  long const width = endPixel(high.x) - left;
  std::vector<double> coverage(static_cast<std::size_t>(width * (endPixel(high.y) - top)), 0.0);
  for (auto const& stroke : strokes) {
    for (std::size_t k = 1; k < stroke.size(); ++k) {
      Point const a = stroke[k - 1];
      Point const b = stroke[k];
      double const dx = b.x - a.x;
      double const dy = b.y - a.y;
      double const squared = dx * dx + dy * dy;
      for (long y = firstPixel(std::min(a.y, b.y)); y < endPixel(std::max(a.y, b.y)); ++y) {
        for (long x = firstPixel(std::min(a.x, b.x)); x < endPixel(std::max(a.x, b.x)); ++x) {
          double const px = static_cast<double>(x) + 0.5 - a.x;
          double const py = static_cast<double>(y) + 0.5 - a.y;
          double const along = squared > 0 ? std::clamp((px * dx + py * dy) / squared, 0.0, 1.0) : 0.0;
          double const distance = std::hypot(px - along * dx, py - along * dy) - thickness / 2;
          double& pixel = coverage[static_cast<std::size_t>((y - top) * width + x - left)];
          pixel = std::max(pixel, 0.5 - distance);
        }
      }
    }
  }
  for (std::size_t k = 0; k < coverage.size(); ++k) {
    blend(picture, left + static_cast<long>(k) % width, top + static_cast<long>(k) / width, colour, coverage[k]);
  }
}

}  // namespace

void drawLine(Picture& picture, Point from, Point to, double thickness, Colour colour) {
  drawStrokes(picture, {{from, to}}, thickness, colour);
}

void drawPolyline(Picture& picture, std::vector<Point> const& points, double thickness, Colour colour) {
  drawStrokes(picture, {points}, thickness, colour);
}

void drawDashes(Picture& picture, std::vector<Point> const& points, double thickness, double dash, double gap,
                Colour colour) {
  std::vector<std::vector<Point>> dashes;
  double travelled = 0;
  for (std::size_t k = 1; k < points.size(); ++k) {
    Point const a = points[k - 1];
    Point const b = points[k];
    double const length = std::hypot(b.x - a.x, b.y - a.y);
    auto const at = [&](double s) { return Point{a.x + (b.x - a.x) * s / length, a.y + (b.y - a.y) * s / length}; };
    for (double s = 0; s < length;) {
      double const phase = std::fmod(travelled + s, dash + gap);
      bool const inked = phase < dash;
      double const next = std::min(length, s + (inked ? dash - phase : dash + gap - phase) + 1e-6);
      if (inked) dashes.push_back({at(s), at(next)});
      s = next;
    }
    travelled += length;
  }
  drawStrokes(picture, dashes, thickness, colour);
}

void drawRing(Picture& picture, Point centre, double radius, double thickness, Colour colour) {
  constexpr int kSides = 64;
  std::vector<Point> circle;
  for (int side = 0; side <= kSides; ++side) {
    double const angle = 2 * std::numbers::pi * side / kSides;
    circle.push_back({centre.x + radius * std::cos(angle), centre.y + radius * std::sin(angle)});
  }
  drawStrokes(picture, {circle}, thickness, colour);
}

void fillBox(Picture& picture, Point from, Point to, Colour colour) {
  for (long y = std::lround(from.y); y < std::lround(to.y); ++y) {
    for (long x = std::lround(from.x); x < std::lround(to.x); ++x) blend(picture, x, y, colour, 1);
  }
}

void drawText(Picture& picture, Point position, double height, std::string const& text, Colour colour,
              double thickness) {
  double const unitY = height / kGridHeight;
  double const unitX = unitY * kGridWidthToHeight;
  double const pen = thickness > 0 ? thickness : std::max(1.15, height / 9);
  double left = position.x;
  std::vector<std::vector<Point>> ink;
  for (char const character : text) {
    auto const strokes = strokesOf(character);
    for (auto stroke : strokes) {
      for (Point& point : stroke) {
        point = {left + point.x * unitX, position.y + (point.y - kGridHeight) * unitY};
      }
      ink.push_back(std::move(stroke));
    }
    left += advanceOf(strokes) * unitX;
  }
  drawStrokes(picture, ink, pen, colour);
}

double textWidth(std::string const& text, double height) {
  double columns = -kLetterGap;
  for (char const character : text) columns += advanceOf(strokesOf(character));
  return columns * height / kGridHeight * kGridWidthToHeight;
}

Picture captioned(Picture const& picture, std::string const& caption) {
  constexpr unsigned long kCaptionHeight = 26;
  Picture result(picture.width(), picture.height() + kCaptionHeight);
  drawText(result, {2, 18}, 11, caption, {40, 44, 52});
  paste(result, picture, 0, kCaptionHeight);
  return result;
}

namespace {

Picture arranged(std::vector<Picture> const& pictures, bool downwards) {
  constexpr unsigned long kGap = 12;
  unsigned long width = 0;
  unsigned long height = 0;
  for (Picture const& picture : pictures) {
    width = downwards ? std::max(width, picture.width()) : width + picture.width() + kGap;
    height = downwards ? height + picture.height() + kGap : std::max(height, picture.height());
  }
  Picture result(downwards ? width : width - kGap, downwards ? height - kGap : height);
  unsigned long place = 0;
  for (Picture const& picture : pictures) {
    paste(result, picture, downwards ? (width - picture.width()) / 2 : place, downwards ? place : 0);
    place += (downwards ? picture.height() : picture.width()) + kGap;
  }
  return result;
}

}  // namespace

Picture sideBySide(std::vector<Picture> const& pictures) { return arranged(pictures, false); }
Picture stacked(std::vector<Picture> const& pictures) { return arranged(pictures, true); }

}  // namespace host
