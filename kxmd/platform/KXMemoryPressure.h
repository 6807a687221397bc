#pragma once

#include "kxmd/base/KXExport.h"

#include <functional>
#include <memory>

/// Tells when the machine runs short of memory. Safe to call from several threads.
class KX_EXPORT KXMemoryPressure {
public:
    /// Called on any thread; it should let go of memory and return.
    using Observer = std::function<void()>;
    /// Keeps an observer registered; releasing it ends the calls, except one already under way.
    using Registration = std::shared_ptr<void>;

    virtual ~KXMemoryPressure();

    /// `addObserver:` From now on calls `observer` whenever memory runs short, for as long as the
    /// returned registration lives. Never waits; a machine that cannot tell never calls.
    [[nodiscard]] virtual Registration addObserver(Observer observer) const = 0;
};
