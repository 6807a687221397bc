#pragma once

#include <gio/gio.h>
#include <kxmd/host/KXDCFile.h>

/// A file as an item of a GListModel, which holds objects of GLib.
struct FileItem {
    GObject parent;
    KXDCFile::Ref file;
    bool hasNoPicture; ///< It was asked for one: its icon stays.
};

/// The type of GLib that stands for `FileItem`.
GType fileItemType();

/// A new item, which the caller owns.
FileItem* newFileItem(KXDCFile::Ref file);
