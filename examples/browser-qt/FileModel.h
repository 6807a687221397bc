#pragma once

#include "../browser/PictureLoader.h"

#include <QAbstractListModel>
#include <QImage>
#include <unordered_map>

/// An image over the very bytes of `image`: nothing is copied, and the image keeps the bytes alive.
QImage qImageOfImage(KXImage::Ref const& image);

/// The name of the file at `path`, as it is shown.
QString shownName(std::string const& path);

/// The files of a folder, with the pictures of those in view.
class FileModel final : public QAbstractListModel {
public:
    enum Role {
        /// The picture or, until it comes, the icon. Not `Qt::DecorationRole`, since the standard
        /// delegate copies an image into a pixmap each time it draws.
        pictureRole = Qt::UserRole,
    };

    /// A model that asks `loader` for icons.
    explicit FileModel(PictureLoader::Ref const& loader)
        : _loader(loader)
    {
    }

    /// Shows other files.
    void setFiles(Files files);

    int rowCount(QModelIndex const& parent = {}) const override;
    QVariant data(QModelIndex const& index, int role) const override;

    KXDCFile::Ref const& fileAt(int row) const { return _entries[rowAt(row)].file; }
    bool hasPicture(int row) const { return _pictures.contains(row); }
    bool hasNoPicture(int row) const { return _entries[rowAt(row)].hasNoPicture; }

    /// Sets which rows are in view and forgets the pictures of all others: the controller keeps
    /// them within its own limit. Returns the files that lack a picture.
    Files setRowsInView(int first, int last);

    /// Takes the picture of a file; null when it has none.
    void takePicture(KXDCFile::Ref const& file, KXImage::Ref const& picture);

    /// Draws the icons anew.
    void takeIcons();

private:
    struct Entry {
        KXDCFile::Ref file;
        bool hasNoPicture { false };
    };

    static std::size_t rowAt(int row) { return static_cast<std::size_t>(row); }

    PictureLoader::Ref const _loader;
    std::vector<Entry> _entries;
    int _first { 0 };
    int _last { -1 };
    std::unordered_map<int, QImage> _pictures; // By row.
};
