#include "picture/LevelPng.h"

#include <cmath>
#include <cstdint>

#include "picture/ColourScale.h"
#include "picture/DrawingParts.h"

namespace tqpicture {
namespace {

std::uint32_t pixel(const Colour& colour) {
    return 0xFF000000U | (std::uint32_t{colour.red} << 16U) | (std::uint32_t{colour.green} << 8U) |
           std::uint32_t{colour.blue};
}

}  // namespace

Surface levelImage(const LevelGrid& levels, double floorDb) {
    Surface image(cairo_image_surface_create(
        CAIRO_FORMAT_ARGB32, static_cast<int>(levels.columns()), static_cast<int>(levels.rows())));
    if (cairo_surface_status(image.get()) != CAIRO_STATUS_SUCCESS) {
        return image;
    }
    cairo_surface_flush(image.get());
    unsigned char* bytes = cairo_image_surface_get_data(image.get());
    const int stride = cairo_image_surface_get_stride(image.get());
    for (std::size_t row = 0; row < levels.rows(); ++row) {
        auto* line =
            reinterpret_cast<std::uint32_t*>(bytes + static_cast<std::ptrdiff_t>(row) * stride);
        for (std::size_t column = 0; column < levels.columns(); ++column) {
            const float level = levels.at(column, row);
            line[column] = std::isnan(level) ? 0 : pixel(levelColour((level - floorDb) / -floorDb));
        }
    }
    cairo_surface_mark_dirty(image.get());
    return image;
}

bool levelsAsPng(const LevelGrid& levels, double floorDb, Png& png) {
    const Surface image = levelImage(levels, floorDb);
    return cairo_surface_status(image.get()) == CAIRO_STATUS_SUCCESS &&
           encode(image.get(), png) == CAIRO_STATUS_SUCCESS;
}

}  // namespace tqpicture
