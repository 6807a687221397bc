// Tags, codecs and the cover of a file, in C.

#include <kxmd/kxmd_c.h>

#include <stdio.h>

int main(void)
{
    //! [read]
    kxmd_error* error;
    kxmd_file* file = kxmd_file_open("song.m4a", &error);
    if (!file) {
        fprintf(stderr, "song.m4a: %s\n", kxmd_error_get_message(error));
        kxmd_error_free(error);
        return 1;
    }
    char const* title = kxmd_file_get_tag(file, KXMD_TAG_NAME, NULL); // Lives with file.
    printf("%s\n", title ? title : "no title");

    size_t count;
    kxmd_codec_info const* codecs = kxmd_file_get_codecs(file, &count);
    for (size_t i = 0; i < count; ++i)
        printf("%s, %d channels\n", codecs[i].description, (int)codecs[i].channels);
    //! [read]

    //! [edit]
    kxmd_bytes* cover = kxmd_file_extract_cover(file, &error);
    kxmd_file_free(file);
    file = kxmd_file_open("song.mp3", NULL);
    if (!kxmd_file_insert_cover(file, kxmd_bytes_get_data(cover), kxmd_bytes_get_length(cover),
            "with-cover.mp3", KXMD_EDIT_SAFELY, &error))
        fprintf(stderr, "song.mp3: %s\n", kxmd_error_get_message(error));
    kxmd_error_free(error);
    kxmd_bytes_free(cover);
    kxmd_file_free(file);

    file = kxmd_file_open("with-cover.mp3", NULL);
    printf("%s\n", kxmd_file_has_valid_cover(file) ? "it has a cover now" : "it has no cover");
    kxmd_file_free(file);
    //! [edit]
    return 0;
}
