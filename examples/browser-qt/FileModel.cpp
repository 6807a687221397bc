#include "FileModel.h"

#include <QFile>
#include <QFileInfo>

QImage qImageOfImage(KXImage::Ref const& image)
{
    return { image->pixels().data(), static_cast<int>(image->pixelWidth()),
        static_cast<int>(image->pixelHeight()),
        static_cast<qsizetype>(image->pixelWidth() * KXImage::bytesPerPixel),
        QImage::Format_RGBA8888_Premultiplied,
        [](void* kept) { delete static_cast<KXImage::Ref*>(kept); }, new KXImage::Ref(image) };
}

QString shownName(std::string const& path)
{
    return QFileInfo(QFile::decodeName(path.c_str())).fileName();
}

void FileModel::setFiles(Files files)
{
    beginResetModel();
    _pictures.clear();
    _last = -1;
    _entries.clear();
    _entries.reserve(files.size());
    for (auto& file : files)
        _entries.push_back({ std::move(file) });
    endResetModel();
}

int FileModel::rowCount(QModelIndex const& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(_entries.size());
}

QVariant FileModel::data(QModelIndex const& index, int role) const
{
    int const row = index.row();
    auto const& file = fileAt(row);
    auto const picture = _pictures.find(row);
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return shownName(file->sourcePath());
    case pictureRole:
        if (picture != _pictures.end())
            return picture->second;
        if (auto const icon = _loader->iconForFile(file))
            return qImageOfImage(icon);
        return {};
    default:
        return {};
    }
}

Files FileModel::setRowsInView(int first, int last)
{
    _first = first;
    _last = last;
    std::erase_if(_pictures, [first, last](auto const& picture) {
        return picture.first < first || picture.first > last;
    });
    Files lacking;
    for (int row = first; row <= last; ++row) {
        if (!hasPicture(row) && !hasNoPicture(row))
            lacking.push_back(fileAt(row));
    }
    return lacking;
}

void FileModel::takePicture(KXDCFile::Ref const& file, KXImage::Ref const& picture)
{
    for (int row = _first; row <= _last; ++row) { // Whatever is not in view was scrolled away.
        if (fileAt(row) != file)
            continue;
        _entries[rowAt(row)].hasNoPicture = !picture;
        if (picture)
            _pictures[row] = qImageOfImage(picture);
        emit dataChanged(index(row), index(row));
        return;
    }
}

void FileModel::takeIcons()
{
    if (_first <= _last)
        emit dataChanged(index(_first), index(_last), { pictureRole });
}
