#include "kxmd/platform/linux/system/KXGLibMainQueuePrivate.h"

#include <glib.h>
#include <utility>

namespace {

gboolean runWork(gpointer work)
{
    (*static_cast<KXQueue::Work*>(work))();
    return G_SOURCE_REMOVE;
}

void deleteWork(gpointer work) { delete static_cast<KXQueue::Work*>(work); }

}

void KXGLibMainQueue::async(Work work)
{
    // A source, not g_main_context_invoke: while no loop runs that would call the work right here.
    GSource* const source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, runWork, new Work(std::move(work)), deleteWork);
    g_source_attach(source, nullptr);
    g_source_unref(source);
}
