//! [all]
#include <kxmd/kxmd.h>

#include <iostream>

int main(int argumentCount, char** arguments)
{
    for (int i = 1; i < argumentCount; ++i) {
        auto const meta = KXMDFileMeta::fileMetaWithSourcePath(arguments[i]); // Never null.
        std::cout << meta->metadataForKey(KXMDMetadataKeyName).value_or("no title") << " by "
                  << meta->metadataForKey(KXMDMetadataKeyArtist).value_or("nobody") << '\n';
        for (auto const& codec : meta->audioCodecsInfo())
            std::cout << "  " << codec.description() << '\n';
    }
}
//! [all]
