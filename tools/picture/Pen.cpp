#include "picture/Pen.h"

#include <cmath>

namespace tqpicture {

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
    if (textWidth(text) <= width) {
        return text;
    }
    while (!text.empty() && textWidth(text + "\u2026") > width) {
        do {
            text.pop_back();
        } while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0U) == 0x80U);
        if (!text.empty() && static_cast<unsigned char>(text.back()) >= 0xC0U) {
            text.pop_back();
        }
    }
    return text + "\u2026";
}

}  // namespace tqpicture
