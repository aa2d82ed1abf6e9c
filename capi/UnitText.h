#pragma once

#include <RZUnitFacts.h>
#include <RZUnitNames.h>

#include <array>
#include <cstdint>

#include "tq_capture.h"

namespace tqcapi {

/// The name of a unit as text, made without allocating: its own, else "unit-3", "graph-1"; without
/// a number "unit" or "graph". [any thread] [real-time safe]
class UnitText {
  public:
    UnitText(std::uint32_t ordinal, bool isGraphs) noexcept;
    [[nodiscard]] const char* get() const noexcept { return text_.data(); }

  private:
    std::array<char, RZUnitNames::kLongest + 1> text_{};
};

[[nodiscard]] constexpr tq_unit_kind unitKind(bool isGraphs) noexcept {
    return isGraphs ? TQ_UNIT_OF_GRAPH : TQ_UNIT_PLAIN;
}

/// A unit as the interface shows it. `name` must outlive it.
[[nodiscard]] tq_unit unitOf(const RZUnitFact& fact, const UnitText& name) noexcept;

}  // namespace tqcapi
