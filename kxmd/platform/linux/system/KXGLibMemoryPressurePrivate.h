#pragma once

#include "kxmd/platform/KXMemoryPressure.h"

/// What the desktop's memory monitor says. It is asked for at the first observer, by the main loop:
/// where none runs nobody is called, and nothing is spent.
class KXGLibMemoryPressure final : public KXMemoryPressure {
public:
    [[nodiscard]] Registration addObserver(Observer observer) const override;
};
