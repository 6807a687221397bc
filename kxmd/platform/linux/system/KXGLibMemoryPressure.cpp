#include "kxmd/platform/linux/system/KXGLibMemoryPressurePrivate.h"

#include "kxmd/base/KXGuarded.h"
#include "kxmd/platform/linux/system/KXGLibMainQueuePrivate.h"

#include <gio/gio.h>
#include <mutex>
#include <utility>
#include <vector>

namespace {

using Observer = KXMemoryPressure::Observer;
using Observers = std::vector<std::weak_ptr<Observer>>;

KXGuarded<Observers>& observers()
{
    // Never destroyed: the monitor may still speak while the process exits.
    static auto& all = *new KXGuarded<Observers>();
    return all;
}

void tellObservers(GMemoryMonitor*, GMemoryMonitorWarningLevel, gpointer)
{
    std::vector<std::shared_ptr<Observer>> alive;
    for (auto const& observer : observers().load()) {
        if (auto owned = observer.lock())
            alive.push_back(std::move(owned));
    }
    for (auto const& observer : alive)
        (*observer)();
}

void startMonitor()
{
    // One for the process, and its warnings come through this main loop.
    static GMemoryMonitor* const monitor = g_memory_monitor_dup_default();
    if (monitor)
        g_signal_connect(monitor, "low-memory-warning", G_CALLBACK(tellObservers), nullptr);
}

}

KXMemoryPressure::Registration KXGLibMemoryPressure::addObserver(Observer observer) const
{
    static std::once_flag started;
    std::call_once(started, [] { KXGLibMainQueue().async(startMonitor); });
    auto const kept = std::make_shared<Observer>(std::move(observer));
    auto all = observers().lock();
    std::erase_if(*all, [](auto const& other) { return other.expired(); });
    all->push_back(kept);
    return kept;
}
