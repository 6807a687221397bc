#pragma once

#include "kxmd/base/KXExport.h"

#include <functional>

/// Runs work later, somewhere else: on a thread of its own or in a host's event loop.
class KX_EXPORT KXQueue {
public:
    /// A piece of work, called once.
    using Work = std::function<void()>;

    virtual ~KXQueue();

    /// `async:` Submits `work` and returns at once. One piece of work runs at a time, in submission
    /// order.
    virtual void async(Work work) = 0;
};
