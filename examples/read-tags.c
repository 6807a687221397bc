// Prints title and artist of each file: the smallest program in C that uses the library.

#include <kxmd/kxmd_c.h>

#include <stdio.h>

static char const* tag_or(kxmd_file const* file, kxmd_tag tag, char const* missing)
{
    char const* const value = kxmd_file_get_tag(file, tag, NULL);
    return value ? value : missing;
}

int main(int argument_count, char** arguments)
{
    int status = 0;
    for (int i = 1; i < argument_count; ++i) {
        kxmd_error* error;
        kxmd_file* const file = kxmd_file_open(arguments[i], &error);
        if (file) {
            printf("%s: %s by %s\n", arguments[i], tag_or(file, KXMD_TAG_NAME, "no title"),
                tag_or(file, KXMD_TAG_ARTIST, "no artist"));
        } else {
            fprintf(stderr, "%s: %s\n", arguments[i], kxmd_error_get_message(error));
            status = 1;
        }
        kxmd_error_free(error);
        kxmd_file_free(file);
    }
    return status;
}
