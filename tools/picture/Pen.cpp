#include "picture/Pen.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

namespace tqpicture {

cairo_status_t encode(cairo_surface_t* surface, Png& png) {
    cairo_surface_flush(surface);
    return cairo_surface_write_to_png_stream(
        surface,
        [](void* all, const unsigned char* bytes, unsigned int count) {
            auto& into = *static_cast<Png*>(all);
            into.insert(into.end(), bytes, bytes + count);
            return CAIRO_STATUS_SUCCESS;
        },
        &png);
}

Pen::Pen(cairo_surface_t* surface) : context_(cairo_create(surface)) {
    cairo_set_line_width(get(), 1);
}

void Pen::ink(const Ink& ink, double opacity) {
    cairo_set_source_rgba(get(), ink.red, ink.green, ink.blue, opacity);
}

void Pen::fill(const Rectangle& area) {
    cairo_rectangle(get(), area.x, area.y, area.width, area.height);
    cairo_fill(get());
}

void Pen::line(double x0, double y0, double x1, double y1) {
    // Half a pixel in, a line one pixel wide covers whole pixels.
    cairo_move_to(get(), x0 + 0.5, y0 + 0.5);
    cairo_line_to(get(), x1 + 0.5, y1 + 0.5);
    cairo_stroke(get());
}

void Pen::frame(const Rectangle& area) {
    cairo_rectangle(get(), area.x - 0.5, area.y - 0.5, area.width + 1, area.height + 1);
    cairo_stroke(get());
}

void Pen::font(double size, bool bold) {
    cairo_select_font_face(get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(get(), size);
}

double Pen::textWidth(const std::string& text) {
    cairo_text_extents_t extents;
    cairo_text_extents(get(), text.c_str(), &extents);
    return extents.x_advance;
}

void Pen::text(double x, double baseline, const std::string& text, Align align) {
    const double width = align == Align::kLeft ? 0 : textWidth(text);
    cairo_move_to(get(), x - (align == Align::kCentre ? width / 2 : width), baseline);
    cairo_show_text(get(), text.c_str());
}

void Pen::turnedText(double x, double centreY, const std::string& words) {
    cairo_save(get());
    cairo_translate(get(), x, centreY);
    cairo_rotate(get(), -std::acos(-1.0) / 2);
    text(0, 0, words, Align::kCentre);
    cairo_restore(get());
}

std::string Pen::fitted(std::string text, double width) {
    // Measuring takes time in proportion to the text, and no lane shows a text this long.
    constexpr std::size_t kLongest = 2000;
    const bool isLong = text.size() > kLongest;
    if (!isLong && textWidth(text) <= width) {
        return text;
    }
    // Where its letters begin: only there it may be cut.
    std::vector<std::size_t> letters;
    for (std::size_t place = 0; place < std::min(text.size(), kLongest); ++place) {
        if ((static_cast<unsigned char>(text[place]) & 0xC0U) != 0x80U) {
            letters.push_back(place);
        }
    }
    const auto cut = [&text](std::size_t end) { return text.substr(0, end) + "\u2026"; };
    // The first cut that is too wide; the one before it is what fits.
    const auto tooWide = std::partition_point(letters.begin(), letters.end(), [&](std::size_t end) {
        return textWidth(cut(end)) <= width;
    });
    return cut(tooWide == letters.begin() ? 0 : *std::prev(tooWide));
}

}  // namespace tqpicture
