// Prints title and artist of each file: the smallest program that uses the library.

#include <kxmd/kxmd.h>

#include <cstdio>

int main(int argumentCount, char** arguments)
{
    for (int i = 1; i < argumentCount; ++i) {
        // Never null: a file that cannot be read gives an object without tags.
        auto const meta = KXMDFileMeta::fileMetaWithSourcePath(arguments[i]);
        auto const title = meta->metadataForKey(KXMDMetadataKeyName);
        auto const artist = meta->metadataForKey(KXMDMetadataKeyArtist);
        std::printf("%s: %s by %s\n", arguments[i], title.value_or("no title").c_str(),
            artist.value_or("no artist").c_str());
    }
}
