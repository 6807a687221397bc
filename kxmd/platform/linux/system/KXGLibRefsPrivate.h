#pragma once

#include <glib-object.h>
#include <memory>

struct GObjectUnreference {
    void operator()(gpointer object) const { g_object_unref(object); }
};

/// Owns one reference to a GObject.
template <class Object> using GObjectRef = std::unique_ptr<Object, GObjectUnreference>;

struct GFree {
    void operator()(gpointer memory) const { g_free(memory); }
};

/// Owns memory that GLib allocated.
template <class Type> using GAllocated = std::unique_ptr<Type, GFree>;
