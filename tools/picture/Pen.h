#pragma once

#include <cairo.h>

#include <memory>
#include <string>

#include "picture/Layout.h"

namespace tqpicture {

inline constexpr double kTextSize = 12;
inline constexpr double kCaptionSize = 13;

struct Ink {
    double red, green, blue;
};
inline constexpr Ink kPaper{1, 1, 1};
inline constexpr Ink kText{0.13, 0.15, 0.18};
inline constexpr Ink kSoftText{0.38, 0.41, 0.46};
inline constexpr Ink kFrame{0.62, 0.65, 0.70};
inline constexpr Ink kGrid{0.88, 0.89, 0.91};
inline constexpr Ink kWaveform{0.53, 0.69, 0.86};
inline constexpr Ink kRms{0.15, 0.38, 0.65};
inline constexpr Ink kNoData{0.95, 0.955, 0.96};
inline constexpr Ink kEvent{0.80, 0.16, 0.30};
inline constexpr Ink kQuietEvent{0.45, 0.50, 0.56};

struct DestroySurface {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct DestroyContext {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using Surface = std::unique_ptr<cairo_surface_t, DestroySurface>;
using Context = std::unique_ptr<cairo_t, DestroyContext>;

/// The surface as a PNG, behind what `png` holds.
[[nodiscard]] cairo_status_t encode(cairo_surface_t* surface, Png& png);

enum class Align { kLeft, kCentre, kRight };

/// Draws on one surface with one colour and one font at a time; pixels from the upper left corner.
class Pen {
  public:
    explicit Pen(cairo_surface_t* surface);
    [[nodiscard]] cairo_t* get() const { return context_.get(); }

    void ink(const Ink& ink, double opacity = 1);
    void fill(const Rectangle& area);
    /// One pixel wide, both ends included.
    void line(double x0, double y0, double x1, double y1);
    /// Around the area, outside of it.
    void frame(const Rectangle& area);
    void font(double size, bool bold = false);
    [[nodiscard]] double textWidth(const std::string& text);
    void text(double x, double baseline, const std::string& text, Align align = Align::kLeft);
    /// Upwards, centred.
    void turnedText(double x, double centreY, const std::string& words);
    /// Shortened at its end with an ellipsis until it is no wider than that.
    [[nodiscard]] std::string fitted(std::string text, double width);

  private:
    Context context_;
};

}  // namespace tqpicture
