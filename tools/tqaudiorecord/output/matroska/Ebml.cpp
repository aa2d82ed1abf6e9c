#include "output/matroska/Ebml.h"

#include <bit>

namespace tqrecorder {
namespace {

std::size_t bytesOf(std::uint64_t value) {
    return std::max<std::size_t>((static_cast<std::size_t>(std::bit_width(value)) + 7) / 8, 1);
}

}  // namespace

void Ebml::number(std::uint64_t value, std::size_t bytes) {
    for (std::size_t index = bytes; index > 0; --index) {
        bytes_.push_back(static_cast<std::byte>(value >> (8 * (index - 1)) & 0xFFU));
    }
}

void Ebml::append(std::span<const std::byte> bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void Ebml::id(EbmlId id) {
    // Their length is part of them.
    const auto value = static_cast<std::uint32_t>(id);
    number(value, bytesOf(value));
}

void Ebml::size(std::uint64_t size) {
    std::size_t bytes = 1;
    // All ones stand for "unknown".
    while (size >= (std::uint64_t{1} << (7 * bytes)) - 1) {
        ++bytes;
    }
    number(size | std::uint64_t{1} << (7 * bytes), bytes);
}

void Ebml::longSize(std::uint64_t size) {
    number(size | std::uint64_t{1} << 56U, 8);
}

void Ebml::unsignedNumber(EbmlId name, std::uint64_t value) {
    const std::size_t bytes = bytesOf(value);
    id(name);
    size(bytes);
    number(value, bytes);
}

void Ebml::signedNumber(EbmlId name, std::int64_t value) {
    id(name);
    size(8);
    number(static_cast<std::uint64_t>(value), 8);
}

void Ebml::real(EbmlId name, double value) {
    id(name);
    size(8);
    number(std::bit_cast<std::uint64_t>(value), 8);
}

void Ebml::text(EbmlId name, std::string_view text) {
    binary(name, std::as_bytes(std::span(text)));
}

void Ebml::binary(EbmlId name, std::span<const std::byte> bytes) {
    id(name);
    size(bytes.size());
    append(bytes);
}

void Ebml::voidOf(std::uint64_t bytes) {
    id(EbmlId::kVoid);
    longSize(bytes - kShortestVoid);
    bytes_.resize(bytes_.size() + bytes - kShortestVoid);
}

}  // namespace tqrecorder
