#pragma once

#include "hook/rebind/HeldImages.h"
#include "hook/rebind/SlotChoice.h"

namespace tqhook {

/// Follows the loader's order of search: the global scope, which the start-up images lead, then
/// what the image asked for, breadth first.
class LoaderOrder : public BindingOracle {
  public:
    explicit LoaderOrder(const HeldImages& held) : held_(held) {}

    [[nodiscard]] bool bindsElsewhere(const ElfImage& image,
                                      const SymbolEntry& entry) const override;

  private:
    [[nodiscard]] const ImageLayout* find(std::string_view needed) const;

    const HeldImages& held_;
};

}  // namespace tqhook
