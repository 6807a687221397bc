#include "FileItem.h"

#include <memory>
#include <utility>

namespace {

struct FileItemClass {
    GObjectClass parent;
};

// GLib allocates an item and fills it with zeros; what is of C++ in it has to be made and
// destroyed.

void makeItem(GTypeInstance* instance, gpointer)
{
    std::construct_at(&reinterpret_cast<FileItem*>(instance)->file);
}

void destroyItem(GObject* object)
{
    std::destroy_at(&reinterpret_cast<FileItem*>(object)->file);
    auto* const parentClass = g_type_class_peek(G_TYPE_OBJECT);
    G_OBJECT_CLASS(parentClass)->finalize(object);
}

void makeClass(gpointer itemClass, gpointer) { G_OBJECT_CLASS(itemClass)->finalize = destroyItem; }

}

GType fileItemType()
{
    static GType const type = g_type_register_static_simple(G_TYPE_OBJECT, "KXBrowserFileItem",
        sizeof(FileItemClass), makeClass, sizeof(FileItem), makeItem, G_TYPE_FLAG_NONE);
    return type;
}

FileItem* newFileItem(KXDCFile::Ref file)
{
    auto* const item = static_cast<FileItem*>(g_object_new(fileItemType(), nullptr));
    item->file = std::move(file);
    return item;
}
